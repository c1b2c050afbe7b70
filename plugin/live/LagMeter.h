#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <utility>

#include "plugin/session/TcpProgress.h"
#include "sync/Mutex.h"

namespace nimbo::plugin::live {

/// How late the server is: the time since which what it acknowledges next has been written. [any]
class LagMeter {
 public:
  using Clock = std::chrono::steady_clock;

  /// Another connection begins: its counts start anew.
  void Restart() EXCLUDES(_mutex) {
    const sync::Lock lock(_mutex);
    _written.clear();
  }
  /// Something has been written. Notes it, a few times a second.
  template <class Progress>
  void Wrote(Clock::time_point now, Progress progress) EXCLUDES(_mutex) {
    constexpr std::chrono::milliseconds Step{100};
    const sync::Lock lock(_mutex);
    if (!_written.empty() && now - _written.back().first < Step) return;
    const TcpProgress made = progress();
    _written.emplace_back(now, made.acknowledged + made.outstanding);
    Forget(made);
  }
  /// Milliseconds.
  int Lag(Clock::time_point now, const TcpProgress& progress) EXCLUDES(_mutex) {
    const sync::Lock lock(_mutex);
    Forget(progress);
    if (_written.empty() || progress.outstanding == 0) return 0;
    const auto age = now - _written.front().first;
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(age).count());
  }

 private:
  /// All notes that the server has acknowledged.
  void Forget(const TcpProgress& progress) REQUIRES(_mutex) {
    while (!_written.empty() && _written.front().second <= progress.acknowledged) {
      _written.pop_front();
    }
  }

  sync::Mutex _mutex;
  std::deque<std::pair<Clock::time_point, std::uint64_t>> _written GUARDED_BY(_mutex);
};

}  // namespace nimbo::plugin::live
