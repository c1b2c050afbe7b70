#include "host/base/Outlet.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <stdio_ext.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include "common/FileDescriptor.h"
#include "common/SigPipeGuard.h"
#include "host/base/Clock.h"

namespace nimbo::base {
namespace {

/// Bytes that are kept for a reader.
constexpr std::size_t MostKept = std::size_t{64} * 1024;
/// How often it is looked whether somebody is in a hurry meanwhile.
constexpr std::chrono::milliseconds LookPeriod{100};

std::atomic<bool> s_hurry{false};
thread_local bool t_never_waits = false;

bool MayWait() { return !t_never_waits && !s_hurry.load(std::memory_order_relaxed); }

bool HasRoom(int descriptor, std::chrono::milliseconds patience) {
  pollfd room = {descriptor, POLLOUT, 0};
  return poll(&room, 1, static_cast<int>(patience.count())) > 0;
}

/// As write(), but it fails with EAGAIN instead of waiting for a reader.
ssize_t WriteNow(int descriptor, std::string_view text) {
  struct stat status = {};
  if (fstat(descriptor, &status) != 0) return -1;
  if (S_ISSOCK(status.st_mode)) {
    return send(descriptor, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  }
  if (!S_ISFIFO(status.st_mode) && isatty(descriptor) == 0) {
    return write(descriptor, text.data(), text.size());
  }
  // A description of our own: the flags of the one that was inherited are other processes', too.
  char path[32];
  std::snprintf(path, sizeof path, "/proc/self/fd/%d", descriptor);
  const FileDescriptor own(open(path, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (own) return write(own.Get(), text.data(), text.size());
  // It was inherited from another user: where there is room, a small piece fits.
  if (!HasRoom(descriptor, {})) {
    errno = EAGAIN;
    return -1;
  }
  return write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

/// Writes what there is room for and takes it off `text`. False when the reader has gone.
bool Take(int descriptor, std::string_view& text) {
  while (!text.empty()) {
    const ssize_t written = WriteNow(descriptor, text);
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      if (errno == EAGAIN) return true;
      SigPipeGuard::Suspect();
      return false;
    }
  }
  return true;
}

/// What the C library still holds of standard output.
void FlushPrinted(int descriptor) {
  if (descriptor != STDOUT_FILENO || __fpending(stdout) == 0) return;
  if (!MayWait() && !HasRoom(descriptor, {})) return;
  if (std::fflush(stdout) != 0) SigPipeGuard::Suspect();
}

}  // namespace

namespace {

/// Whether colours are unwanted, as programs agree to be told: https://no-color.org.
bool Plain() {
  static const bool plain = [] {
    const char* set = std::getenv("NO_COLOR");
    return set && *set;
  }();
  return plain;
}

/// `text` without its colours ("ESC [ NUMBERS m").
std::string WithoutColours(std::string_view text) {
  constexpr std::string_view Begin = "\033[";
  std::string plain;
  for (auto at = text.find(Begin); at != std::string_view::npos; at = text.find(Begin)) {
    const auto end = text.find_first_not_of("0123456789;", at + Begin.size());
    const bool colour = end != std::string_view::npos && text[end] == 'm';
    plain += text.substr(0, colour ? at : at + 1);
    text.remove_prefix(colour ? end + 1 : at + 1);
  }
  return plain.append(text);
}

}  // namespace

void Outlet::NeverWaitHere() noexcept { t_never_waits = true; }

void Outlet::Hurry(bool on) noexcept { s_hurry.store(on, std::memory_order_relaxed); }

bool Outlet::Write(std::string_view text) {
  // A reader that has gone must not end the process.
  const SigPipeGuard guard;
  FlushPrinted(_descriptor);
  const std::string plain = Plain() ? WithoutColours(text) : std::string();
  if (Plain()) text = plain;
  while (true) {
    const bool waits = MayWait();
    {
      const sync::Lock lock(_mutex);
      if (!(text.empty() ? Pass() : Add(std::exchange(text, {}), waits))) return false;
      if (_kept.empty() || !waits) return true;
    }
    HasRoom(_descriptor, LookPeriod);
  }
}

bool Outlet::Pass() {
  while (true) {
    std::string_view kept = _kept;
    const bool there = Take(_descriptor, kept);
    _kept.erase(0, there ? _kept.size() - kept.size() : std::string::npos);
    if (!there) _dropped = 0;
    if (_dropped == 0 || _kept.size() >= MostKept / 2) return there;
    if (_tells) {
      _kept += "\033[33m" + std::to_string(_dropped) +
               " lines are missing here: nobody read them\n\033[0m";
    }
    _dropped = 0;
  }
}

bool Outlet::Add(std::string_view text, bool waits) {
  if (!Pass()) return false;
  if (_dropped > 0 || (!waits && _kept.size() + text.size() > MostKept)) {
    ++_dropped;
  } else if (!_kept.empty()) {
    _kept += text;
  } else if (Take(_descriptor, text)) {
    _kept = text;
  } else {
    return false;
  }
  return true;
}

void Outlet::Flush(std::chrono::milliseconds patience) {
  const SigPipeGuard guard;
  for (const auto end = Clock::now() + patience;;) {
    {
      const sync::Lock lock(_mutex);
      if (!Pass() || _kept.empty()) return;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0) return;
    HasRoom(_descriptor, std::min(left, LookPeriod));
  }
}

bool Outlet::Waiting() {
  const sync::Lock lock(_mutex);
  return !_kept.empty() || _dropped > 0;
}

namespace {

/// Never destroyed, because lines are written while the process ends.
union Eternal {
  explicit Eternal(int descriptor) : outlet(descriptor) {}
  ~Eternal() {}  // NOLINT(modernize-use-equals-default): that would be a deleted one
  Outlet outlet;
};

}  // namespace

Outlet& StandardOutput() noexcept {
  static Eternal output(STDOUT_FILENO);
  return output.outlet;
}

Outlet& StandardError() noexcept {
  static Eternal error(STDERR_FILENO);
  return error.outlet;
}

}  // namespace nimbo::base
