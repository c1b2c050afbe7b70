#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/cli/terminal/ControlLoop.h"

namespace nimbo::cli {

/// How the program ends.
enum ExitCode : int { Succeeded = 0, Failed = 1, WrongUsage = 2 };

/// Why a publication ends that has lost a thread.
constexpr char LostThread[] = "a part of it has failed: what is published is not complete";

/// The exit code of what came of a subcommand. Why it failed is told in one line of the program.
int ExitCodeOf(const Status& status);

/// What a subcommand does, once its options are known: with the plug-ins loaded, on the control
/// thread. The result is the program's exit code.
using Action = std::function<int(ControlLoop&)>;

/// Each adds one subcommand to the program and calls `chosen` with its action when its options have
/// been parsed.
using Choose = std::function<void(Action)>;
void AddShell(CLI::App& program, const Choose& chosen);
void AddPublish(CLI::App& program, const Choose& chosen);
void AddPush(CLI::App& program, const Choose& chosen);
/// What the program tells of itself: its version, manual and completion.
void AddAbout(CLI::App& program, const Choose& chosen);
void AddInspect(CLI::App& program, const Choose& chosen);
void AddGraph(CLI::App& program, const Choose& chosen);

/// Loads the plug-ins at `paths`; without any, the one that belongs to this program. [control]
Status LoadPlugins(const std::vector<std::string>& paths);

}  // namespace nimbo::cli
