#include "host/capture/Patience.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "host/capture/Monotonic.h"

namespace nimbo::capture {

std::optional<std::int64_t> ParsePatience(const std::string& text) {
  constexpr double MaxSeconds = 24 * 60 * 60;
  char* end = nullptr;
  const double seconds = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || !(seconds > 0 && seconds <= MaxSeconds)) {
    return std::nullopt;
  }
  return std::llround(seconds * static_cast<double>(NsPerSecond));
}

std::string InSeconds(std::int64_t time) {
  std::ostringstream text;
  text << static_cast<double>(time) / static_cast<double>(NsPerSecond) << " s";
  return text.str();
}

}  // namespace nimbo::capture
