#pragma once

#include <initializer_list>
#include <string>
#include <typeinfo>

#include "base/reflect/FailedCheck.h"
#include "base/reflect/TProperty.h"
#include "nimbo/base/attributes.h"
#include "nimbo/base/class.h"

namespace nimbo::base {

/// A class of objects that are built from arguments of the types `Args`; all of this system's are
/// built without any.
template <class... Args>
class TClass : public IClass {
 public:
  using IClass::IClass;

  /// Builds an object of class `T` in memory of the framework.
  template <class T>
  static T* cbNew(Args... args) {
    return new T(args...);
  }

  /// [control] Registers `T` under `name` with these properties, which belong to the class from
  /// then on, and returns the class. Null for a null name. A class that is registered under that
  /// name already is returned as it is; the properties are then left to the caller.
  template <class T>
  static IClass* Register(const char* name, std::initializer_list<IProperty*> properties) {
    // The line numbers are part of the printed text, which tools of our users look for.
    constexpr int NullName = 72;
    constexpr int NameInUse = 74;
    if (!name) {
      FailedCheck(__FILE__, NullName, "Register", "!name");
      return nullptr;
    }
    if (IClass* existing = IClass::Find(name, true)) {
      FailedCheck(__FILE__, NameInUse, "Register", std::string("cl,class existed:") + name);
      return existing;
    }
    auto* cl = new TClass(name, properties);
    cl->_is_instance = [](object& instance) { return dynamic_cast<T*>(&instance) != nullptr; };
    cl->_object_size = sizeof(T);
    cl->_type = &typeid(T);
    cl->_creator = [](void*) -> object* { return cbNew<T>(); };
    cl->_signature = &typeid(void (*)(Args...));
    return IClass::Register(cl);
  }
};

inline bool IAttributes::toString(std::string& text) {
  AttrSet attrs;
  toAttrSet(attrs);
  attrs.ToString(false).swap(text);
  return true;
}

inline bool IAttributes::fromString(const char* text) {
  AttrSet attrs(text);
  return fromAttrSet(attrs);
}

}  // namespace nimbo::base
