#include "host/cli/terminal/SignalWatch.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <cstdint>

namespace nimbo::cli {

namespace {

/// What a shell reports for a process that a signal ended.
constexpr int ExitOfSignal = 128;

FileDescriptor BlockedSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  return FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC));
}

}  // namespace

SignalWatch::SignalWatch()
    : _signals(BlockedSignals()),
      _told(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      _end(eventfd(0, EFD_CLOEXEC)),
      _thread([this] { Watch(); }) {}

SignalWatch::~SignalWatch() {
  eventfd_write(_end.Get(), 1);
  _thread.join();
}

void SignalWatch::Watch() {
  pollfd watched[] = {{_signals.Get(), POLLIN, 0}, {_end.Get(), POLLIN, 0}};
  while (true) {
    if (poll(watched, 2, -1) < 0) continue;
    if (watched[1].revents) return;
    signalfd_siginfo info;
    if (read(_signals.Get(), &info, sizeof info) != static_cast<ssize_t>(sizeof info)) continue;
    int none = 0;
    if (!_number.compare_exchange_strong(none, static_cast<int>(info.ssi_signo)))
      _exit(ExitOfSignal + static_cast<int>(info.ssi_signo));
    eventfd_write(_told.Get(), 1);
  }
}

void SignalWatch::Forget() {
  eventfd_t count;
  eventfd_read(_told.Get(), &count);
  _number = 0;
}

}  // namespace nimbo::cli
