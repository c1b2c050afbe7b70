#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "host/capture/Monotonic.h"
#include "host/capture/av/Demuxer.h"

namespace nimbo::capture::av {

/// The time line of a source that goes and comes back, in nanoseconds. A source's own times are
/// those of the clock, but a camera's clock may be slow or fast by minutes after months. Here times
/// never fall, and do not jump where the source goes or comes back.
class KeptTimes {
 public:
  /// The time of a packet of the source, whose own is `own`; the clock shows `now`.
  std::int64_t Pass(Kind kind, std::int64_t own, std::int64_t now) {
    return Use(kind, own + _offset, now);
  }
  /// The time of what stands in for the source from `now` on. What is ahead of the clock is made
  /// good bit by bit.
  std::int64_t StandIn(std::int64_t now) const {
    const std::int64_t newest = Newest();
    const std::int64_t step = std::max<std::int64_t>(now - _at, 0);
    std::int64_t time = now;
    if (newest > now) time = newest + step * 9 / 10;
    if (now - step - newest > Tolerated) time = newest + step;
    return time;
  }
  /// Uses such a time for a packet of that kind.
  std::int64_t Use(Kind kind, std::int64_t time, std::int64_t now) {
    std::int64_t& last = _last[static_cast<std::size_t>(kind)];
    _at = now;
    return last = std::max(last, time);
  }
  /// The source is back: the own time of its first packet is `own`.
  void Resume(std::int64_t own) {
    const std::int64_t ahead = Newest() - _at;
    const bool kept = ahead > 0 || ahead < -Tolerated;
    _offset = std::max(kept ? ahead : 0, Newest() + NsPerMillisecond - own);
  }
  /// Of the last packet.
  std::int64_t Last(Kind kind) const { return _last[static_cast<std::size_t>(kind)]; }

 private:
  static constexpr std::int64_t Tolerated = NsPerSecond;

  std::int64_t Newest() const { return *std::ranges::max_element(_last); }

  std::array<std::int64_t, KindCount> _last{};
  std::int64_t _at = 0;  ///< when that of the last packet was asked for
  std::int64_t _offset = 0;
};

}  // namespace nimbo::capture::av
