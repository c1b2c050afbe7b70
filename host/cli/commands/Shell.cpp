#include "host/cli/commands/Shell.h"

#include <algorithm>
#include <cstdlib>

#include "host/base/ClassRegistry.h"
#include "host/base/CommandTable.h"
#include "host/base/Console.h"
#include "host/base/Framework.h"
#include "host/base/Nearest.h"
#include "host/base/PluginLoader.h"
#include "host/cli/commands/Inventory.h"
#include "host/cli/commands/Words.h"
#include "host/cli/terminal/Table.h"
#include "host/stream/Builder.h"
#include "host/stream/Settings.h"
#include "host/stream/Tree.h"
#include "host/text/Text.h"
#include "nimbo/stream/element.h"

namespace nimbo::cli {

namespace {

using base::CommandTable;
using base::IClass;
using base::PluginLoader;
using base::Suggest;

/// All functions that "call" reaches have this form.
constexpr std::size_t FunctionArguments = 3;
using Function = int (*)(const char*, const char*, const char*);

std::vector<std::string> ClassNames() {
  std::vector<std::string> names;
  for (const auto* cl : IClass::Globle().Classes()) names.push_back(cl->Name());
  return names;
}

std::vector<std::string> ObjectPaths() {
  std::vector<std::string> paths;
  for (const auto& live : stream::ListObjects()) paths.push_back(live.path);
  return paths;
}

std::vector<std::string> PropertiesAt(const std::string& path) {
  const auto* object = stream::FindObject(path);
  return object ? stream::PropertyNames(*object) : std::vector<std::string>();
}

Result<stream::Object*> ObjectAt(const std::string& path) {
  auto* object = stream::FindObject(path);
  if (object) return object;
  return Status::Failed("there is no object \"" + path + "\"" + Suggest(path, ObjectPaths()));
}

}  // namespace

/// A built-in command; its usage is what stands behind its name.
struct Shell::Command {
  const char* name;
  const char* usage;
  const char* description;
  Status (Shell::*run)(const std::string& rest);
  std::vector<std::string> (*candidates)();  ///< for the first word of the usage; may be null
};

const std::vector<Shell::Command>& Shell::Commands() {
  static const std::vector<Command> commands = {
      {"call", "FUNCTION [ARGUMENT]...",
       "call an exported function with up to three texts; \"...\" and {...} quote", &Shell::Call,
       FunctionNames},
      {"classes", "", "list the registered classes", &Shell::Classes, nullptr},
      {"class", "NAME", "show a class and its properties", &Shell::Class, ClassNames},
      {"objects", "", "list the objects that there are, with their ports", &Shell::Objects,
       nullptr},
      {"create", "NAME CONFIGURATION", "make an application from a configuration text",
       &Shell::Create, nullptr},
      {"add", "APPLICATION CONFIGURATION",
       "add entries to an application, such as rtmp-client:link=all, while the others go on",
       &Shell::Add, ObjectPaths},
      {"remove", "OBJECT", "stop and destroy an object, of an element all that stands in its line",
       &Shell::Remove, ObjectPaths},
      {"get", "OBJECT PROPERTY", "print a property", &Shell::Get, ObjectPaths},
      {"set", "OBJECT PROPERTY VALUE", "set a property; \"status\" starts and stops", &Shell::Set,
       ObjectPaths},
      {"sleep", "SECONDS", "wait while everything else goes on", &Shell::SleepFor, nullptr},
      {"help", "", "show this", &Shell::Help, nullptr},
      {"quit", "", "stop everything and leave", &Shell::Quit, nullptr},
  };
  return commands;
}

std::vector<std::string> Shell::Names() {
  auto names = CommandTable::Global().Names();
  for (const auto& command : Commands()) names.emplace_back(command.name);
  return names;
}

bool Shell::Execute(const std::string& line) {
  auto rest = text::Trimmed(line);
  if (rest.empty() || rest[0] == '#') return true;
  const auto name = TakeWord(rest);
  const Status done = Guarded(name, Status::Failed(), [&] { return Run(name, rest); });
  if (!done && !done.Why().empty()) Complain(done.Why());
  return static_cast<bool>(done);
}

Status Shell::Run(const std::string& name, const std::string& rest) {
  for (const auto& command : Commands())
    if (name == command.name) return (this->*command.run)(rest);
  const auto* handler = CommandTable::Global().Find(name);
  if (!handler)
    return Status::Failed("there is no command \"" + name + "\"" + Suggest(name, Names()));
  base::AttrSet arguments(rest.c_str());
  if (!Framework::Valid(arguments)) return Status::Failed();  // which told what is wrong
  if ((*handler)(arguments)) return {};
  return Status::Failed("the command \"" + name + "\" failed");
}

Status Shell::Call(const std::string& rest) {
  auto split = SplitWords(rest);
  if (!split) return Status::Failed("call: " + split.Why());
  const auto& words = *split;
  if (words.empty()) return Status::Failed("usage: call FUNCTION [ARGUMENT]...");
  if (words.size() > 1 + FunctionArguments)
    return Status::Failed("call: a function takes at most " + std::to_string(FunctionArguments) +
                          " arguments; quote those with blanks");
  const auto& loader = PluginLoader::Global();
  const bool named = words[0].rfind(FunctionPrefix, 0) == 0;
  void* symbol = named ? loader.Symbol(words[0]) : nullptr;
  if (!symbol)
    return Status::Failed("call: there is no function \"" + words[0] + "\"" +
                          Suggest(words[0], FunctionNames()));
  const char* arguments[FunctionArguments] = {};
  for (std::size_t i = 1; i < words.size(); ++i) arguments[i - 1] = words[i].c_str();
  const int result = reinterpret_cast<Function>(symbol)(arguments[0], arguments[1], arguments[2]);
  Say("= " + std::to_string(result));
  return {};
}

Status Shell::Classes(const std::string&) {
  base::cout << ClassesText();
  return {};
}

Status Shell::Class(const std::string& rest) {
  if (rest.empty()) return Status::Failed("usage: class NAME");
  auto* cl = IClass::Find(rest.c_str(), false);
  if (!cl)
    return Status::Failed("there is no class \"" + rest + "\"" + IClass::Globle().Suggest(rest));
  base::cout << ClassView(*cl, rest).Text();
  return {};
}

Status Shell::Objects(const std::string&) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& live : stream::ListObjects()) {
    const auto* element = dynamic_cast<const stream::IElement*>(stream::FindObject(live.path));
    rows.push_back({live.path, live.className, live.status, element ? PortsText(*element) : ""});
  }
  base::cout << Columns(rows);
  return {};
}

Status Shell::Get(const std::string& rest) {
  auto property = rest;
  const auto path = TakeWord(property);
  if (property.empty()) return Status::Failed("usage: get OBJECT PROPERTY");
  auto found = ObjectAt(path);
  if (!found) return found.Failure();
  stream::Object& object = **found;
  std::string value;
  if (object.GetStr(property.c_str(), value)) {
    Say(value);
    return {};
  }
  return Status::Failed("\"" + path + "\" does not tell \"" + property + "\"" +
                        stream::WhyNotRead(object, property));
}

Status Shell::Set(const std::string& rest) {
  auto value = rest;
  const auto path = TakeWord(value);
  const auto property = TakeWord(value);
  auto words = SplitWords(value);
  if (!words) return Status::Failed("set: " + words.Why());
  if (property.empty() || words->empty()) return Status::Failed("usage: set OBJECT PROPERTY VALUE");
  auto found = ObjectAt(path);
  if (!found) return found.Failure();
  stream::Object& object = **found;
  // One word may be quoted; several are the value as it was written.
  if (words->size() == 1) value = words->front();
  if (object.SetStr(property.c_str(), value.c_str())) return {};
  return Status::Failed("\"" + path + "\" refused " + property + "=" + value +
                        stream::WhyNotSet(object, property, value));
}

Status Shell::Create(const std::string& rest) {
  auto text = rest;
  const auto name = TakeWord(text);
  auto words = SplitWords(text);
  if (!words) return Status::Failed("create: " + words.Why());
  if (name.empty() || words->empty()) return Status::Failed("usage: create NAME CONFIGURATION");
  if (stream::FindObject(name))
    return Status::Failed("there is an object \"" + name + "\" already");
  if (words->size() == 1) text = words->front();
  if (stream::CreateApplication(name, text)) return {};
  return Status::Failed("cannot make \"" + name + "\"");
}

Status Shell::Add(const std::string& rest) {
  auto text = rest;
  const auto path = TakeWord(text);
  auto words = SplitWords(text);
  if (!words) return Status::Failed("add: " + words.Why());
  if (path.empty() || words->empty()) return Status::Failed("usage: add APPLICATION CONFIGURATION");
  auto found = ObjectAt(path);
  if (!found) return found.Failure();
  auto* application = dynamic_cast<stream::Application*>(*found);
  if (!application) return Status::Failed("\"" + path + "\" is no application");
  if (words->size() == 1) text = words->front();
  if (stream::ExtendApplication(*application, text)) return {};
  return Status::Failed("nothing was added to \"" + path + "\"");
}

Status Shell::Remove(const std::string& rest) {
  if (rest.empty()) return Status::Failed("usage: remove OBJECT");
  auto found = ObjectAt(rest);
  if (!found) return found.Failure();
  stream::Object* object = *found;
  if (const auto* element = dynamic_cast<const stream::IElement*>(object)) {
    if (auto* pipeline = Framework::Pipeline(*element)) object = pipeline;
  }
  object->StatusChange(stream::IStatus::null);
  object->Release();
  return {};
}

Status Shell::SleepFor(const std::string& rest) {
  // Longer waits have no use, and they would not fit a time.
  constexpr double Longest = 365.0 * 24 * 3600;
  char* end = nullptr;
  const double seconds = std::strtod(rest.c_str(), &end);
  if (rest.empty() || *end || !(seconds >= 0 && seconds <= Longest))
    return Status::Failed("usage: sleep SECONDS");
  const std::chrono::duration<double> duration(seconds);
  if (_sleep(std::chrono::duration_cast<std::chrono::nanoseconds>(duration))) return {};
  return Status::Failed("sleep was interrupted");
}

Status Shell::Help(const std::string&) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& command : Commands())
    rows.push_back({std::string(command.name) + " " + command.usage, command.description});
  for (const auto& name : CommandTable::Global().Names())
    rows.push_back({name + " [KEY=VALUE,...]", "command of a plug-in"});
  const auto functions = FunctionNames();
  base::cout << Columns(rows) +
                    "functions: " + (functions.empty() ? "none" : text::Joined(functions)) + "\n";
  return {};
}

Status Shell::Quit(const std::string&) {
  _ended = true;
  return {};
}

std::vector<std::string> Shell::Candidates(const std::string& line) {
  const auto wordStart = line.find_last_of(" \t") + 1;  // 0 when there is no blank
  const auto word = line.substr(wordStart);
  auto before = line.substr(0, wordStart);
  const auto command = TakeWord(before);
  std::vector<std::string> all;
  if (command.empty()) {
    all = Names();
  } else if ((command == "get" || command == "set") && !before.empty()) {
    if (before.find_first_of(" \t") == std::string::npos) all = PropertiesAt(before);
  } else if (before.empty()) {
    for (const auto& entry : Commands())
      if (command == entry.name && entry.candidates) all = entry.candidates();
  }
  std::vector<std::string> fitting;
  for (auto& candidate : all)
    if (candidate.rfind(word, 0) == 0) fitting.push_back(std::move(candidate));
  std::sort(fitting.begin(), fitting.end());
  fitting.erase(std::unique(fitting.begin(), fitting.end()), fitting.end());
  return fitting;
}

}  // namespace nimbo::cli
