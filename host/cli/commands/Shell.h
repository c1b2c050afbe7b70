#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "common/Status.h"

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
  Status Run(const std::string& name, const std::string& rest);

  Status Call(const std::string& rest);
  Status Classes(const std::string& rest);
  Status Class(const std::string& rest);
  Status Objects(const std::string& rest);
  Status Get(const std::string& rest);
  Status Set(const std::string& rest);
  Status Create(const std::string& rest);
  Status Add(const std::string& rest);
  Status Remove(const std::string& rest);
  Status SleepFor(const std::string& rest);
  Status Help(const std::string& rest);
  Status Quit(const std::string& rest);

  Sleep _sleep;
  bool _ended = false;
};

}  // namespace nimbo::cli
