#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

#include "host/base/Clock.h"
#include "host/publication/ClientFigures.h"

namespace nimbo::publication {

/// Decides with how many bits a second a source is to be encoded, by what its link does. It knows
/// no clock and no thread: times are given, and the same samples lead to the same decisions.
///
/// What stands in a queue for longer than bursts explain is too much: then the link is full, what
/// is acknowledged is what it holds, and the rate falls to a part of that, lower still until the
/// queue is gone. Where nothing queues the rate grows step by step; it stays a little below what
/// the link held last, and only now and then tries whether it holds more.
class RateControl {
 public:
  using Time = Clock::time_point;

  /// The rate stays between `least` and `most`, with which it begins.
  RateControl(double least, double most) : _least(least), _most(most), _rate(most) {}

  /// Takes what is seen of the link, some times a second; times never go back.
  void Add(Time time, const LinkFigures& link);
  /// Bits a second that are wanted now.
  double BitRate() const noexcept { return _rate; }

 private:
  struct Sample {
    Time time;
    std::uint64_t acknowledged;
    double delay;  ///< ms, without the way there and back
  };

  bool Congested() const;
  double LeastDelay() const;
  /// Bits a second that were acknowledged of late.
  double Acknowledged() const;
  void Yield(Time now, double unsent);
  void Raise(Time now);
  void Want(double rate);

  const double _least;
  const double _most;
  double _rate;
  std::deque<Sample> _samples;  ///< of the last second
  double _round_trip = 0;       ///< ms: the shortest one seen
  double _held = 0;             ///< bits a second that a full link took last; 0: not known
  bool _draining = false;       ///< what is queued is to go first
  Time _yield_next{};           ///< the rate does not fall again before
  Time _raise_next{};           ///< nor grow
  std::chrono::milliseconds _patience = FirstPatience;  ///< before it is tried whether more goes

  static constexpr std::chrono::seconds FirstPatience{10};
};

}  // namespace nimbo::publication
