#include <CLI/CLI.hpp>

#include "host/cli/Console.h"
#include "host/cli/Subcommand.h"
#include "host/stream/Tree.h"

namespace {

using nimbo::cli::Action;
using nimbo::cli::ControlLoop;

/// All subcommands. A further one is a file of its own, declared in Subcommand.h and named here.
constexpr void (*Subcommands[])(CLI::App&, const nimbo::cli::Choose&) = {
    nimbo::cli::AddPublish, nimbo::cli::AddPush, nimbo::cli::AddShell};

}  // namespace

// An exception that gets here ends the process with its text, which is all that could be done.
int main(int argc, char** argv) {   // NOLINT(bugprone-exception-escape)
  nimbo::cli::SignalWatch signals;  // before any other thread is started

  CLI::App program("Runs publishing plug-ins on any Linux machine.", "nimbo-host");
  program.require_subcommand(1);
  program.fallthrough();
  std::vector<std::string> plugins;
  program
      .add_option("--plugin", plugins, "Load this plug-in instead of libpluginrtmp.so; repeatable")
      ->type_name("PATH")
      ->allow_extra_args(false);
  Action action;
  for (const auto add : Subcommands)
    add(program, [&](Action chosen) { action = std::move(chosen); });

  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return program.exit(error);
    nimbo::cli::Complain(std::string("nimbo-host: ") + error.what() + "; see nimbo-host --help");
    return nimbo::cli::WrongUsage;
  }
  if (!nimbo::cli::LoadPlugins(plugins)) return nimbo::cli::Failed;

  ControlLoop loop(signals);
  const int code = action(loop);
  nimbo::stream::ReleaseAll();
  return code;
}
