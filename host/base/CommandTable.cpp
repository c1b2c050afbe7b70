#include "host/base/CommandTable.h"

#include <algorithm>

#include "host/base/Console.h"
#include "nimbo/base/command.h"

namespace nimbo::base {

CommandTable& CommandTable::Global() {
  // Filled by static initialisers of plug-ins; never destroyed.
  static auto* const table = new CommandTable;
  return *table;
}

int CommandTable::Add(const char* name, const Handler& handler) {
  if (!name || !*name || !handler) {
    Refuse("command \"", name ? name : "", "\" is not registered: it needs a name and a handler");
    return -1;
  }
  const auto found = std::find_if(_commands.begin(), _commands.end(),
                                  [name](const Command& command) { return command.name == name; });
  const auto number = static_cast<int>(found - _commands.begin());
  if (found == _commands.end()) _commands.push_back({name, nullptr});
  _commands[static_cast<std::size_t>(number)].handler = [what = "command " + std::string(name),
                                                         handler](AttrSet& attrs) {
    return Guarded(what, false, [&] { return handler(attrs); });
  };
  return number;
}

std::vector<std::string> CommandTable::Names() const {
  std::vector<std::string> names;
  for (const Command& command : _commands) names.push_back(command.name);
  return names;
}

const CommandTable::Handler* CommandTable::Find(const std::string& name) const {
  for (const Command& command : _commands) {
    if (command.name == name) return &command.handler;
  }
  return nullptr;
}

int omfCmdRegister(const char* name, const std::function<bool(AttrSet&)>& handler) {
  return CommandTable::Global().Add(name, handler);
}

}  // namespace nimbo::base
