#pragma once

#include <semaphore.h>
#include <time.h>

#include <atomic>
#include <cerrno>
#include <chrono>

namespace nimbo::sync {

/// Wakes one thread that waits for something to change. Unlike a condition it needs no mutex: a
/// thread that comes out of a condition's wait finds its mutex marked as contended, and letting it
/// go costs one more system call. Notifying costs one when the thread waits, else none.
class Signal {
 public:
  Signal() { sem_init(&_semaphore, 0, 0); }
  ~Signal() { sem_destroy(&_semaphore); }
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  /// [any] Ends the wait under way, else the next one.
  void Notify() noexcept {
    if (!_notified.exchange(true)) sem_post(&_semaphore);
  }
  /// Waits until Notify was called since the last wait ended.
  void Wait() noexcept {
    while (sem_wait(&_semaphore) < 0 && errno == EINTR) {
    }
    _notified = false;
  }
  /// The same, up to `deadline`.
  void WaitUntil(std::chrono::steady_clock::time_point deadline) noexcept {
    constexpr std::chrono::nanoseconds::rep PerSecond = 1000000000;
    const std::chrono::nanoseconds::rep left =
        std::chrono::duration_cast<std::chrono::nanoseconds>(deadline.time_since_epoch()).count();
    timespec end = {};
    end.tv_sec = static_cast<time_t>(left / PerSecond);
    end.tv_nsec = static_cast<long>(left % PerSecond);
    int result;
    do {
      result = sem_clockwait(&_semaphore, CLOCK_MONOTONIC, &end);
    } while (result < 0 && errno == EINTR);
    if (result == 0) _notified = false;
  }

 private:
  sem_t _semaphore;
  std::atomic<bool> _notified{false};  ///< the semaphore was raised
};

}  // namespace nimbo::sync
