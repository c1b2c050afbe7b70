#include "plugin/session/Watcher.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

namespace nimbo::plugin {

Watcher& Watcher::Global() {
  // Never destroyed: the thread may still be leaving when the process ends.
  static auto* watcher = new Watcher;
  return *watcher;
}

Watcher::Id Watcher::Add(int socket, const Bounds& bounds) {
  FileDescriptor duplicate(fcntl(socket, F_DUPFD_CLOEXEC, 0));
  if (!duplicate) return 0;
  const sync::Lock lock(_mutex);
  try {
    Watch watch = {std::move(duplicate), bounds, {}, {}, true, false, false};
    Restart(watch);
    _watches.emplace(_last + 1, std::move(watch));
  } catch (const std::bad_alloc&) {
    return 0;
  }
  ++_last;
  if (!_running && !StartThread()) {
    _watches.erase(_last);
    return 0;
  }
  _changed.NotifyOne();
  return _last;
}

void Watcher::Set(Id id, const Bounds& bounds) {
  const sync::Lock lock(_mutex);
  const auto found = _watches.find(id);
  if (found == _watches.end()) return;
  found->second.bounds = bounds;
  Restart(found->second);
  _changed.NotifyOne();
}

void Watcher::Active(Id id) {
  const sync::Lock lock(_mutex);
  const auto found = _watches.find(id);
  if (found == _watches.end()) return;
  found->second.active = true;
  if (!found->second.asleep) return;
  Restart(found->second);
  _changed.NotifyOne();
}

bool Watcher::Ended(Id id) {
  const sync::Lock lock(_mutex);
  const auto found = _watches.find(id);
  return found != _watches.end() && found->second.ended;
}

void Watcher::Remove(Id id) {
  const sync::Lock lock(_mutex);
  const auto found = _watches.find(id);
  if (found == _watches.end()) return;
  _watches.erase(found);
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
    // No thread is to be had.
  } catch (const std::bad_alloc&) {
    // Nor memory for one.
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  return _running;
}

void Watcher::Run() {
  pthread_setname_np(pthread_self(), "rtmp-watch");
  const sync::Lock lock(_mutex);
  while (!_watches.empty()) {
    const Clock::time_point next = LookAtAll();
    if (next == Clock::time_point::max()) {
      _changed.Wait(_mutex);
    } else {
      _changed.WaitUntil(_mutex, next);
    }
  }
  _running = false;
}

void Watcher::Restart(Watch& watch) {
  watch.progress = watch.bounds.stall.count() ? TcpProgress::Of(watch.socket.Get()) : TcpProgress();
  watch.progressed = Clock::now();
  watch.asleep = false;
}

Watcher::Clock::time_point Watcher::LookAtAll() {
  const auto now = Clock::now();
  auto next = Clock::time_point::max();
  for (auto& [id, watch] : _watches) {
    if (!watch.ended) next = std::min(next, LookAt(watch, now));
  }
  return next;
}

Watcher::Clock::time_point Watcher::LookAt(Watch& watch, Clock::time_point now) {
  const Bounds& bounds = watch.bounds;
  auto due = bounds.end;
  auto next = due;
  if (bounds.stall.count() > 0) {
    // Looked at often enough that a stall is noticed soon after its time.
    constexpr int LooksPerStall = 10;
    const TcpProgress progress = TcpProgress::Of(watch.socket.Get());
    const bool waits = progress.waiting || !bounds.whileWaiting;
    if (!waits || progress.acknowledged != watch.progress.acknowledged ||
        progress.promised != watch.progress.promised) {
      watch.progressed = now;
    }
    watch.progress = progress;
    due = std::min(due, watch.progressed + bounds.stall);
    watch.asleep = !waits && !watch.active;
    watch.active = false;
    if (!watch.asleep) next = std::min({next, due, now + bounds.stall / LooksPerStall});
  }
  if (due > now) return next;
  if (bounds.reset) {
    const linger atOnce = {1, 0};
    setsockopt(watch.socket.Get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  }
  // A socket whose connect is about to begin cannot be shut down yet.
  constexpr std::chrono::milliseconds TryAgain{20};
  watch.ended = shutdown(watch.socket.Get(), SHUT_RDWR) == 0 || errno != ENOTCONN;
  return watch.ended ? Clock::time_point::max() : now + TryAgain;
}

}  // namespace nimbo::plugin
