#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "host/base/Clock.h"

namespace nimbo::publication {

/// The bit rate over the last seconds, of a count of bytes that only grows.
class RateMeter {
 public:
  using Time = Clock::time_point;
  /// Takes the count at a time; times never go back.
  void Add(Time time, std::uint64_t bytes);
  /// Bits per second between the oldest and the newest count of the last Window; 0 before the
  /// second one.
  double BitsPerSecond() const;

  static constexpr std::chrono::seconds Window{3};

 private:
  std::deque<std::pair<Time, std::uint64_t>> _counts;
};

/// "5.87 Mbit/s", "64 kbit/s"
std::string BitRateText(double bitsPerSecond);

}  // namespace nimbo::publication
