#include "host/capture/Monotonic.h"

#include <atomic>

#include "host/base/Clock.h"

namespace nimbo::capture {

std::int64_t MonotonicNow() {
  return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

std::int64_t ZeroOfStreams(std::int64_t began) {
  static std::atomic<std::int64_t> zero{0};
  std::int64_t none = 0;
  return zero.compare_exchange_strong(none, began) ? began : none;
}

}  // namespace nimbo::capture
