#pragma once

#include <histedit.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/cli/terminal/ControlLoop.h"
#include "host/cli/terminal/Screen.h"

namespace nimbo::cli {

/// Reads lines from a terminal, with editing, history (of this run only: lines may hold tokens) and
/// completion. The control queue is served meanwhile, and what other threads print appears above
/// the line. [control]
class LineEditor {
 public:
  enum class Result { Line, End, Signal };
  /// Gives what the last word of a line can be completed to.
  using Complete = std::function<std::vector<std::string>(const std::string&)>;

  LineEditor(std::string prompt, ControlLoop& loop, Complete complete);

  /// Reads one line, without its newline.
  Result Read(std::string& line);

 private:
  static LineEditor& Of(EditLine* editor);
  static char* Prompt(EditLine* editor);
  static int GetCharacter(EditLine* editor, wchar_t* character);
  static unsigned char CompleteWord(EditLine* editor, int character);
  std::string Erase() const;

  std::string _prompt;
  ControlLoop& _loop;
  Complete _complete;
  bool _signalled = false;
  Screen _screen;
  std::unique_ptr<FILE, int (*)(FILE*)> _terminal;
  std::unique_ptr<EditLine, void (*)(EditLine*)> _editor;
  std::unique_ptr<History, void (*)(History*)> _history;
};

}  // namespace nimbo::cli
