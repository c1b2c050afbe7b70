#pragma once

#include <atomic>
#include <chrono>
#include <string>

#include "base/reflect/TClass.h"
#include "host/base/ClassRegistry.h"
#include "nimbo/base/api.h"

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

/// How late the packets of live streams may become, as elements have it without being told.
constexpr std::chrono::nanoseconds DefaultMaxLag = std::chrono::seconds(2);
constexpr char MaxLagText[] =
    "seconds that packets may be late, 0 for any; whoever is later goes on "
    "at the newest key frame";

/// [control] Sets the property `key` of `element` to the time that `text` tells in seconds. False
/// with one console line when it tells none, or one above an hour.
NIMBO_API bool SetSeconds(const base::object& element, const char* key, const char* text,
                          std::atomic<std::chrono::nanoseconds>& value);
/// "2", "0.5"
NIMBO_API std::string SecondsText(std::chrono::nanoseconds value);

/// [control] Sets the property `key` of `element` to the number of packets that `text` tells. False
/// with one console line when it tells none, or one beyond what a ring or queue can hold.
bool SetPacketCount(const base::object& element, const char* key, const char* text,
                    std::atomic<int>& value);

}  // namespace nimbo::stream
