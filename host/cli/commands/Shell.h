#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace nimbo::cli {

/// Executes the lines of a shell: built-in commands and those that plug-ins registered. Refusals go
/// to standard error, one line each; what a command prints goes to standard output. [control]
class Shell {
 public:
  /// Waits while the control queue is served; false when the wait was ended early.
  using Sleep = std::function<bool(std::chrono::nanoseconds)>;

  explicit Shell(Sleep sleep) : _sleep(std::move(sleep)) {}

  /// Executes one line. Blank lines and those that begin with "#" succeed. False when the command
  /// is not known, was used wrongly or failed. An exception that escapes from a plug-in becomes one
  /// line.
  bool Execute(const std::string& line);

  /// True once "quit" was executed.
  bool Ended() const noexcept { return _ended; }

  /// What the last word of `line`, which may be empty, can be completed to; sorted.
  static std::vector<std::string> Candidates(const std::string& line);

 private:
  struct Command;
  static const std::vector<Command>& Commands();
  /// What a line can begin with: these, and the commands of plug-ins.
  static std::vector<std::string> Names();
  bool Run(const std::string& name, const std::string& rest);

  bool Call(const std::string& rest);
  bool Classes(const std::string& rest);
  bool Class(const std::string& rest);
  bool Objects(const std::string& rest);
  bool Get(const std::string& rest);
  bool Set(const std::string& rest);
  bool Create(const std::string& rest);
  bool SleepFor(const std::string& rest);
  bool Help(const std::string& rest);
  bool Quit(const std::string& rest);

  Sleep _sleep;
  bool _ended = false;
};

}  // namespace nimbo::cli
