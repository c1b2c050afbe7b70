#include "tests/support/MovedClock.h"

#include <dlfcn.h>
#include <time.h>

#include <atomic>

namespace nimbo::test {
namespace {
std::atomic<std::time_t> s_moved{0};  ///< seconds
}

MovedClock::MovedClock(std::chrono::hours by) {
  s_moved = std::chrono::duration_cast<std::chrono::seconds>(by).count();
}

MovedClock::~MovedClock() { s_moved = 0; }

}  // namespace nimbo::test

// In front of the system's, for the program and all its libraries. Whoever computed the end of a
// wait from it would wait for an hour, or not at all, since the kernel's clock has not moved.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static const auto real =
      reinterpret_cast<decltype(&clock_gettime)>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int result = real(clock, time);
  if (clock == CLOCK_REALTIME) time->tv_sec += nimbo::test::s_moved;
  return result;
}
