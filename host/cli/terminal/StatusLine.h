#pragma once

#include <chrono>
#include <string>

#include "host/base/Clock.h"
#include "host/cli/terminal/Screen.h"

namespace nimbo::cli {

/// Progress on standard error: one line that is rewritten on a terminal, else a line each minute,
/// and the last one. [control]
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
  /// How long a text may be to be seen whole.
  std::size_t Columns() const;
  /// How long a text is worth showing before the next one.
  std::chrono::milliseconds Period() const noexcept;

 private:
  bool _terminal;
  std::string _shown;  ///< on the terminal; else what was not written yet
  Clock::time_point _next{};
  Screen _screen;
};

}  // namespace nimbo::cli
