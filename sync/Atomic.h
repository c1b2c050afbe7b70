#pragma once

#include <type_traits>

namespace nimbo::sync {

/// Access to a plain field that several threads touch: the contract's fields have plain types.

template <class T>
T Load(const T& field) noexcept {
  T value;
  __atomic_load(&field, &value, __ATOMIC_ACQUIRE);
  return value;
}

template <class T>
void Store(T& field, std::common_type_t<T> value) noexcept {
  __atomic_store(&field, &value, __ATOMIC_RELEASE);
}

}  // namespace nimbo::sync
