#include "host/cli/terminal/Screen.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <array>
#include <cstdio>

namespace nimbo::cli {

namespace {

/// More than everybody prints between two looks at the pipe. A full pipe only makes whoever prints
/// wait for the next look.
constexpr int PipeCapacity = 1 << 20;
constexpr std::size_t DefaultColumns = 80;

FileDescriptor Duplicate(int descriptor) {
  return FileDescriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace

Screen::Screen(std::function<std::string()> erase, std::function<void()> draw)
    : _erase(std::move(erase)),
      _draw(std::move(draw)),
      _out(Duplicate(STDOUT_FILENO)),
      _err(Duplicate(STDERR_FILENO)),
      _terminal(Duplicate(isatty(STDOUT_FILENO) ? STDOUT_FILENO : STDERR_FILENO)),
      _paper(_terminal.Get()) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, O_CLOEXEC) != 0) return;
  _read.Reset(ends[0]);
  _write.Reset(ends[1]);
  fcntl(ends[0], F_SETFL, O_NONBLOCK);
  fcntl(ends[1], F_SETPIPE_SZ, PipeCapacity);
}

Screen::~Screen() {
  if (_shown) Hide();
}

std::size_t Screen::Columns() const {
  winsize size{};
  if (ioctl(_terminal.Get(), TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return DefaultColumns;
  return size.ws_col;
}

void Screen::Show(bool drawn) {
  if (_shown || !_write) return;
  std::fflush(stdout);
  if (!drawn) _draw();
  if (isatty(_out.Get())) dup2(_write.Get(), STDOUT_FILENO);
  if (isatty(_err.Get())) dup2(_write.Get(), STDERR_FILENO);
  _shown = true;
}

void Screen::Hide(bool keep) {
  if (!_shown) return;
  // First everyone is let out, then the pipe is emptied: nobody can be left waiting in it.
  std::fflush(stdout);
  dup2(_out.Get(), STDOUT_FILENO);
  dup2(_err.Get(), STDERR_FILENO);
  _shown = false;
  const auto printed = Printed();
  Write((keep ? "" : _erase()) + printed);
}

void Screen::Pass() {
  const auto printed = Printed();
  if (printed.empty()) return;
  Write(_erase() + printed);
  _draw();
}

std::string Screen::Printed() {
  std::string text;
  std::array<char, 4096> piece;
  ssize_t size;
  while ((size = read(_read.Get(), piece.data(), piece.size())) > 0)
    text.append(piece.data(), static_cast<std::size_t>(size));
  return text;
}

}  // namespace nimbo::cli
