#include "host/capture/Monotonic.h"

#include <ctime>

namespace nimbo::capture {

std::int64_t MonotonicNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * NsPerSecond + now.tv_nsec;
}

}  // namespace nimbo::capture
