#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

/// The standard locks, at no cost, in a form that clang's thread-safety analysis knows: it refuses
/// code that uses what a mutex guards without holding it, that locks twice, or in the wrong order
/// (-Wthread-safety -Wthread-safety-beta). To other compilers the attributes are nothing.

#ifdef __clang__
#define THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define THREAD_SAFETY(attribute)
#endif

/// Of data: used only while the mutex is held.
#define GUARDED_BY(mutex) THREAD_SAFETY(guarded_by(mutex))
/// Of a mutex: where both are held, it was taken first.
#define ACQUIRED_BEFORE(...) THREAD_SAFETY(acquired_before(__VA_ARGS__))
/// Of a function: its caller holds the mutex; its caller does not, because it is taken inside.
#define REQUIRES(...) THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) THREAD_SAFETY(locks_excluded(__VA_ARGS__))

namespace nimbo::sync {

class THREAD_SAFETY(capability("mutex")) Mutex {
 public:
  constexpr Mutex() noexcept = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

 private:
  friend class Lock;
  friend class Unlock;
  friend class Condition;
  std::mutex _mutex;
};

/// Holds a mutex for a scope.
class THREAD_SAFETY(scoped_lockable) Lock {
 public:
  explicit Lock(Mutex& mutex) THREAD_SAFETY(acquire_capability(mutex)) : _guard(mutex._mutex) {}
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() THREAD_SAFETY(release_capability()) = default;

 private:
  std::lock_guard<std::mutex> _guard;
};

/// Lets go of a mutex that is held, for a scope inside that of its Lock.
class THREAD_SAFETY(scoped_lockable) Unlock {
 public:
  explicit Unlock(Mutex& mutex) THREAD_SAFETY(release_capability(mutex)) : _mutex(mutex._mutex) {
    _mutex.unlock();
  }
  Unlock(const Unlock&) = delete;
  Unlock& operator=(const Unlock&) = delete;
  ~Unlock() THREAD_SAFETY(release_capability()) { _mutex.lock(); }

 private:
  std::mutex& _mutex;
};

/// What threads wait for that hold a mutex. Waits may end without a reason, so they stand in a loop
/// that tests what is waited for.
class Condition {
 public:
  void Wait(Mutex& mutex) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex._mutex, std::adopt_lock);
    _condition.wait(held);
    held.release();
  }
  /// False when the deadline has passed.
  bool WaitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex._mutex, std::adopt_lock);
    const bool inTime = _condition.wait_until(held, deadline) == std::cv_status::no_timeout;
    held.release();
    return inTime;
  }
  void NotifyOne() noexcept { _condition.notify_one(); }
  void NotifyAll() noexcept { _condition.notify_all(); }

 private:
  std::condition_variable _condition;
};

}  // namespace nimbo::sync
