#include <unistd.h>

#include <csignal>
#include <optional>

#include "host/base/Console.h"
#include "host/cli/commands/Shell.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/terminal/LineEditor.h"
#include "host/stream/Message.h"

namespace nimbo::cli {

namespace {

struct ShellOptions {
  bool stop = false;
};

/// Lines of standard input when it is no terminal.
class InputLines {
 public:
  explicit InputLines(ControlLoop& loop) : _loop(loop) {}

  /// The next line; nothing at the end of the input or when a signal came.
  std::optional<std::string> Next() {
    while (true) {
      const auto end = _text.find('\n');
      if (end != std::string::npos) {
        auto line = _text.substr(0, end);
        _text.erase(0, end + 1);
        return line;
      }
      if (_loop.Wait(STDIN_FILENO, Clock::time_point::max()) == ControlLoop::Woken::Signal)
        return {};
      char piece[4096];
      const auto size = read(STDIN_FILENO, piece, sizeof piece);
      if (size <= 0) {
        if (_text.empty()) return {};
        return std::exchange(_text, std::string());
      }
      _text.append(piece, static_cast<std::size_t>(size));
    }
  }

 private:
  ControlLoop& _loop;
  std::string _text;
};

/// Messages that elements send up appear among the output.
class MessagePrinter {
 public:
  MessagePrinter()
      : _number(stream::MessageListeners::Global().Add([](const stream::Message& message) {
          Say("message " + message.path + " " + message.name +
              (message.text.empty() ? "" : " " + message.text));
        })) {}
  MessagePrinter(const MessagePrinter&) = delete;
  MessagePrinter& operator=(const MessagePrinter&) = delete;
  ~MessagePrinter() { stream::MessageListeners::Global().Remove(_number); }

 private:
  int _number;
};

/// True when the wait lasted, false when a signal ended it.
bool Sleep(ControlLoop& loop, std::chrono::nanoseconds duration) {
  const auto until = Clock::now() + std::chrono::duration_cast<Clock::duration>(duration);
  return loop.Wait(-1, until) == ControlLoop::Woken::Deadline;
}

int RunScript(Shell& shell, ControlLoop& loop, const ShellOptions& options) {
  InputLines lines(loop);
  int code = Succeeded;
  while (!shell.Ended()) {
    const auto line = lines.Next();
    if (!line) break;
    if (shell.Execute(*line)) continue;
    code = Failed;
    if (options.stop) break;
  }
  return loop.Signals().Number() != 0 ? Failed : code;
}

int RunTerminal(Shell& shell, ControlLoop& loop) {
  LineEditor editor("nimbo> ", loop, &Shell::Candidates);
  Say("\"help\" lists the commands, \"quit\" stops everything and leaves.");
  std::string line;
  while (!shell.Ended()) {
    const auto result = editor.Read(line);
    if (result == LineEditor::Result::End) break;
    if (result == LineEditor::Result::Line) shell.Execute(line);
    // An interrupt from the keyboard drops the line or ends a "sleep"; others end the shell.
    const int signal = loop.Signals().Number();
    if (signal != 0 && signal != SIGINT) break;
    loop.Signals().Forget();
  }
  return Succeeded;
}

int Run(ControlLoop& loop, const ShellOptions& options) {
  const MessagePrinter printer;
  Shell shell([&](std::chrono::nanoseconds duration) { return Sleep(loop, duration); });
  return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO) ? RunTerminal(shell, loop)
                                                       : RunScript(shell, loop, options);
}

}  // namespace

void AddShell(CLI::App& program, const Choose& chosen) {
  const auto options = std::make_shared<ShellOptions>();
  auto* shell = program.add_subcommand(
      "shell", "Execute commands from a terminal or from standard input; \"help\" lists them");
  shell->add_flag("--stop", options->stop, "End at the first line of the input that fails");
  shell->footer(
      "Exit codes with commands from standard input: 0 all lines succeeded, 1 a line failed or a\n"
      "signal ended the shell, 2 wrong usage. A terminal session ends with 0.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host shell\n"
      "  nimbo-host shell --stop < LINES, where the file LINES holds\n"
      "      create cam shm-source:connect={pv:h264-0}+RingSink\n"
      "      set cam status play\n"
      "      sleep 2\n"
      "      get cam/RingSink packets");
  shell->final_callback(
      [options, chosen] { chosen([options](ControlLoop& loop) { return Run(loop, *options); }); });
}

}  // namespace nimbo::cli
