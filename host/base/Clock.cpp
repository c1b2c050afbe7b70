#include "host/base/Clock.h"

#include <algorithm>
#include <atomic>

namespace nimbo {

namespace {

using System = std::chrono::steady_clock;

constexpr std::chrono::milliseconds LookPeriod{1};

/// Where the clock stands that was stopped.
std::atomic<bool> s_stopped{false};
std::atomic<System::time_point> s_time{};

}  // namespace

Clock::time_point Clock::now() noexcept { return s_stopped ? s_time.load() : System::now(); }

Clock::time_point Clock::WakeAt(time_point due) noexcept {
  return s_stopped ? System::now() + LookPeriod : due;
}

Clock::duration Clock::Left(time_point due) noexcept {
  const duration left = std::max(due - now(), duration());
  return s_stopped ? std::min<duration>(left, LookPeriod) : left;
}

void Clock::StopAt(std::optional<time_point> time) noexcept {
  if (time) s_time = *time;
  s_stopped = time.has_value();
}

}  // namespace nimbo
