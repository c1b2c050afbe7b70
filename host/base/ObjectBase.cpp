#include "nimbo/base/object_base.h"

#include <new>

namespace nimbo::base {

void* object_base::operator new(std::size_t size) { return ::operator new(size); }

void object_base::operator delete(void* memory, [[maybe_unused]] std::size_t size) noexcept {
#ifdef __cpp_sized_deallocation
  // The sized form lets the address sanitizer tell when memory comes back with another size.
  ::operator delete(memory, size);
#else
  ::operator delete(memory);
#endif
}

}  // namespace nimbo::base
