#pragma once

#include <memory>

namespace nimbo {

/// Gives back one reference to a counted object (base::Reference).
struct ReleaseReference {
  template <class T>
  void operator()(T* object) const noexcept {
    object->Release();
  }
};

/// Owns one reference to a counted object: a packet, a media.
template <class T>
using Held = std::unique_ptr<T, ReleaseReference>;

/// [any] One more reference to `object`.
template <class T>
[[nodiscard]] Held<T> Share(T& object) noexcept {
  object.Hold();
  return Held<T>(&object);
}

}  // namespace nimbo
