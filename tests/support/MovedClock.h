#pragma once

#include <chrono>

namespace nimbo::test {

/// Moves the clock of the day for the whole process, as somebody who sets it would; it is right
/// again when the object ends. For a program that exports its symbols.
class MovedClock {
 public:
  explicit MovedClock(std::chrono::hours by);
  MovedClock(const MovedClock&) = delete;
  MovedClock& operator=(const MovedClock&) = delete;
  ~MovedClock();
};

}  // namespace nimbo::test
