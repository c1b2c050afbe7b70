#include "host/capture/Monotonic.h"

#include "host/base/Clock.h"

namespace nimbo::capture {

std::int64_t MonotonicNow() {
  return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

}  // namespace nimbo::capture
