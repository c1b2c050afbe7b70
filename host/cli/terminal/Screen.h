#pragma once

#include <functional>
#include <string>

#include "common/FileDescriptor.h"
#include "host/base/Outlet.h"

namespace nimbo::cli {

/// Keeps the last line of a terminal (a prompt, a status) whole while other threads print. While
/// it is shown, standard output and standard error lead into a pipe; what arrives there is written
/// above the line. [control], except that any thread may print.
class Screen {
 public:
  /// `erase` returns the control sequence that removes the line, `draw` writes it (to Terminal()).
  /// Both are called while the line is shown only.
  Screen(std::function<std::string()> erase, std::function<void()> draw);
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen();

  /// The terminal itself, which the pipe does not stand in for.
  int Terminal() const noexcept { return _terminal.Get(); }
  /// Writes to the terminal itself.
  void Write(const std::string& text) { _paper.Write(text); }
  /// Columns of the terminal.
  std::size_t Columns() const;

  /// Draws the line and keeps it; with `drawn` it stands there already.
  void Show(bool drawn = false);
  /// Removes the line and lets everyone print freely; with `keep` it is left where it is.
  void Hide(bool keep = false);

  /// Readable when something was printed while the line was shown.
  int Descriptor() const noexcept { return _shown ? _read.Get() : -1; }
  /// Writes what was printed above the line.
  void Pass();

 private:
  std::string Printed();

  std::function<std::string()> _erase;
  std::function<void()> _draw;
  FileDescriptor _out;  ///< where standard output and error lead while the line is hidden
  FileDescriptor _err;
  FileDescriptor _terminal;
  base::Outlet _paper;  ///< on the terminal
  FileDescriptor _read;
  FileDescriptor _write;
  bool _shown = false;
};

}  // namespace nimbo::cli
