#pragma once

#include <cstdint>
#include <limits>

#include "nimbo/base/api.h"

/// Times of the host's clock, and lengths of time, in nanoseconds.

namespace nimbo::capture {

constexpr std::int64_t NsPerSecond = 1'000'000'000;
constexpr std::int64_t NsPerMillisecond = 1'000'000;
/// A time that does not come.
constexpr std::int64_t Never = std::numeric_limits<std::int64_t>::max();

/// [any] What the host's clock shows.
NIMBO_API std::int64_t MonotonicNow();

/// [any] When the first stream of this process began, which is when its time stamps begin at 0:
/// `began`, for the first one that asks.
NIMBO_API std::int64_t ZeroOfStreams(std::int64_t began);

}  // namespace nimbo::capture
