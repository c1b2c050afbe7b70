#pragma once

#include <string>
#include <vector>

namespace nimbo::test {

/// One line of the console stream, taken apart. Lines of another form have only a text.
struct ConsoleLine {
  char colour = 0;  ///< the digit of its colour: '1' red, '2' green, '3' yellow, '6' cyan
  std::string path;
  int line = 0;
  std::string function;
  std::string text;
};

/// Collects what the process writes to its standard output while it lives, the framework's console
/// stream included, and passes it on at its end. One at a time. All functions but Clear may be
/// called from any thread.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;
  ~ConsoleCapture();

  /// Everything that was written so far.
  std::string Text();
  std::vector<ConsoleLine> Lines();
  /// The red lines with a place, as "FUNCTION: TEXT".
  std::vector<std::string> Failures();
  /// Lines of any colour that hold `text`.
  std::size_t Count(const std::string& text);
  bool WaitFor(const std::string& text);
  /// Forgets what was written so far.
  void Clear() { _cleared += Text().size(); }

 private:
  int _console;  ///< the standard output that was found
  int _file;     ///< the one that stands in its place
  std::size_t _cleared = 0;
};

}  // namespace nimbo::test
