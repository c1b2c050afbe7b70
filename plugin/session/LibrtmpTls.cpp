#include "plugin/session/LibrtmpTls.h"

#include <dlfcn.h>
#include <link.h>

#include <cstring>

#include <librtmp/rtmp.h>

namespace nimbo::plugin {

namespace {

bool NeedsGnuTls(const link_map& library) {
  const char* names = nullptr;
  for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_STRTAB) names = reinterpret_cast<const char*>(entry->d_un.d_ptr);
  }
  if (!names) return false;
  for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag != DT_NEEDED) continue;
    if (std::strstr(names + entry->d_un.d_val, "gnutls")) return true;
  }
  return false;
}

}  // namespace

bool LibrtmpUsesGnuTls() {
  static const bool uses = [] {
    Dl_info where = {};
    void* library = nullptr;
    return dladdr1(reinterpret_cast<void*>(&RTMP_Alloc), &where, &library, RTLD_DL_LINKMAP) != 0 &&
           library && NeedsGnuTls(*static_cast<link_map*>(library));
  }();
  return uses;
}

}  // namespace nimbo::plugin
