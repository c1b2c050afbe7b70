#pragma once

#include <chrono>

#include "host/base/Clock.h"
#include "host/base/ControlThread.h"
#include "host/cli/terminal/Screen.h"
#include "host/cli/terminal/SignalWatch.h"

namespace nimbo::cli {

/// How the control thread waits: it does the work that other threads leave in the control queue,
/// until something happens that the caller has to deal with. [control]
class ControlLoop {
 public:
  enum class Woken { Work, Input, Deadline, Signal };

  /// The calling thread is the control thread from now on.
  explicit ControlLoop(SignalWatch& signals) : _signals(signals) { base::ControlThread::Claim(); }

  /// Waits until `input` (negative for none) is readable or at its end, the time has come, or a
  /// signal was told, unless those are not waited for. With a screen, what is printed meanwhile
  /// appears above its last line.
  Woken Wait(int input, Clock::time_point until, Screen* screen = nullptr, bool signals = true);
  /// The same, but it also ends (Woken::Work) when work was done.
  Woken WaitOrWork(int input, Clock::time_point until, Screen* screen = nullptr,
                   bool signals = true);

  SignalWatch& Signals() noexcept { return _signals; }

 private:
  SignalWatch& _signals;
};

}  // namespace nimbo::cli
