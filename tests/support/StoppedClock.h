#pragma once

#include "host/base/Clock.h"

namespace nimbo::test {

/// The host's clock, moved on by hand while this lives. To be made before whoever waits.
class StoppedClock {
 public:
  StoppedClock() { Clock::StopAt(_time); }
  StoppedClock(const StoppedClock&) = delete;
  StoppedClock& operator=(const StoppedClock&) = delete;
  ~StoppedClock() { Clock::StopAt(std::nullopt); }

  void Advance(Clock::duration by) { Clock::StopAt(_time += by); }

 private:
  Clock::time_point _time = Clock::now();
};

}  // namespace nimbo::test
