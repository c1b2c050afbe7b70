#include "tests/support/Scarcity.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace nimbo::test {
namespace {

constexpr std::size_t NameSize = 16;

std::atomic<int> s_left[2] = {0, 0};  ///< requests until one is refused; 0: none will be
std::atomic<bool> s_on{false};
char s_plain_name[NameSize];  ///< of threads that nobody has named
thread_local bool t_maker = false;

bool Counts() {
  if (t_maker) return true;
  char name[NameSize] = "";
  pthread_getname_np(pthread_self(), name, sizeof name);
  return std::strcmp(name, s_plain_name) != 0;
}

bool Refuses(Resource resource) {
  std::atomic<int>& left = s_left[static_cast<int>(resource)];
  return s_on.load(std::memory_order_relaxed) && left.load(std::memory_order_relaxed) > 0 &&
         Counts() && left.fetch_sub(1) == 1;
}

}  // namespace

Scarcity::Scarcity(Resource resource, int nth) {
  pthread_getname_np(pthread_self(), s_plain_name, sizeof s_plain_name);
  for (auto& left : s_left) left = 0;
  s_left[static_cast<int>(resource)] = nth;
  t_maker = true;
  s_on = true;
}

Scarcity::~Scarcity() {
  s_on = false;
  t_maker = false;
}

bool Scarcity::Refused() {
  for (const auto& left : s_left) {
    if (left > 0) return false;
  }
  return true;
}

}  // namespace nimbo::test

void* operator new(std::size_t size) {
  void* const memory =
      nimbo::test::Refuses(nimbo::test::Resource::Memory) ? nullptr : std::malloc(size ? size : 1);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) {
  static const auto real =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  if (nimbo::test::Refuses(nimbo::test::Resource::Thread)) return EAGAIN;
  return real(thread, attributes, start, argument);
}
