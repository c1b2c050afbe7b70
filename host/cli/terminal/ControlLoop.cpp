#include "host/cli/terminal/ControlLoop.h"

#include <poll.h>

#include <algorithm>

#include "host/base/Outlet.h"
#include "host/stream/ControlQueue.h"

namespace nimbo::cli {

namespace {

/// The longest single wait; a limit that poll's milliseconds can hold.
constexpr std::chrono::hours LongestWait{1};
/// How often a reader of the standard streams that was slow is offered what is kept for it.
constexpr std::chrono::milliseconds OutletPeriod{100};

/// Milliseconds until `until`, rounded up so that the wait does not end too early.
int Remaining(Clock::time_point until) {
  const auto left = std::min<Clock::duration>(Clock::Left(until), LongestWait);
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count());
}

/// Offers what is kept to the readers of the standard streams. True when something is left.
bool StillKept() {
  bool kept = false;
  for (base::Outlet* outlet : {&base::StandardOutput(), &base::StandardError()}) {
    if (outlet->Waiting()) outlet->Flush({});
    kept = outlet->Waiting() || kept;
  }
  return kept;
}

}  // namespace

ControlLoop::Woken ControlLoop::Wait(int input, Clock::time_point until, Screen* screen,
                                     bool signals) {
  Woken woken;
  do {
    woken = WaitOrWork(input, until, screen, signals);
  } while (woken == Woken::Work);
  return woken;
}

ControlLoop::Woken ControlLoop::WaitOrWork(int input, Clock::time_point until, Screen* screen,
                                           bool signals) {
  auto& queue = stream::ControlQueue::Global();
  enum { Work, Signal, Printed, Input, Count };
  while (true) {
    // poll passes over negative descriptors.
    pollfd watched[Count] = {{queue.Descriptor(), POLLIN, 0},
                             {signals ? _signals.Descriptor() : -1, POLLIN, 0},
                             {screen ? screen->Descriptor() : -1, POLLIN, 0},
                             {input, POLLIN, 0}};
    const auto wake = StillKept() ? std::min(until, Clock::now() + OutletPeriod) : until;
    if (poll(watched, Count, Remaining(wake)) < 0) continue;
    if (watched[Printed].revents) screen->Pass();
    if (watched[Work].revents) {
      if (screen) screen->Hide();
      queue.Run();
      if (screen) screen->Show();
    }
    if (watched[Signal].revents) return _signals.Ends() ? Woken::Signal : Woken::Work;
    if (watched[Input].revents) return Woken::Input;
    if (Clock::now() >= until) return Woken::Deadline;
    if (watched[Work].revents) return Woken::Work;
  }
}

}  // namespace nimbo::cli
