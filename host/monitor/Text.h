#pragma once

#include <cstdint>
#include <string>

#include "host/monitor/History.h"

namespace nimbo::monitor {

/// What the page asks for, as one JSON object: "start" (when this history began, which tells one
/// program from the next at the same port), "next" (the number to ask from the next time),
/// "picture", the "clients" by address, and those "samples" and "events" whose numbers are not
/// below `since`. Times are seconds since 1970; the figures of a sample count from the start.
std::string StatusJson(const History& history, std::uint64_t since, const std::string& picture);

/// The newest figures in Prometheus' text format 0.0.4.
std::string MetricsText(const History& history);
constexpr char MetricsType[] = "text/plain; version=0.0.4; charset=utf-8";

}  // namespace nimbo::monitor
