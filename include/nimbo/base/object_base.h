#pragma once

#include <cstddef>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// Allocation of everything that the framework may free: classes, properties, reflected objects and
/// the records that plug-ins hand over. Memory is always given back with the size it was asked
/// with.
class NIMBO_API object_base {
 public:
  /// [any] `size` bytes, aligned for any type. Throws std::bad_alloc when there is no memory.
  static void* operator new(std::size_t size);
  /// [any] Placement form, so that an object can be built in memory obtained from the form above.
  static void* operator new(std::size_t, void* where) noexcept { return where; }
  /// [any] Gives back `size` bytes obtained from operator new; null is accepted.
  static void operator delete(void* memory, std::size_t size) noexcept;
  static void operator delete(void*, void*) noexcept {}
};

}  // namespace nimbo::base
