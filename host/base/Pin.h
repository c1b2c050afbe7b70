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

 private:
  object* _object;
};

}  // namespace nimbo::base
