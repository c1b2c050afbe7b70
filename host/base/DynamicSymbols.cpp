#include "host/base/DynamicSymbols.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gelf.h>
#include <link.h>

#include <memory>

#include "common/FileDescriptor.h"

namespace nimbo::base {
namespace {

struct EndElf {
  void operator()(Elf* elf) const { elf_end(elf); }
};
using ElfPtr = std::unique_ptr<Elf, EndElf>;

bool IsExportedFunction(const GElf_Sym& symbol) {
  const auto type = GELF_ST_TYPE(symbol.st_info);
  const auto binding = GELF_ST_BIND(symbol.st_info);
  const auto visibility = GELF_ST_VISIBILITY(symbol.st_other);
  return symbol.st_shndx != SHN_UNDEF && (type == STT_FUNC || type == STT_GNU_IFUNC) &&
         (binding == STB_GLOBAL || binding == STB_WEAK) &&
         (visibility == STV_DEFAULT || visibility == STV_PROTECTED);
}

void AddFunctions(Elf& elf, Elf_Scn& section, std::vector<std::string>& functions) {
  GElf_Shdr header = {};
  if (!gelf_getshdr(&section, &header) || header.sh_type != SHT_DYNSYM) return;
  Elf_Data* data = elf_getdata(&section, nullptr);
  GElf_Sym symbol = {};
  for (int index = 0; gelf_getsym(data, index, &symbol); ++index) {
    const char* name = elf_strptr(&elf, header.sh_link, symbol.st_name);
    if (name && IsExportedFunction(symbol)) functions.emplace_back(name);
  }
}

}  // namespace

std::vector<std::string> ExportedFunctions(void* handle) {
  std::vector<std::string> functions;
  link_map* map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || !map) return functions;
  elf_version(EV_CURRENT);
  const FileDescriptor file(open(map->l_name, O_RDONLY | O_CLOEXEC));
  const ElfPtr elf(elf_begin(file.Get(), ELF_C_READ_MMAP, nullptr));
  if (!elf) return functions;
  for (Elf_Scn* section = nullptr; (section = elf_nextscn(elf.get(), section));) {
    AddFunctions(*elf, *section, functions);
  }
  return functions;
}

}  // namespace nimbo::base
