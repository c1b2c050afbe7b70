#include "tests/support/ConsoleCapture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace nimbo::test {
namespace {

const std::string Colour = "\x1B[3";  // then a digit and an "m"
const std::string Reset = "\x1B[0m";

}  // namespace

ConsoleCapture::ConsoleCapture()
    : _console(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)),
      _file(memfd_create("console", MFD_CLOEXEC)) {
  if (_file < 0) throw std::runtime_error("no file in memory");
  std::fflush(stdout);
  dup2(_file, STDOUT_FILENO);
}

ConsoleCapture::~ConsoleCapture() {
  _cleared = 0;
  const std::string all = Text();
  dup2(_console, STDOUT_FILENO);
  std::fwrite(all.data(), 1, all.size(), stdout);
  close(_file);
  close(_console);
}

std::string ConsoleCapture::Text() {
  std::fflush(stdout);
  std::string text;
  char buffer[4096];
  for (ssize_t got; (got = pread(_file, buffer, sizeof buffer,
                                 static_cast<off_t>(_cleared + text.size()))) > 0;) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  return text;
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
  const auto end = std::chrono::steady_clock::now() + timeout;
  while (Text().find(text) == std::string::npos) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace nimbo::test
