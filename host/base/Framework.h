#pragma once

#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

#include "nimbo/base/class.h"

namespace nimbo {

/// What a registered class tells of itself. The texts may be null.
struct ClassInfo {
  const std::type_info* type;
  std::uint32_t objectSize;
  const char* module;
  unsigned int version;
  const char* vendor;
  const char* author;
  const char* description;
};

/// What a property tells of itself. The description may be null.
struct PropertyInfo {
  const std::type_info* type;
  int size;
  const char* description;
  bool shown;
  bool persistent;
};

/// The host's way to what the contract's classes keep to themselves: a plug-in cannot say any of
/// it, because no device has it. Templates where this layer does not know the class. [any], unless
/// the member is of one thread.
class Framework {
 public:
  /// How many pins an object has.
  template <class Object>
  static int& Pins(Object& instance) noexcept {
    return instance._pins;
  }
  /// The class that made an object; null when none did.
  static base::IClass* Class(const base::object& instance) noexcept { return instance._class; }

  static const std::vector<base::IProperty*>& Properties(const base::IClass& cl) noexcept {
    return cl._properties;
  }
  /// The property called `name`, or null.
  static base::IProperty* Property(const base::IClass& cl, const char* name) noexcept {
    const std::uint32_t id = base::Hash(name);
    for (base::IProperty* property : cl._properties) {
      if (property->ID() == id) return property;
    }
    return nullptr;
  }
  /// Of an object: those of its class. None where no class made it.
  static const std::vector<base::IProperty*>& Properties(const base::object& instance) noexcept {
    static const std::vector<base::IProperty*> none;
    return instance._class ? Properties(*instance._class) : none;
  }
  static base::IProperty* Property(const base::object& instance, const char* name) noexcept {
    return instance._class ? Property(*instance._class, name) : nullptr;
  }
  static ClassInfo Info(const base::IClass& cl) noexcept {
    return {cl._type,   cl._object_size, cl._module,     cl._version,
            cl._vendor, cl._author,      cl._description};
  }
  static bool IsInstance(const base::IClass& cl, base::object& instance) {
    return cl._is_instance && cl._is_instance(instance);
  }
  static PropertyInfo Info(const base::IProperty& property) noexcept {
    return {property._type, property._size, property._description, property._shown,
            property._persistent};
  }

  static const auto& Entries(const base::AttrSet& attrs) noexcept { return attrs._entries; }
  /// False for a set whose text could not be parsed.
  static bool Valid(const base::AttrSet& attrs) noexcept { return attrs._valid; }

  template <class List>
  static auto& Mutex(List& list) noexcept {
    return list._mutex;
  }
  template <class List>
  static auto& Objects(List& list) noexcept {
    return list._objects;
  }
  /// Of the status machine: see the members' declaration.
  template <class Machine>
  static auto& Status(Machine& machine) noexcept {
    return machine._status;
  }
  template <class Machine>
  static auto& Touched(Machine& machine) noexcept {
    return machine._touched;
  }
  template <class Machine>
  static bool& AfterPending(Machine& machine) noexcept {
    return machine._after_pending;
  }
  /// What the host keeps of an element, a pipeline or an application.
  template <class Owner>
  static auto& State(Owner& owner) noexcept {
    return *owner._state;
  }
  /// The pipeline that an element is in; null when it is in none.
  template <class Element>
  static auto* Pipeline(const Element& element) noexcept {
    return element._pipeline;
  }
  /// The accessors of the property "serialize" of a pipeline and an application.
  template <class Container>
  static constexpr auto SetSerialize() noexcept {
    return &Container::SetSerialize;
  }
  template <class Container>
  static constexpr auto GetSerialize() noexcept {
    return &Container::GetSerialize;
  }
};

}  // namespace nimbo
