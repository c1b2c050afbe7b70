#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "nimbo/base/ostream.h"
#include "sync/Mutex.h"

namespace nimbo::base {
namespace {

/// Keeps SIGPIPE from the calling thread for a scope. One that the scope itself raised is taken
/// away again; the process-wide handling is not touched.
class SigpipeBlock {
 public:
  SigpipeBlock() {
    sigemptyset(&_pipe);
    sigaddset(&_pipe, SIGPIPE);
    sigset_t pending;
    _was_pending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &_pipe, &_before);
  }
  SigpipeBlock(const SigpipeBlock&) = delete;
  SigpipeBlock& operator=(const SigpipeBlock&) = delete;
  ~SigpipeBlock() {
    const timespec now = {};
    if (!_was_pending) {
      while (sigtimedwait(&_pipe, nullptr, &now) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &_before, nullptr);
  }

 private:
  sigset_t _pipe;
  sigset_t _before;
  bool _was_pending;
};

/// One write, and more only for what a full pipe or an interruption has left. What a closed reader
/// does not take is dropped: a console that has gone must not end the process.
void WriteWhole(int file, const char* text, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, text, size);
    if (written >= 0) {
      text += written;
      size -= static_cast<std::size_t>(written);
    } else if (errno == EAGAIN) {
      pollfd room = {file, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return;
    }
  }
}

class Console final : public ostream {
 public:
  constexpr Console() noexcept = default;

  void Write(const char* text, std::size_t size) override {
    const sync::Lock lock(_mutex);
    const SigpipeBlock block;
    std::fflush(stdout);  // what was printed with the C library comes first
    WriteWhole(STDOUT_FILENO, text, size);
  }

 private:
  sync::Mutex _mutex;  ///< held while a text is written
};

/// Ready before the first static initialiser and never destroyed, because lines are written before
/// main and while the process ends.
union EternalConsole {
  constexpr EternalConsole() : console() {}
  ~EternalConsole() {}  // NOLINT(modernize-use-equals-default): that would be a deleted one
  Console console;
};
EternalConsole eternal;

}  // namespace

ostream& cout = eternal.console;

extern "C" {
int __root_path_offset = sizeof(NIMBO_SOURCE_ROOT) - 1;
}

}  // namespace nimbo::base
