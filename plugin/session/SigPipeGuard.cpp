#include "plugin/session/SigPipeGuard.h"

#include <pthread.h>
#include <time.h>

#include <cerrno>

namespace nimbo::plugin {

namespace {

thread_local int depth = 0;
thread_local bool suspected = false;

sigset_t OnlySigPipe() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

}  // namespace

SigPipeGuard::SigPipeGuard() : _outermost(depth++ == 0) {
  if (!_outermost) return;
  suspected = false;
  const sigset_t blocked = OnlySigPipe();
  pthread_sigmask(SIG_BLOCK, &blocked, &_previous);
  if (sigismember(&_previous, SIGPIPE) == 1) {
    // Only a thread that had it blocked before can have one pending that is not ours to take.
    sigset_t pending;
    sigpending(&pending);
    _was_pending = sigismember(&pending, SIGPIPE) == 1;
  }
}

SigPipeGuard::~SigPipeGuard() {
  --depth;
  if (!_outermost) return;
  if (suspected && !_was_pending) {
    const sigset_t ours = OnlySigPipe();
    const timespec now = {0, 0};
    while (sigtimedwait(&ours, nullptr, &now) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &_previous, nullptr);
}

void SigPipeGuard::Suspect() { suspected = true; }

}  // namespace nimbo::plugin
