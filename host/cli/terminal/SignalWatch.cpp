#include "host/cli/terminal/SignalWatch.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <cstdint>

#include "host/base/Outlet.h"

namespace nimbo::cli {

namespace {

/// What a shell reports for a process that a signal ended.
constexpr int ExitOfSignal = 128;

FileDescriptor BlockedSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGUSR1);
  struct sigaction hangUp = {};
  sigaction(SIGHUP, nullptr, &hangUp);
  if (hangUp.sa_handler != SIG_IGN) sigaddset(&set, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  return FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC));
}

/// Without these, nothing could end the program in order.
FileDescriptor Needed(FileDescriptor made) {
  constexpr int Failed = 1;
  if (made) return made;
  base::StandardError().Write("nimbo-host: no descriptor is left to wait for signals with\n");
  base::StandardError().Flush(base::LastPatience);
  _exit(Failed);
}

}  // namespace

SignalWatch::SignalWatch(std::chrono::milliseconds patience)
    : _patience(patience),
      _signals(Needed(BlockedSignals())),
      _told(Needed(FileDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))),
      _end(Needed(FileDescriptor(eventfd(0, EFD_CLOEXEC)))),
      _thread([this] { Watch(); }) {}

SignalWatch::~SignalWatch() {
  eventfd_write(_end.Get(), 1);
  _thread.join();
}

void SignalWatch::Watch() {
  pollfd watched[] = {{_signals.Get(), POLLIN, 0}, {_end.Get(), POLLIN, 0}};
  while (true) {
    const int told = _number;
    const int ready = poll(watched, 2, told ? static_cast<int>(_patience.count()) : -1);
    if (ready < 0) continue;
    if (watched[1].revents) return;
    if (ready == 0) {
      if (_number != told) continue;  // it was dealt with
      base::StandardError().Write("nimbo-host: it has not ended in time after a signal\n");
      _exit(ExitOfSignal + told);
    }
    signalfd_siginfo info;
    if (read(_signals.Get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) continue;
    if (info.ssi_signo == SIGUSR1) {
      _reload = true;
      eventfd_write(_told.Get(), 1);
      continue;
    }
    int none = 0;
    if (!_number.compare_exchange_strong(none, static_cast<int>(info.ssi_signo)))
      _exit(ExitOfSignal + static_cast<int>(info.ssi_signo));
    base::Outlet::Hurry(true);
    eventfd_write(_told.Get(), 1);
  }
}

bool SignalWatch::Ends() {
  if (_number) return true;
  eventfd_t count;
  eventfd_read(_told.Get(), &count);
  if (!_number) return false;
  eventfd_write(_told.Get(), 1);  // its own may have been read
  return true;
}

void SignalWatch::Forget() {
  eventfd_t count;
  eventfd_read(_told.Get(), &count);
  base::Outlet::Hurry(false);
  _number = 0;
}

}  // namespace nimbo::cli
