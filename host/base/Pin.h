#pragma once

#include <utility>
#include <vector>

#include "nimbo/base/object_list.h"

namespace nimbo::base {

/// Keeps an object alive for a reader that is not on the control thread: whoever destroys the
/// object waits until the last pin is gone. Hold one only for as long as a read takes, and never
/// while waiting for the control thread.
class NIMBO_API Pin {
 public:
  /// Must be made while the object is known to be alive, for instance under the lock of a list.
  explicit Pin(object& instance);
  Pin(Pin&& other) noexcept : _object(std::exchange(other._object, nullptr)) {}
  Pin& operator=(Pin&&) = delete;
  ~Pin();

  object& operator*() const noexcept { return *_object; }
  object* operator->() const noexcept { return _object; }

  /// [any] Pins on all objects that are in the list now, in its order.
  static std::vector<Pin> All(ObjectListSafe& list);
  /// [control] Takes the object out of the global list, so that nobody finds it any more, and waits
  /// until nobody pins it. Whoever destroys an object that others may look at calls this first,
  /// while the object is still whole: object::Release does, and so must an override that does not
  /// end in it.
  static void Retire(object& instance);

 private:
  object* _object;
};

}  // namespace nimbo::base
