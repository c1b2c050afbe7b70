#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace nimbo::cli {

/// A script with which a shell completes the command line of `program`: subcommands, options, and
/// file names for all else.
std::string BashCompletion(const CLI::App& program);
std::string ZshCompletion(const CLI::App& program);
std::string FishCompletion(const CLI::App& program);

}  // namespace nimbo::cli
