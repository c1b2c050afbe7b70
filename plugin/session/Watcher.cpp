#include "plugin/session/Watcher.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

namespace nimbo::plugin {

Watcher& Watcher::Globle() {
  // Never destroyed: the thread may still be leaving when the process ends.
  static auto* watcher = new Watcher;
  return *watcher;
}

Watcher::Id Watcher::Add(int socket, Clock::time_point deadline) {
  const int duplicate = fcntl(socket, F_DUPFD_CLOEXEC, 0);
  if (duplicate < 0) return 0;
  const sync::Lock lock(_mutex);
  if (!_running && !StartThread()) {
    close(duplicate);
    return 0;
  }
  _watches[++_last] = {duplicate, deadline, false};
  _changed.NotifyOne();
  return _last;
}

void Watcher::Hasten(Id id, Clock::time_point deadline) {
  const sync::Lock lock(_mutex);
  const auto watch = _watches.find(id);
  if (watch == _watches.end()) return;
  watch->second.deadline = std::min(watch->second.deadline, deadline);
  _changed.NotifyOne();
}

void Watcher::Remove(Id id) {
  const sync::Lock lock(_mutex);
  const auto watch = _watches.find(id);
  if (watch == _watches.end()) return;
  close(watch->second.socket);
  _watches.erase(watch);
  if (_watches.empty()) _changed.NotifyOne();
}

bool Watcher::StartThread() {
  // The host's signals are not for this thread.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, &previous);
  try {
    std::thread([this] { Run(); }).detach();
    _running = true;
  } catch (const std::system_error&) {
    // No thread is to be had: what should be watched then ends by the socket's own time-outs.
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return _running;
}

void Watcher::Run() {
  pthread_setname_np(pthread_self(), "rtmp-watch");
  const sync::Lock lock(_mutex);
  while (!_watches.empty()) {
    const Clock::time_point next = FireDue();
    if (next == Clock::time_point::max()) {
      _changed.Wait(_mutex);
    } else {
      _changed.WaitUntil(_mutex, next);
    }
  }
  _running = false;
}

Watcher::Clock::time_point Watcher::FireDue() {
  const auto now = Clock::now();
  auto next = Clock::time_point::max();
  for (auto& [id, watch] : _watches) {
    if (watch.fired) continue;
    if (watch.deadline <= now) {
      // A socket whose connect is about to begin cannot be shut down yet.
      constexpr std::chrono::milliseconds TryAgain{20};
      watch.fired = shutdown(watch.socket, SHUT_RDWR) == 0 || errno != ENOTCONN;
      if (!watch.fired) next = std::min(next, watch.deadline = now + TryAgain);
    } else {
      next = std::min(next, watch.deadline);
    }
  }
  return next;
}

}  // namespace nimbo::plugin
