#pragma once

#include <string>

namespace nimbo::stream {

/// The path of the `number`th recording, counted from 1: "-2", "-3", ... stand in front of its
/// suffix from the second one on.
std::string NumberedPath(const std::string& path, int number);

/// `pattern` with the time of day put in (strftime's conversions), numbered where there is such a
/// file already.
std::string FreePath(const std::string& pattern);

}  // namespace nimbo::stream
