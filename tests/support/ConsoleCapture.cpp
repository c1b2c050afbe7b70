#include "tests/support/ConsoleCapture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace nimbo::test {
namespace {

const std::string Colour = "\x1B[3";  // then a digit and an "m"
const std::string Reset = "\x1B[0m";

}  // namespace

ConsoleCapture::ConsoleCapture() {
  std::fflush(stdout);
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  _console = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  _read = ends[0];
  fcntl(_read, F_SETFL, O_NONBLOCK);
  dup2(ends[1], STDOUT_FILENO);
  close(ends[1]);
  _stop = eventfd(0, EFD_CLOEXEC);
  _collector = std::thread([this] { Collect(); });
}

ConsoleCapture::~ConsoleCapture() {
  std::fflush(stdout);
  dup2(_console, STDOUT_FILENO);
  eventfd_write(_stop, 1);
  _collector.join();
  Drain();
  close(_read);
  close(_stop);
  close(_console);
}

void ConsoleCapture::Collect() {
  pollfd waiting[] = {{_read, POLLIN, 0}, {_stop, POLLIN, 0}};
  while (poll(waiting, 2, -1) >= 0 && waiting[1].revents == 0) Drain();
}

/// Takes what lies in the pipe, so that all that was written before the call has been seen.
void ConsoleCapture::Drain() {
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    char buffer[4096];
    for (ssize_t got; (got = read(_read, buffer, sizeof buffer)) > 0;) {
      _text.append(buffer, static_cast<std::size_t>(got));
      if (write(_console, buffer, static_cast<std::size_t>(got)) < 0) continue;
    }
  }
  _changed.notify_all();
}

std::string ConsoleCapture::Text() {
  std::fflush(stdout);
  Drain();
  const std::lock_guard<std::mutex> lock(_mutex);
  return _text;
}

void ConsoleCapture::Clear() {
  Text();
  const std::lock_guard<std::mutex> lock(_mutex);
  _text.clear();
}

std::vector<ConsoleLine> ConsoleCapture::Lines() {
  std::vector<ConsoleLine> lines;
  std::istringstream text(Text());
  for (std::string piece; std::getline(text, piece);) {
    if (piece.compare(0, Reset.size(), Reset) == 0) piece.erase(0, Reset.size());
    if (piece.empty()) continue;
    ConsoleLine line;
    if (piece.compare(0, Colour.size(), Colour) == 0) {
      line.colour = piece[Colour.size()];
      piece.erase(0, Colour.size() + 2);
    }
    // path "/" line number "/" function ":\t" text
    const std::size_t end = piece.find(":\t");
    const std::size_t function = end == std::string::npos ? end : piece.rfind('/', end);
    const std::size_t number =
        function == std::string::npos ? function : piece.rfind('/', function - 1);
    if (number != std::string::npos) {
      line.path = piece.substr(0, number);
      line.line = std::atoi(piece.c_str() + number + 1);
      line.function = piece.substr(function + 1, end - function - 1);
      piece.erase(0, end + 2);
    }
    line.text = piece;
    lines.push_back(std::move(line));
  }
  return lines;
}

std::vector<std::string> ConsoleCapture::Failures() {
  std::vector<std::string> failures;
  for (const ConsoleLine& line : Lines()) {
    if (line.colour == '1' && line.line > 0) failures.push_back(line.function + ": " + line.text);
  }
  return failures;
}

std::size_t ConsoleCapture::Count(const std::string& text) {
  std::size_t count = 0;
  for (const ConsoleLine& line : Lines()) count += line.text.find(text) != std::string::npos;
  return count;
}

bool ConsoleCapture::WaitFor(const std::string& text, std::chrono::nanoseconds timeout) {
  std::fflush(stdout);
  std::unique_lock<std::mutex> lock(_mutex);
  return _changed.wait_for(lock, timeout, [&] { return _text.find(text) != std::string::npos; });
}

}  // namespace nimbo::test
