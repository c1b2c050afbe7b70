#include "host/cli/terminal/StatusLine.h"

#include <unistd.h>

#include <limits>
#include <utility>

#include "host/base/Console.h"

namespace nimbo::cli {

namespace {

constexpr std::chrono::milliseconds TerminalPeriod{500};
constexpr std::chrono::milliseconds LogPeriod{2000};
/// How often a log is told how it goes; what happens meanwhile is told as it does.
constexpr std::chrono::minutes LinePeriod{1};

}  // namespace

StatusLine::StatusLine()
    : _terminal(isatty(STDERR_FILENO) != 0),
      _screen([] { return std::string("\r\033[K"); },
              [this] { _screen.Write("\r" + _shown + "\033[K"); }) {}

StatusLine::~StatusLine() { End(); }

void StatusLine::Show(const std::string& text) {
  if (!_terminal) {
    _shown = text;
    if (const auto now = Clock::now(); now >= _next) {
      _next = now + LinePeriod;
      Note(std::exchange(_shown, {}) + "\n");
    }
    return;
  }
  // A line that is wrapped could not be rewritten.
  _shown = text.substr(0, _screen.Columns() - 1);
  _screen.Hide();
  _screen.Show();
}

void StatusLine::End() {
  if (_shown.empty()) return;
  if (!_terminal) {
    Note(std::exchange(_shown, {}) + "\n");
    return;
  }
  _screen.Hide(true);
  _screen.Write("\n");
  _shown.clear();
}

std::size_t StatusLine::Columns() const {
  return _terminal ? _screen.Columns() - 1 : std::numeric_limits<std::size_t>::max();
}

std::chrono::milliseconds StatusLine::Period() const noexcept {
  return _terminal ? TerminalPeriod : LogPeriod;
}

}  // namespace nimbo::cli
