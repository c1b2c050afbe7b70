#pragma once

#include <chrono>
#include <cstdint>
#include <map>

#include "sync/Mutex.h"

namespace nimbo::plugin {

/// Ends blocking socket operations that take too long, by shutting the socket down under them. One
/// thread serves the whole plug-in; it runs only while something is being watched. [any]
///
/// The watcher holds a duplicate of each socket, so that whoever owns the socket may close it at
/// any time: the number that is shut down can never have become another connection's.
class Watcher {
 public:
  using Clock = std::chrono::steady_clock;
  /// Names a watch; 0 names none.
  using Id = std::uint64_t;

  static Watcher& Globle();

  /// Shuts `socket` down at `deadline` unless Remove comes first. 0 when no descriptor is to be
  /// had.
  Id Add(int socket, Clock::time_point deadline) EXCLUDES(_mutex);
  /// Brings the deadline forward; a later one than before changes nothing.
  void Hasten(Id id, Clock::time_point deadline) EXCLUDES(_mutex);
  /// Ends the watch.
  void Remove(Id id) EXCLUDES(_mutex);

 private:
  struct Watch {
    int socket;
    Clock::time_point deadline;
    bool fired;
  };

  Watcher() = default;
  ~Watcher() = default;
  /// Starts Run, which waits for the lock that the caller holds. False when there is no thread.
  bool StartThread() REQUIRES(_mutex);
  void Run() EXCLUDES(_mutex);
  /// Shuts down what is due and gives the next deadline; that of "never" when there is none.
  Clock::time_point FireDue() REQUIRES(_mutex);

  sync::Mutex _mutex;  ///< taken after a session's own lock, never held while anything blocks
  sync::Condition _changed;
  std::map<Id, Watch> _watches GUARDED_BY(_mutex);
  Id _last GUARDED_BY(_mutex) = 0;
  bool _running GUARDED_BY(_mutex) = false;
};

}  // namespace nimbo::plugin
