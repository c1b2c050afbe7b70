#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>

#include "sync/Mutex.h"

namespace nimbo::stream {

/// How long to wait between attempts that fail: a second at first, twice as long each time, up to a
/// limit; each time up to a fifth longer or shorter, so that those who lost a server together do
/// not come back together. [any]
class Backoff {
 public:
  using Duration = std::chrono::nanoseconds;
  static constexpr Duration First = std::chrono::seconds(1);
  static constexpr Duration UsualLongest = std::chrono::seconds(15);

  Backoff() : Backoff(std::random_device()()) {}
  explicit Backoff(unsigned int seed) : _random(seed) {}

  /// What Next lasts at most, but for the fifth; at least First.
  void SetLongest(Duration longest) EXCLUDES(_mutex) {
    const sync::Lock lock(_mutex);
    _longest = std::max(longest, First);
  }
  /// An attempt has failed: the pause before the next one.
  Duration Next() EXCLUDES(_mutex) {
    constexpr double Jitter = 0.2;
    const sync::Lock lock(_mutex);
    const Duration pause = std::min(_next, _longest);
    _next = std::min(2 * pause, _longest);
    _failing = true;
    std::uniform_real_distribution<double> part(1 - Jitter, 1 + Jitter);
    return std::chrono::duration_cast<Duration>(pause * part(_random));
  }
  /// An attempt has succeeded.
  void Reset() EXCLUDES(_mutex) {
    if (!_failing) return;  // no need to lock
    const sync::Lock lock(_mutex);
    _next = First;
    _failing = false;
  }

 private:
  sync::Mutex _mutex;  ///< no other lock is taken under it
  std::minstd_rand _random GUARDED_BY(_mutex);
  Duration _next GUARDED_BY(_mutex) = First;
  Duration _longest GUARDED_BY(_mutex) = UsualLongest;
  std::atomic<bool> _failing{false};
};

}  // namespace nimbo::stream
