#pragma once

#include <cstdint>

#include "host/capture/ByteWindow.h"

namespace nimbo::capture::av {

constexpr std::int64_t NsPerSecond = 1'000'000'000;
constexpr std::int64_t NsPerMillisecond = 1'000'000;

/// [any] What is added to a time of CLOCK_MONOTONIC for the local time of day: nanoseconds since
/// some midnight. Taken once a process, so that the clocks of all its sources run together.
std::int64_t DayClockOffset();

}  // namespace nimbo::capture::av
