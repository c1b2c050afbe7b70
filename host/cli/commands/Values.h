#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "common/Status.h"

/// Options that several subcommands take, and what their values are.

namespace nimbo::cli {

/// The seconds that a text stands for: a number, or numbers with units, as in "90", "2.5s",
/// "500ms", "1h30m". Nothing when it is none.
std::optional<double> ParseSeconds(const std::string& text);

/// Adds an option that takes such a time, from `low` to `high` seconds; more than zero where `low`
/// is 0 and `positive`.
struct SecondsRange {
  double low = 0;
  double high = 0;  ///< 0: any
  bool positive = false;
};
CLI::Option* AddSeconds(CLI::App& app, const std::string& name, double& seconds,
                        const SecondsRange& range, const std::string& description);

/// A stream key that does not stand in the command line, which every user of the machine can read.
struct KeyOptions {
  std::string file;
};
void AddKeyFile(CLI::App& app, KeyOptions& options);
/// The key: of the file, else of the environment; empty where there is none.
Result<std::string> KeyOf(const KeyOptions& options);

}  // namespace nimbo::cli
