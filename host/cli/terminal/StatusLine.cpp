#include "host/cli/terminal/StatusLine.h"

#include <unistd.h>

#include <array>
#include <cstdio>

#include "common/WriteAll.h"

namespace nimbo::cli {

namespace {

constexpr std::chrono::milliseconds TerminalPeriod{500};
constexpr std::chrono::milliseconds LogPeriod{2000};
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
  std::array<char, 32> text{};
  if (bitsPerSecond >= Mega)
    std::snprintf(text.data(), text.size(), "%.2f Mbit/s", bitsPerSecond / Mega);
  else
    std::snprintf(text.data(), text.size(), "%.0f kbit/s", bitsPerSecond / Kilo);
  return text.data();
}

StatusLine::StatusLine()
    : _terminal(isatty(STDERR_FILENO) != 0),
      _screen([] { return std::string("\r\033[K"); },
              [this] { WriteAll(_screen.Terminal(), "\r" + _shown + "\033[K"); }) {}

StatusLine::~StatusLine() { End(); }

void StatusLine::Show(const std::string& text) {
  if (!_terminal) {
    WriteAll(STDERR_FILENO, text + "\n");
    return;
  }
  // A line that is wrapped could not be rewritten.
  _shown = text.substr(0, _screen.Columns() - 1);
  _screen.Hide();
  _screen.Show();
}

void StatusLine::End() {
  if (!_terminal || _shown.empty()) return;
  _screen.Hide(true);
  WriteAll(_screen.Terminal(), "\n");
  _shown.clear();
}

std::chrono::milliseconds StatusLine::Period() const noexcept {
  return _terminal ? TerminalPeriod : LogPeriod;
}

}  // namespace nimbo::cli
