#pragma once

#include <chrono>

#include "host/base/Clock.h"

namespace nimbo::stream {

/// Tells when a reader is so late that it should go on at the newest key frame: when the packet
/// that goes next has waited for longer than the limit; or for longer than half of it, where that
/// has lasted, so that the delay is the link's and no hiccup: for the limit, or where the delay has
/// grown meanwhile for a quarter of it. Whoever was late once is held to half the limit until it
/// has kept it for a while: on a link that stays too slow as many pictures are lost either way, and
/// fewer at a time come sooner.
class LagJudge {
 public:
  bool IsLate(Clock::time_point now, std::chrono::nanoseconds lag, std::chrono::nanoseconds limit) {
    constexpr std::chrono::seconds Remembered{10};
    if (lag <= limit / 2) {
      _behind_since = Clock::time_point::max();
      return false;
    }
    if (_behind_since > now) {
      _behind_since = now;
      _lag_then = lag;
    }
    const auto lasting = lag > _lag_then ? limit / 4 : limit;
    if (lag <= limit && now >= _slow_until && now - _behind_since <= lasting) return false;
    _slow_until = now + Remembered;
    return true;
  }

 private:
  /// Since when the lag is above half the limit; the end of time: it is not.
  Clock::time_point _behind_since = Clock::time_point::max();
  std::chrono::nanoseconds _lag_then{0};  ///< when that began
  Clock::time_point _slow_until;
};

}  // namespace nimbo::stream
