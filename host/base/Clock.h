#pragma once

#include <chrono>
#include <optional>

#include "nimbo/base/api.h"

namespace nimbo {

/// The host's one clock: CLOCK_MONOTONIC, of which the time stamps of packets are, too. Whoever
/// waits for a time sleeps until WakeAt and asks again, so that a test may move the clock on
/// instead of waiting. [any]
class NIMBO_API Clock {
 public:
  using duration = std::chrono::steady_clock::duration;
  using time_point = std::chrono::steady_clock::time_point;

  static time_point now() noexcept;
  /// Until when, as the system counts, a thread may sleep that waits for `due`.
  static time_point WakeAt(time_point due) noexcept;
  /// How long it may sleep; 0 when the time has come.
  static duration Left(time_point due) noexcept;

  /// Stops the clock of the whole process at a time, or has it show the system's again. Waits that
  /// begin while it is stopped notice a new time within a millisecond.
  static void StopAt(std::optional<time_point> time) noexcept;
};

}  // namespace nimbo
