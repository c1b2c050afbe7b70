#include "host/publication/RateMeter.h"

#include <fmt/format.h>

namespace nimbo::publication {

namespace {

constexpr double Kilo = 1e3;
constexpr double Mega = 1e6;
constexpr double BitsPerByte = 8;

}  // namespace

void RateMeter::Add(Time time, std::uint64_t bytes) {
  _counts.emplace_back(time, bytes);
  while (_counts.size() > 2 && time - _counts.front().first > Window) _counts.pop_front();
}

double RateMeter::BitsPerSecond() const {
  if (_counts.size() < 2) return 0;
  const std::chrono::duration<double> span = _counts.back().first - _counts.front().first;
  const auto bytes = _counts.back().second - _counts.front().second;
  return span.count() > 0 ? BitsPerByte * static_cast<double>(bytes) / span.count() : 0;
}

std::string BitRateText(double bitsPerSecond) {
  return bitsPerSecond >= Mega ? fmt::format("{:.2f} Mbit/s", bitsPerSecond / Mega)
                               : fmt::format("{:.0f} kbit/s", bitsPerSecond / Kilo);
}

}  // namespace nimbo::publication
