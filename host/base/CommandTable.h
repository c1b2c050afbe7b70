#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "nimbo/base/attr_set.h"

namespace nimbo::base {

/// The shell commands registered with omfCmdRegister, by name. [control]
class NIMBO_API CommandTable {
 public:
  using Handler = std::function<bool(AttrSet&)>;
  static CommandTable& Global();

  /// See omfCmdRegister. -1, with one console line, without a name or a handler.
  int Add(const char* name, const Handler& handler);
  std::vector<std::string> Names() const;
  /// Null when there is no such command. An exception that escapes from the command becomes one
  /// console line and a false result. Stays valid until the command is replaced.
  const Handler* Find(const std::string& name) const;

 private:
  struct Command {
    std::string name;
    Handler handler;
  };
  std::deque<Command> _commands;  ///< a command that registers others must stay where it is
};

}  // namespace nimbo::base
