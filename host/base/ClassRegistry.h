#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <typeinfo>
#include <vector>

#include "nimbo/base/class.h"

namespace nimbo::base {

/// All registered classes, in the order of their registration. It owns them; classes are never
/// unregistered, because plug-ins are never unloaded.
class NIMBO_API ClassRegistry {
 public:
  /// [any] See IClass::Find. With `kind`, only classes that derive from that type are looked at.
  /// Where nothing is found, a module that offers a class by this name is loaded first. [control]
  IClass* Find(const char* name, bool exact, const std::type_info* kind = nullptr);
  /// [control]
  void Add(IClass& cl);
  /// [loading] Says that `load` registers a class called `name`, once it is called. It tells in one
  /// console line when it cannot.
  void Offer(const char* name, bool (*load)());
  /// [any] A copy of the list.
  std::vector<IClass*> Classes();

  /// [control] Creates an object of class `cl` named `name` (null or empty: unnamed) through the
  /// class's creator and Initialize. Null, with one console line, on failure.
  static object* Create(IClass& cl, const char* type, const char* name, const char* cfgs,
                        object* owner);

 private:
  /// A class that a module registers when it is loaded.
  struct Offered {
    std::uint32_t id;
    Arr32 keywords;
    bool (*load)();
  };
  IClass* FindRegistered(std::uint32_t id, const Arr32& keywords, bool exact,
                         const std::type_info* kind);
  /// Loads a module that offers such a class. False when there is none or it cannot be loaded.
  bool LoadOffered(std::uint32_t id, const Arr32& keywords);

  std::mutex _mutex;  ///< not held while a module is loaded
  std::vector<Offered> _offered;
  std::vector<IClass*> _classes;
};

/// True when the class described by `type` is `base` or derives from it, by whatever path.
NIMBO_API bool DerivesFrom(const std::type_info& type, const std::type_info& base);

}  // namespace nimbo::base
