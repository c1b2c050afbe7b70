#pragma once

#include <chrono>
#include <deque>
#include <string>

#include "host/cli/terminal/Screen.h"

namespace nimbo::cli {

/// The bit rate over the last seconds, of a count of bytes that only grows.
class RateMeter {
 public:
  using Time = std::chrono::steady_clock::time_point;
  /// Takes the count at a time; times never go back.
  void Add(Time time, std::uint64_t bytes);
  /// Bits per second between the oldest and the newest count of the last Window; 0 before the
  /// second one.
  double BitsPerSecond() const;

  static constexpr std::chrono::seconds Window{3};

 private:
  std::deque<std::pair<Time, std::uint64_t>> _counts;
};

/// "5.87 Mbit/s", "64 kbit/s"
std::string BitRateText(double bitsPerSecond);

/// Progress on standard error: one line that is rewritten on a terminal, else a line every few
/// seconds. [control]
class StatusLine {
 public:
  StatusLine();
  ~StatusLine();
  /// Shows `text` from now on.
  void Show(const std::string& text);
  /// Leaves the last text where it is.
  void End();

  /// For ControlLoop::Wait; null when there is no terminal.
  Screen* Terminal() noexcept { return _terminal ? &_screen : nullptr; }
  /// How long a text is worth showing before the next one.
  std::chrono::milliseconds Period() const noexcept;

 private:
  bool _terminal;
  std::string _shown;
  Screen _screen;
};

}  // namespace nimbo::cli
