#include "tests/support/ConsoleCapture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdio>
#include <regex>
#include <stdexcept>

namespace nimbo::test {

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
  static const std::regex form(
      "(?:\x1B\\[0m)?(?:\x1B\\[3(\\d)m)?(?:([^/\\s][^\\s]*)/(\\d+)/([^/:\\s]+):\t)?(.*)");
  std::vector<ConsoleLine> lines;
  const std::string text = Text();
  for (std::size_t start = 0, end = 0; start < text.size(); start = end + 1) {
    end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const std::string piece = text.substr(start, end - start);
    std::smatch part;
    if (piece == "\x1B[0m" || !std::regex_match(piece, part, form)) continue;
    ConsoleLine line;
    if (part[1].matched) line.colour = *part[1].first;
    line.path = part[2];
    if (part[3].matched) line.line = std::stoi(part[3]);
    line.function = part[4];
    line.text = part[5];
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
