#pragma once

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

namespace nimbo::text {

/// A JSON value (RFC 8259); objects keep the order in which they were written.
using Json = nlohmann::ordered_json;

/// `value` without line breaks. What is no UTF-8 (RFC 3629) in its texts becomes U+FFFD.
inline std::string Dump(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

/// `text` with U+FFFD for what is no UTF-8.
inline std::string Utf8(const std::string& text) {
  return Json::parse(Dump(text)).get<std::string>();
}

/// A time in seconds, to the millisecond: no JSON holds more digits than tell something.
inline double Milliseconds(double seconds) {
  constexpr double PerSecond = 1e3;
  return std::round(seconds * PerSecond) / PerSecond;
}

}  // namespace nimbo::text
