#include "host/base/DynamicSymbols.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstdint>

namespace nimbo::base {
namespace {

/// The parts of a loaded library's dynamic section that name its symbols.
struct Tables {
  const ElfW(Sym) * symbols = nullptr;
  const char* names = nullptr;
  const std::uint32_t* gnuHash = nullptr;
  const std::uint32_t* sysvHash = nullptr;
};

Tables ReadTables(const link_map& map) {
  Tables tables;
  for (const ElfW(Dyn)* entry = map.l_ld; entry->d_tag != DT_NULL; ++entry) {
    // Some C libraries relocate these addresses when they load a library, others do not.
    ElfW(Addr) address = entry->d_un.d_ptr;
    if (address < map.l_addr) address += map.l_addr;
    switch (entry->d_tag) {
      case DT_SYMTAB:
        tables.symbols = reinterpret_cast<const ElfW(Sym)*>(address);
        break;
      case DT_STRTAB:
        tables.names = reinterpret_cast<const char*>(address);
        break;
      case DT_GNU_HASH:
        tables.gnuHash = reinterpret_cast<const std::uint32_t*>(address);
        break;
      case DT_HASH:
        tables.sysvHash = reinterpret_cast<const std::uint32_t*>(address);
        break;
      default:
        break;
    }
  }
  return tables;
}

/// The symbol table does not say how long it is; the hash table over it does. The GNU form lists
/// the symbols of each bucket in a chain whose last entry has its lowest bit set, so the table ends
/// behind the chain of the bucket that starts last.
std::size_t SymbolCount(const Tables& tables) {
  if (tables.sysvHash) return tables.sysvHash[1];
  if (!tables.gnuHash) return 0;
  const std::uint32_t bucketCount = tables.gnuHash[0];
  const std::uint32_t firstHashed = tables.gnuHash[1];
  const std::uint32_t filterWords = tables.gnuHash[2];
  constexpr std::uint32_t HeaderWords = 4;
  const std::uint32_t* buckets =
      tables.gnuHash + HeaderWords + filterWords * (sizeof(ElfW(Addr)) / sizeof(std::uint32_t));
  const std::uint32_t* chains = buckets + bucketCount;
  if (bucketCount == 0) return firstHashed;
  std::uint32_t last = *std::max_element(buckets, buckets + bucketCount);
  if (last < firstHashed) return firstHashed;
  while ((chains[last - firstHashed] & 1) == 0) ++last;
  return last + 1;
}

}  // namespace

std::vector<std::string> ExportedFunctions(void* handle) {
  std::vector<std::string> functions;
  link_map* map = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || !map) return functions;
  const Tables tables = ReadTables(*map);
  if (!tables.symbols || !tables.names) return functions;
  const std::size_t count = SymbolCount(tables);
  for (std::size_t index = 0; index < count; ++index) {
    const ElfW(Sym)& symbol = tables.symbols[index];
    // Both word sizes lay out these two bytes alike.
    const auto type = ELF64_ST_TYPE(symbol.st_info);
    const auto binding = ELF64_ST_BIND(symbol.st_info);
    const auto visibility = ELF64_ST_VISIBILITY(symbol.st_other);
    if (symbol.st_shndx == SHN_UNDEF) continue;
    if (type != STT_FUNC && type != STT_GNU_IFUNC) continue;
    if (binding != STB_GLOBAL && binding != STB_WEAK) continue;
    if (visibility != STV_DEFAULT && visibility != STV_PROTECTED) continue;
    functions.emplace_back(tables.names + symbol.st_name);
  }
  return functions;
}

}  // namespace nimbo::base
