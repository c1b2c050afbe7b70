#include "host/capture/av/DayClock.h"

#include <ctime>

namespace nimbo::capture::av {

std::int64_t DayClockOffset() {
  static const std::int64_t offset = [] {
    timespec real = {};
    clock_gettime(CLOCK_REALTIME, &real);
    const std::int64_t now = MonotonicNow();
    std::tm local = {};
    localtime_r(&real.tv_sec, &local);
    const std::int64_t seconds = std::int64_t{real.tv_sec} + local.tm_gmtoff;
    return seconds * NsPerSecond + real.tv_nsec - now;
  }();
  return offset;
}

}  // namespace nimbo::capture::av
