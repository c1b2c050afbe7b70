#include "host/base/PluginLoader.h"

#include <dlfcn.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "host/base/Console.h"
#include "host/base/ControlThread.h"
#include "host/base/DynamicSymbols.h"
#include "nimbo/base/command.h"

namespace nimbo::base {

PluginLoader& PluginLoader::Global() {
  // Filled by static initialisers of plug-ins; never destroyed.
  static auto* const loader = new PluginLoader;
  return *loader;
}

bool PluginLoader::Load(const std::string& path) {
  AssertControlThread();
  // The initialisers of the library run inside dlopen.
  void* handle = Guarded(path, static_cast<void*>(nullptr), [&path]() -> void* {
    void* loaded = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!loaded) Refuse("cannot load the plug-in: ", dlerror());
    return loaded;
  });
  if (!handle) return false;
  const bool known = std::any_of(_libraries.begin(), _libraries.end(),
                                 [handle](const Library& l) { return l.handle == handle; });
  if (known) {
    dlclose(handle);  // gives back the count that this call added
  } else {
    std::vector<std::string> functions = ExportedFunctions(handle);
    std::sort(functions.begin(), functions.end());
    _libraries.push_back({path, handle, std::move(functions)});
  }
  return Register();
}

bool PluginLoader::Register() {
  AssertControlThread();
  bool succeeded = true;
  for (;;) {
    // Looked for anew each time: a registration function may add entries.
    Entry* next = nullptr;
    for (Entry& entry : _entries) {
      if (!entry.registered && (!next || entry.order < next->order)) next = &entry;
    }
    if (!next) return succeeded;
    next->registered = true;
    const auto registration = next->registration;
    const std::string name = next->name;
    succeeded &= Guarded("plug-in " + name, false, [&] {
      registration(name.c_str());
      return true;
    });
  }
}

int PluginLoader::Add(void (*registration)(const char*), int order, const char* name) {
  if (!registration) {
    Refuse("plug-in \"", name, "\" has no registration function");
    return -1;
  }
  _entries.push_back({registration, order, name ? name : "", false});
  return static_cast<int>(_entries.size()) - 1;
}

void* PluginLoader::Symbol(const std::string& name) const {
  for (const Library& library : _libraries) {
    // dlsym alone would also find what the library needs, the C library's functions among it.
    if (std::binary_search(library.functions.begin(), library.functions.end(), name)) {
      return dlsym(library.handle, name.c_str());
    }
  }
  return nullptr;
}

std::vector<std::string> PluginLoader::Exports(const std::string& prefix) const {
  std::set<std::string> names;
  for (const Library& library : _libraries) {
    for (const std::string& function : library.functions) {
      if (function.compare(0, prefix.size(), prefix) == 0) names.insert(function);
    }
  }
  return {names.begin(), names.end()};
}

std::vector<std::string> PluginLoader::Libraries() const {
  std::vector<std::string> paths;
  for (const Library& library : _libraries) paths.push_back(library.path);
  return paths;
}

std::vector<std::string> PluginLoader::Names() const {
  std::vector<std::string> names;
  for (const Entry& entry : _entries) names.push_back(entry.name);
  return names;
}

std::string PluginLoader::OwnFolder() {
  namespace fs = std::filesystem;
  std::error_code failed;
  fs::path own;
  Dl_info info = {};
  if (dladdr(reinterpret_cast<const void*>(&ReflectAdd), &info) != 0 && info.dli_fname) {
    own = fs::canonical(info.dli_fname, failed);
  }
  // Of a program, dladdr tells only how it was called.
  if (own.empty() || failed) own = fs::read_symlink("/proc/self/exe", failed);
  return failed ? "./" : own.parent_path().string() + "/";
}

Result<void*> PluginLoader::ModuleFunction(const char* library, const char* function) {
  const std::string path = OwnFolder() + library;
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* symbol = module ? dlsym(module, function) : nullptr;
  if (symbol) return symbol;
  const char* reason = dlerror();
  return Status::Failed(reason ? reason : path + " has no " + function);
}

int ReflectAdd(void (*registration)(const char*), int order, const char* name) {
  return PluginLoader::Global().Add(registration, order, name);
}

}  // namespace nimbo::base
