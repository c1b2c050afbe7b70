#pragma once

#include <string>
#include <vector>

#include "common/Status.h"
#include "nimbo/base/api.h"

namespace nimbo::base {

/// The plug-ins of the process. They are loaded with dlopen and never unloaded. [control]
class NIMBO_API PluginLoader {
 public:
  static PluginLoader& Global();

  /// Loads the library at `path`, whose initialisers put it into the plug-in list, then calls
  /// Register. A library that is loaded already stays as it is. False with one console line on
  /// failure.
  bool Load(const std::string& path);
  /// Calls the registration functions of every entry that is new, those of a smaller order first.
  /// An exception that escapes from one becomes one console line; the result is then false.
  bool Register();
  /// See ReflectAdd. -1, with one console line, without a function.
  int Add(void (*registration)(const char*), int order, const char* name);

  /// Finds an exported function in the loaded plug-ins, in the order of loading; null when none
  /// has it.
  void* Symbol(const std::string& name) const;
  /// The names of the exported functions that start with `prefix`, sorted.
  std::vector<std::string> Exports(const std::string& prefix) const;
  /// Paths of the loaded libraries, and the names of the plug-in list's entries.
  std::vector<std::string> Libraries() const;
  std::vector<std::string> Names() const;

  /// The folder of the library or program that this code is linked into; ends in "/".
  static std::string OwnFolder();
  /// The function of a module of this project: a library in this folder, which is loaded for it
  /// and, like the plug-ins, never unloaded. Never null.
  static Result<void*> ModuleFunction(const char* library, const char* function);

 private:
  struct Entry {
    void (*registration)(const char*);
    int order;
    std::string name;
    bool registered;
  };
  struct Library {
    std::string path;
    void* handle;
    std::vector<std::string> functions;  ///< sorted
  };
  std::vector<Entry> _entries;
  std::vector<Library> _libraries;
};

}  // namespace nimbo::base
