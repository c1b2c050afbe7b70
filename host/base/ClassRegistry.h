#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <typeinfo>
#include <vector>

#include "nimbo/base/class.h"
#include "sync/Mutex.h"

namespace nimbo::base {

/// All registered classes, in the order of their registration. It owns them; classes are never
/// unregistered, because plug-ins are never unloaded.
class NIMBO_API IClass::Registry {
 public:
  /// [any] See IClass::Find. With `kind`, only classes that derive from that type are looked at.
  /// Where nothing is found, a module that offers a class by this name is loaded first. [control]
  IClass* Find(const char* name, bool exact, const std::type_info* kind = nullptr) EXCLUDES(_mutex);
  /// [control]
  void Add(IClass& cl) EXCLUDES(_mutex);
  /// [loading] Says that `load` registers a class called `name`, which derives from `kind`, once it
  /// is called. It tells in one console line when it cannot.
  void Offer(const char* name, const std::type_info& kind, bool (*load)()) EXCLUDES(_mutex);
  /// [any] A copy of the list.
  std::vector<IClass*> Classes() EXCLUDES(_mutex);
  /// [any] The end of a line about a `name` that no class of these kinds has: by which similar one
  /// a class can be found, else which classes there are. Without kinds: of any.
  std::string Suggest(const std::string& name,
                      std::initializer_list<const std::type_info*> kinds = {}) EXCLUDES(_mutex);

  /// [control] Creates an object of class `cl` named `name` (null or empty: unnamed) through the
  /// class's creator and Initialize. Null, with one console line, on failure.
  static object* Create(IClass& cl, const char* type, const char* name, const char* cfgs,
                        object* owner);

 private:
  /// A class that a module registers when it is loaded.
  struct Offered {
    std::string name;
    Arr32 keywords;
    const std::type_info* kind;
    bool (*load)();
  };
  IClass* FindRegistered(std::uint32_t id, const Arr32& keywords, bool exact,
                         const std::type_info* kind) EXCLUDES(_mutex);
  /// Loads a module that offers such a class. False when there is none or it cannot be loaded.
  bool LoadOffered(std::uint32_t id, const Arr32& keywords) EXCLUDES(_mutex);

  sync::Mutex _mutex;  ///< not held while a module is loaded
  std::vector<Offered> _offered GUARDED_BY(_mutex);
  std::vector<IClass*> _classes GUARDED_BY(_mutex);
};

using ClassRegistry = IClass::Registry;

/// [loading] States what a class of the reference host is for and which of its libraries it is in.
/// The texts are not copied. Returns the class.
NIMBO_API IClass* Describe(IClass* cl, const char* module, const char* description);

/// True when the class described by `type` is `base` or derives from it, by whatever path.
NIMBO_API bool DerivesFrom(const std::type_info& type, const std::type_info& base);

}  // namespace nimbo::base
