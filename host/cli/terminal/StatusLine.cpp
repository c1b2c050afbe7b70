#include "host/cli/terminal/StatusLine.h"

#include <unistd.h>

#include "host/base/Console.h"

namespace nimbo::cli {

namespace {

constexpr std::chrono::milliseconds TerminalPeriod{500};
constexpr std::chrono::milliseconds LogPeriod{2000};

}  // namespace

StatusLine::StatusLine()
    : _terminal(isatty(STDERR_FILENO) != 0),
      _screen([] { return std::string("\r\033[K"); },
              [this] { _screen.Write("\r" + _shown + "\033[K"); }) {}

StatusLine::~StatusLine() { End(); }

void StatusLine::Show(const std::string& text) {
  if (!_terminal) {
    Note(text + "\n");
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
  _screen.Write("\n");
  _shown.clear();
}

std::chrono::milliseconds StatusLine::Period() const noexcept {
  return _terminal ? TerminalPeriod : LogPeriod;
}

}  // namespace nimbo::cli
