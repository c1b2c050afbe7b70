#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "nimbo/base/api.h"

/// How long an input may take to its first frame: one that stays silent must not hold up the
/// control thread for ever.

namespace nimbo::capture {

/// In nanoseconds, unless the input's option `wait` says otherwise.
constexpr std::int64_t FirstFramePatience = 10'000'000'000;

/// [any] Reads such a time from a text in seconds, such as "2.5". Nothing when it is none, or more
/// than a day.
NIMBO_API std::optional<std::int64_t> ParsePatience(const std::string& text);
/// [any] A time in nanoseconds as a text such as "2.5 s".
NIMBO_API std::string InSeconds(std::int64_t time);

}  // namespace nimbo::capture
