#include "tests/support/ConsoleCapture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "tests/support/Eventually.h"

namespace nimbo::test {

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
  const std::string reset = "\x1B[0m";
  const std::string colour = "\x1B[3";  // then a digit and an "m"
  std::vector<ConsoleLine> lines;
  std::istringstream all(Text());
  for (std::string text; std::getline(all, text);) {
    ConsoleLine line;
    if (text.compare(0, reset.size(), reset) == 0) text.erase(0, reset.size());
    if (text.compare(0, colour.size(), colour) == 0) {
      line.colour = text[colour.size()];
      text.erase(0, colour.size() + 2);
    }
    if (text.empty()) continue;
    // path "/" line number "/" function ":\t" text
    const std::size_t end = text.find(":\t");
    const std::size_t function = text.rfind('/', end);
    const std::size_t number = function > 0 ? text.rfind('/', function - 1) : function;
    if (end != std::string::npos && number < function) {
      line.path = text.substr(0, number);
      line.line = std::atoi(text.c_str() + number + 1);
      line.function = text.substr(function + 1, end - function - 1);
      text.erase(0, end + 2);
    }
    line.text = text;
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

bool ConsoleCapture::WaitFor(const std::string& text) {
  return Eventually([&] { return Text().find(text) != std::string::npos; });
}

}  // namespace nimbo::test
