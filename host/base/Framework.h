#pragma once

#include <memory>

#include "nimbo/base/api.h"

namespace nimbo {

/// The host's way to what the contract's classes keep to themselves. Templates, because this layer
/// does not know the streaming one's classes.
class Framework {
 public:
  /// How many pins an object has.
  template <class Object>
  static int& Pins(Object& instance) noexcept {
    return instance._pins;
  }
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
};

}  // namespace nimbo
