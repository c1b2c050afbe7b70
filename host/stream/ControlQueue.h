#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "nimbo/base/api.h"

namespace nimbo::stream {

/// Work that other threads leave for the control thread, done in order. Whoever runs the control
/// thread calls Run (or RunFor, while it has nothing else to do).
class NIMBO_API ControlQueue {
 public:
  static ControlQueue& Globle();

  /// [any] Leaves work. It must not refer to objects that may be gone when it runs.
  void Post(std::function<void()> work);
  /// [control] Does what has been posted so far. Returns how many pieces that were.
  int Run();
  /// [control] Does what is posted until `duration` is over or Interrupt was called.
  void RunFor(std::chrono::nanoseconds duration);
  /// [any] Ends a RunFor, or the next one. To be called from another thread, not a signal handler.
  void Interrupt();
  /// [any] A descriptor that is readable while work is waiting, for use with poll.
  int Descriptor() const noexcept { return _event; }

 private:
  ControlQueue();
  ~ControlQueue();
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::function<void()>> _work;
  bool _interrupted = false;
  int _event;
};

}  // namespace nimbo::stream
