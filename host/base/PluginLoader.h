#pragma once

#include <string>
#include <vector>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// The plug-ins of the process. They are loaded with dlopen and never unloaded. [control]
class NIMBO_API PluginLoader {
 public:
  static PluginLoader& Globle();

  /// Loads the library at `path`, whose initialisers put it into the plug-in list, then calls the
  /// registration functions of every entry that is new. False with one console line on failure.
  bool Load(const std::string& path);
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

 private:
  friend int AddToPluginList(void (*)(const char*), int, const char*);
  struct Entry {
    void (*registration)(const char*);
    std::string name;
    bool registered;
  };
  std::vector<Entry> _entries;
  std::vector<std::pair<std::string, void*>> _libraries;
};

}  // namespace nimbo::base
