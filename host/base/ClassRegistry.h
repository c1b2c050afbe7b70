#pragma once

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
  IClass* Find(const char* name, bool exact, const std::type_info* kind = nullptr);
  /// [control]
  void Add(IClass& cl);
  /// [any] A copy of the list.
  std::vector<IClass*> Classes();

  /// [control] Creates an object of class `cl` named `name` (null or empty: unnamed) through the
  /// class's creator and Initialize. Null, with one console line, on failure.
  static object* Create(IClass& cl, const char* type, const char* name, const char* cfgs,
                        object* owner);

 private:
  std::mutex _mutex;
  std::vector<IClass*> _classes;
};

/// True when the class described by `type` is `base` or derives from it, by whatever path.
NIMBO_API bool DerivesFrom(const std::type_info& type, const std::type_info& base);

}  // namespace nimbo::base
