#pragma once

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <cerrno>

namespace nimbo {

/// Keeps SIGPIPE from the calling thread while something is written that cannot be written with
/// MSG_NOSIGNAL: blocks it, takes away one that a failed write raised, and restores the thread's
/// mask. The process's signal settings are not touched. Guards nest: only the outermost one of a
/// thread makes system calls, two when nothing failed.
class SigPipeGuard {
 public:
  SigPipeGuard() : _outermost(_depth++ == 0) {
    if (!_outermost) return;
    _suspected = false;
    const sigset_t blocked = OnlySigPipe();
    pthread_sigmask(SIG_BLOCK, &blocked, &_previous);
    if (sigismember(&_previous, SIGPIPE) == 1) {
      // Only a thread that had it blocked before can have one pending that is not ours to take.
      sigset_t pending;
      sigpending(&pending);
      _was_pending = sigismember(&pending, SIGPIPE) == 1;
    }
  }
  SigPipeGuard(const SigPipeGuard&) = delete;
  SigPipeGuard& operator=(const SigPipeGuard&) = delete;
  ~SigPipeGuard() {
    --_depth;
    if (!_outermost) return;
    if (_suspected && !_was_pending) {
      const sigset_t ours = OnlySigPipe();
      const timespec now = {0, 0};
      while (sigtimedwait(&ours, nullptr, &now) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &_previous, nullptr);
  }

  /// To be called after a write that may have failed.
  static void Suspect() { _suspected = true; }

 private:
  static sigset_t OnlySigPipe() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
  }

  static inline thread_local int _depth = 0;
  static inline thread_local bool _suspected = false;

  bool _outermost;
  bool _was_pending = false;
  sigset_t _previous = {};
};

}  // namespace nimbo
