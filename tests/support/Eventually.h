#pragma once

#include <chrono>
#include <thread>

namespace nimbo::test {

/// What no machine that runs these tests should need for one step.
constexpr std::chrono::seconds LongTime{60};

/// Asks until `condition` holds; false when it has not for LongTime.
template <class Condition>
bool Eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + LongTime;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace nimbo::test
