#pragma once

#include <cstdint>

#include "host/capture/Monotonic.h"

namespace nimbo::capture::av {

/// [any] What is added to a time of CLOCK_MONOTONIC for the local time of day: nanoseconds since
/// some midnight. Taken once a process, so that the clocks of all its sources run together.
std::int64_t DayClockOffset();

/// How long, from each full second on, the picture flashes and the sound beeps.
constexpr std::int64_t SecondMark = 100'000'000;

}  // namespace nimbo::capture::av
