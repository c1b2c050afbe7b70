#pragma once

#include <atomic>
#include <string>

#include "base/reflect/TClass.h"
#include "host/base/ClassRegistry.h"

/// How the host's own elements are registered, with their properties.

namespace nimbo::stream {

/// A figure that can be read, typed and as text.
template <class T, class R>
base::IProperty* Figure(const char* name, R (T::*getter)() const, const char* description) {
  auto* property = new base::TProperty;
  property->base::IProperty::init(name, typeid(R), base::PropertyTypeSize<R>, description);
  property->initGet(getter);
  property->initGetStr(getter);
  return property;
}

/// A setting that is given and read as text.
template <class T, class R>
base::IProperty* Setting(const char* name, bool (T::*setter)(const char*), R (T::*getter)() const,
                         const char* description) {
  auto* property = new base::TProperty(name, setter, description);
  property->initGetStr(getter);
  property->print = [getter](base::ostream& out, base::object& instance) {
    out << (dynamic_cast<T&>(instance).*getter)() << "\n";
  };
  return property;
}

/// [loading] Registers an element class of the framework's own library.
template <class T>
base::IClass* RegisterElement(const char* name, const char* description,
                              std::initializer_list<base::IProperty*> properties) {
  return base::Describe(base::TClass<>::Register<T>(name, properties), "nimbo", description);
}

/// [control] Sets the property `key` of `element` to the number of packets that `text` tells. False
/// with one console line when it tells none, or one beyond what a ring or queue can hold.
bool SetPacketCount(const base::object& element, const char* key, const char* text,
                    std::atomic<int>& value);

}  // namespace nimbo::stream
