#include "host/cli/Shell.h"

#include <algorithm>
#include <cstdlib>

#include "base/reflect/Class.h"
#include "host/base/ClassRegistry.h"
#include "host/base/CommandTable.h"
#include "host/base/Guard.h"
#include "host/base/PluginLoader.h"
#include "host/cli/Console.h"
#include "host/cli/Table.h"
#include "host/cli/Words.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"
#include "nimbo/stream/application.h"

namespace nimbo::cli {

namespace {

using base::CommandTable;
using base::IClass;
using base::PluginLoader;

/// The functions of plug-ins that "call" reaches: their names begin so, and all have this form.
constexpr char FunctionPrefix[] = "fw";
constexpr std::size_t FunctionArguments = 3;
using Function = int (*)(const char*, const char*, const char*);

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : ", ") + word;
  return text.empty() ? "none" : text;
}

std::string AccessOf(const base::IProperty& property) {
  const bool readable = property.get || property.getStr;
  const bool writable = property.set || property.setStr;
  return std::string(readable ? "r" : "-") + (writable ? "w" : "-");
}

std::string TypeName(const std::type_info* type) {
  struct Known {
    const std::type_info& type;
    const char* name;
  };
  static const Known known[] = {{typeid(bool), "bool"},
                                {typeid(int), "int"},
                                {typeid(unsigned int), "unsigned int"},
                                {typeid(long long), "long long"},
                                {typeid(double), "double"},
                                {typeid(const char*), "text"},
                                {typeid(std::string), "text"}};
  if (!type) return "?";
  for (const auto& entry : known)
    if (entry.type == *type) return entry.name;
  return type->name();
}

std::vector<std::string> ClassNames() {
  std::vector<std::string> names;
  for (const auto* cl : IClass::Globle().Classes()) names.push_back(cl->Name());
  return names;
}

/// The ports of the element at `path`, as "in h264, out h264"; empty for what is no element.
std::string PortsOf(const std::string& path) {
  auto* element = dynamic_cast<stream::IElement*>(stream::FindObject(path));
  if (!element) return {};
  std::string text;
  const auto add = [&text](const char* direction, const auto& ports) {
    for (const auto& port : ports) {
      text += (text.empty() ? "" : ", ") + std::string(direction) + " " + port->Caps();
    }
  };
  add("in", element->HostState().inputs);
  add("out", element->HostState().outputs);
  return text;
}

std::vector<std::string> ObjectPaths() {
  std::vector<std::string> paths;
  for (const auto& live : stream::ListObjects()) paths.push_back(live.path);
  return paths;
}

std::vector<std::string> PropertyNames(const std::string& path) {
  std::vector<std::string> names{"status", "name"};
  const auto* object = stream::FindObject(path);
  if (!object || !object->Class()) return names;
  for (const auto* property : object->Class()->Properties()) names.push_back(property->Name());
  return names;
}

stream::Object* ObjectAt(const std::string& path) {
  auto* object = stream::FindObject(path);
  if (!object) Complain("there is no object \"" + path + "\"; there are: " + Joined(ObjectPaths()));
  return object;
}

bool NoProperty(const std::string& path, const std::string& property, const char* what) {
  return Complain("\"" + path + "\" has no property \"" + property + "\" that can be " + what +
                  "; its properties: " + Joined(PropertyNames(path)));
}

}  // namespace

/// A built-in command; its usage is what stands behind its name.
struct Shell::Command {
  const char* name;
  const char* usage;
  const char* description;
  bool (Shell::*run)(const std::string& rest);
  std::vector<std::string> (*candidates)();  ///< for the first word of the usage; may be null
};

const std::vector<Shell::Command>& Shell::Commands() {
  static const std::vector<Command> commands = {
      {"call", "FUNCTION [ARGUMENT]...",
       "call an exported function with up to three texts; \"...\" and {...} quote", &Shell::Call,
       [] { return PluginLoader::Globle().Exports(FunctionPrefix); }},
      {"classes", "", "list the registered classes", &Shell::Classes, nullptr},
      {"class", "NAME", "show a class and its properties", &Shell::Class, ClassNames},
      {"objects", "", "list the objects that there are, with their ports", &Shell::Objects,
       nullptr},
      {"create", "NAME CONFIGURATION", "make an application from a configuration text",
       &Shell::Create, nullptr},
      {"get", "OBJECT PROPERTY", "print a property", &Shell::Get, ObjectPaths},
      {"set", "OBJECT PROPERTY VALUE", "set a property; \"status\" starts and stops", &Shell::Set,
       ObjectPaths},
      {"sleep", "SECONDS", "wait while everything else goes on", &Shell::SleepFor, nullptr},
      {"help", "", "show this", &Shell::Help, nullptr},
      {"quit", "", "stop everything and leave", &Shell::Quit, nullptr},
  };
  return commands;
}

bool Shell::Execute(const std::string& line) {
  auto rest = Trimmed(line);
  if (rest.empty() || rest[0] == '#') return true;
  const auto name = TakeWord(rest);
  return base::Guarded(name, false, [&] { return Run(name, rest); });
}

bool Shell::Run(const std::string& name, const std::string& rest) {
  for (const auto& command : Commands())
    if (name == command.name) return (this->*command.run)(rest);
  const auto* handler = CommandTable::Globle().Find(name);
  if (!handler) return Complain("there is no command \"" + name + "\"; \"help\" lists them");
  base::AttrSet arguments(rest.c_str());
  if (!arguments.Valid()) return false;  // which told what is wrong
  return (*handler)(arguments) || Complain("the command \"" + name + "\" failed");
}

bool Shell::Call(const std::string& rest) {
  std::vector<std::string> words;
  std::string error;
  if (!SplitWords(rest, words, error)) return Complain("call: " + error);
  if (words.empty()) return Complain("usage: call FUNCTION [ARGUMENT]...");
  if (words.size() > 1 + FunctionArguments)
    return Complain("call: a function takes at most " + std::to_string(FunctionArguments) +
                    " arguments; quote those with blanks");
  const auto& loader = PluginLoader::Globle();
  const bool named = words[0].rfind(FunctionPrefix, 0) == 0;
  void* symbol = named ? loader.Symbol(words[0]) : nullptr;
  if (!symbol)
    return Complain("call: there is no function \"" + words[0] +
                    "\"; there are: " + Joined(loader.Exports(FunctionPrefix)));
  const char* arguments[FunctionArguments] = {};
  for (std::size_t i = 1; i < words.size(); ++i) arguments[i - 1] = words[i].c_str();
  const int result = reinterpret_cast<Function>(symbol)(arguments[0], arguments[1], arguments[2]);
  Say("= " + std::to_string(result));
  return true;
}

bool Shell::Classes(const std::string&) {
  std::vector<std::vector<std::string>> rows;
  for (const auto* cl : IClass::Globle().Classes())
    rows.push_back({cl->Name(), cl->Module() ? cl->Module() : ""});
  base::cout << Columns(rows);
  return true;
}

bool Shell::Class(const std::string& rest) {
  if (rest.empty()) return Complain("usage: class NAME");
  const auto* cl = IClass::Find(rest.c_str(), false);
  if (!cl) return Complain("there is no class \"" + rest + "\"; \"classes\" lists them");
  std::vector<std::vector<std::string>> rows;
  for (const auto* property : cl->Properties())
    rows.push_back({"  " + property->Name(), AccessOf(*property), TypeName(property->Type()),
                    property->Description() ? property->Description() : ""});
  std::string title = cl->Name();
  if (cl->Module()) title += std::string(" (") + cl->Module() + ")";
  if (cl->Description()) title += std::string(": ") + cl->Description();
  base::cout << title + "\n" + Columns(rows);
  return true;
}

bool Shell::Objects(const std::string&) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& live : stream::ListObjects())
    rows.push_back({live.path, live.className, live.status, PortsOf(live.path)});
  base::cout << Columns(rows);
  return true;
}

bool Shell::Get(const std::string& rest) {
  auto property = rest;
  const auto path = TakeWord(property);
  if (property.empty()) return Complain("usage: get OBJECT PROPERTY");
  auto* object = ObjectAt(path);
  if (!object) return false;
  std::string value;
  if (!object->GetStr(property.c_str(), value)) return NoProperty(path, property, "read");
  Say(value);
  return true;
}

bool Shell::Set(const std::string& rest) {
  auto value = rest;
  const auto path = TakeWord(value);
  const auto property = TakeWord(value);
  std::vector<std::string> words;
  std::string error;
  if (!SplitWords(value, words, error)) return Complain("set: " + error);
  if (property.empty() || words.empty()) return Complain("usage: set OBJECT PROPERTY VALUE");
  auto* object = ObjectAt(path);
  if (!object) return false;
  const auto names = PropertyNames(path);
  const auto same = [&](const auto& name) {
    return base::Hash(name.c_str()) == base::Hash(property.c_str());
  };
  if (std::none_of(names.begin(), names.end(), same)) return NoProperty(path, property, "set");
  // One word may be quoted; several are the value as it was written.
  if (words.size() == 1) value = words[0];
  return object->SetStr(property.c_str(), value.c_str()) ||
         Complain("\"" + path + "\" refused " + property + "=" + value);
}

bool Shell::Create(const std::string& rest) {
  auto text = rest;
  const auto name = TakeWord(text);
  std::vector<std::string> words;
  std::string error;
  if (!SplitWords(text, words, error)) return Complain("create: " + error);
  if (name.empty() || words.empty()) return Complain("usage: create NAME CONFIGURATION");
  if (stream::FindObject(name)) return Complain("there is an object \"" + name + "\" already");
  if (words.size() == 1) text = words[0];
  auto attrs = stream::Object::AttrSetInit(
      {{"type", "Application"}, {"name", name.c_str()}, {"serialize", text.c_str()}});
  auto* application = base::IClass::New<stream::Application>(attrs);
  if (application && application->Configure(attrs)) return true;
  if (application) application->Release();
  return Complain("cannot make \"" + name + "\"");
}

bool Shell::SleepFor(const std::string& rest) {
  // Longer waits have no use, and they would not fit a time.
  constexpr double Longest = 365.0 * 24 * 3600;
  char* end = nullptr;
  const double seconds = std::strtod(rest.c_str(), &end);
  if (rest.empty() || *end || !(seconds >= 0 && seconds <= Longest))
    return Complain("usage: sleep SECONDS");
  return _sleep(std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::duration<double>(seconds))) ||
         Complain("sleep was interrupted");
}

bool Shell::Help(const std::string&) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& command : Commands())
    rows.push_back({std::string(command.name) + " " + command.usage, command.description});
  for (const auto& name : CommandTable::Globle().Names())
    rows.push_back({name + " [KEY=VALUE,...]", "command of a plug-in"});
  base::cout << Columns(rows) +
                    "functions: " + Joined(PluginLoader::Globle().Exports(FunctionPrefix)) + "\n";
  return true;
}

bool Shell::Quit(const std::string&) {
  _ended = true;
  return true;
}

std::vector<std::string> Shell::Candidates(const std::string& line) {
  const auto wordStart = line.find_last_of(" \t") + 1;  // 0 when there is no blank
  const auto word = line.substr(wordStart);
  auto before = line.substr(0, wordStart);
  const auto command = TakeWord(before);
  std::vector<std::string> all;
  if (command.empty()) {
    all = CommandTable::Globle().Names();
    for (const auto& entry : Commands()) all.emplace_back(entry.name);
  } else if ((command == "get" || command == "set") && !before.empty()) {
    if (before.find_first_of(" \t") == std::string::npos) all = PropertyNames(before);
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
