#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>

#include "host/base/Console.h"
#include "host/base/Nearest.h"
#include "host/base/Outlet.h"
#include "host/cli/commands/Configuration.h"
#include "host/cli/commands/Subcommand.h"
#include "host/stream/Tree.h"

namespace {

using nimbo::cli::Action;
using nimbo::cli::ControlLoop;

/// All subcommands. A further one is a file of its own, declared in Subcommand.h and named here.
constexpr void (*Subcommands[])(CLI::App&, const nimbo::cli::Choose&) = {
    nimbo::cli::AddAbout, nimbo::cli::AddPublish, nimbo::cli::AddPush,
    nimbo::cli::AddShell, nimbo::cli::AddInspect, nimbo::cli::AddGraph};

/// What is wrong with a command line: what nothing takes is named with what is like it.
std::string WhatIsWrong(const CLI::App& program, const CLI::ParseError& error) {
  const auto chosen = program.get_subcommands();
  const CLI::App& place = chosen.empty() ? program : *chosen.front();
  std::string text = error.what();
  const auto unknown = program.remaining(true);
  if (!unknown.empty()) {
    const auto word = unknown.front().substr(0, unknown.front().find('='));
    std::set<std::string> names;
    for (const auto* sub : place.get_subcommands({})) names.insert(sub->get_name());
    for (const auto* app : {&place, &program}) {
      for (const auto* option : app->get_options()) {
        for (const auto& name : option->get_lnames()) names.insert("--" + name);
      }
    }
    text = "\"" + word + "\" is not expected here" +
           nimbo::base::Suggest(word, {names.begin(), names.end()});
  }
  return text + " (see nimbo-host " + (chosen.empty() ? "" : place.get_name() + " ") + "--help)";
}

}  // namespace

// An exception that gets here ends the process with its text, which is all that could be done.
int main(int argc, char** argv) {   // NOLINT(bugprone-exception-escape)
  nimbo::cli::SignalWatch signals;  // before any other thread is started

  CLI::App program("Runs publishing plug-ins on any Linux machine.", "nimbo-host");
  program.require_subcommand(1);
  program.fallthrough();
  std::vector<std::string> plugins;
  program
      .add_option("--plugin", plugins,
                  "Load this plug-in instead of those that are installed: a file, or\n"
                  "classic or live; repeatable")
      ->type_name("PATH")
      ->allow_extra_args(false);
  Action action;
  for (const auto add : Subcommands)
    add(program, [&](Action chosen) { action = std::move(chosen); });

  auto words = nimbo::cli::WithConfiguration(program, {argv + 1, argv + argc});
  if (!words) {
    nimbo::Complain("nimbo-host: " + words.Why());
    return nimbo::cli::WrongUsage;
  }
  try {
    std::ranges::reverse(*words);  // as CLI11 takes them
    program.parse(*words);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.exit(error);
    nimbo::Complain("nimbo-host: " + WhatIsWrong(program, error));
    return nimbo::cli::WrongUsage;
  }
  if (const nimbo::Status loaded = nimbo::cli::LoadPlugins(plugins); !loaded) {
    if (!loaded.Why().empty()) nimbo::Complain(loaded.Why());
    return nimbo::cli::Failed;
  }

  ControlLoop loop(signals);
  const int code = action(loop);
  nimbo::stream::ReleaseAll();
  for (auto* outlet : {&nimbo::base::StandardOutput(), &nimbo::base::StandardError()}) {
    outlet->Flush(nimbo::base::LastPatience);
  }
  return code;
}
