#pragma once

#include <chrono>
#include <cstdint>
#include <map>

#include "common/FileDescriptor.h"
#include "plugin/session/TcpProgress.h"
#include "sync/Mutex.h"

namespace nimbo::plugin {

/// Ends blocking socket operations that take too long, by shutting the socket down under them. One
/// thread serves the whole plug-in; it runs only while something is being watched, and sleeps while
/// nothing that is watched does anything. [any]
///
/// The watcher holds a duplicate of each socket, so that whoever owns the socket may close it at
/// any time: the number that is shut down can never have become another connection's.
class Watcher {
 public:
  using Clock = std::chrono::steady_clock;
  /// Names a watch; 0 names none.
  using Id = std::uint64_t;

  /// What a socket may take.
  struct Bounds {
    /// It is shut down then, whatever happens.
    Clock::time_point end = Clock::time_point::max();
    /// It is shut down when the other side has acknowledged nothing, and made no room, for so long;
    /// 0: never.
    std::chrono::milliseconds stall{0};
    /// The time counts only while something waits to be acknowledged, and passes unnoticed while
    /// nobody calls Active.
    bool whileWaiting = true;
    /// What was not acknowledged by then is given up, and the other side learns with its next word
    /// that the connection is gone: a server that comes to again must not hold the name for it.
    bool reset = false;
  };

  static Watcher& Global();

  /// Begins to watch `socket`. 0 when no descriptor or thread is to be had.
  Id Add(int socket, const Bounds& bounds) EXCLUDES(_mutex);
  /// Puts other bounds in place; time without an acknowledgement counts from now on.
  void Set(Id id, const Bounds& bounds) EXCLUDES(_mutex);
  /// Something is being written.
  void Active(Id id) EXCLUDES(_mutex);
  /// Whether the socket was shut down.
  bool Ended(Id id) EXCLUDES(_mutex);
  /// Ends the watch.
  void Remove(Id id) EXCLUDES(_mutex);

 private:
  struct Watch {
    FileDescriptor socket;
    Bounds bounds;
    TcpProgress progress;          ///< when it was last looked at
    Clock::time_point progressed;  ///< the last time that this had changed
    bool active;                   ///< written to since it was last looked at
    bool asleep;                   ///< not looked at until it is written to
    bool ended;
  };

  Watcher() = default;
  ~Watcher() = default;
  /// Starts Run, which waits for the lock that the caller holds. False when there is no thread.
  bool StartThread() REQUIRES(_mutex);
  void Run() EXCLUDES(_mutex);
  static void Restart(Watch& watch);
  /// Shuts down what is due and gives the time of the next look; that of "never" when there is
  /// none.
  Clock::time_point LookAtAll() REQUIRES(_mutex);
  static Clock::time_point LookAt(Watch& watch, Clock::time_point now);

  sync::Mutex _mutex;  ///< taken after a session's own lock, never held while anything blocks
  sync::Condition _changed;
  std::map<Id, Watch> _watches GUARDED_BY(_mutex);
  Id _last GUARDED_BY(_mutex) = 0;
  bool _running GUARDED_BY(_mutex) = false;
};

}  // namespace nimbo::plugin
