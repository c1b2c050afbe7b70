#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

// What the command line consists of, for the texts that are made of it.

namespace nimbo::cli {

/// Those that the help shows, too.
inline std::vector<const CLI::App*> Subcommands(const CLI::App& program) {
  return program.get_subcommands([](const CLI::App* sub) { return !sub->get_group().empty(); });
}

/// The options of `app`; of a subcommand, those beyond its help.
inline std::vector<const CLI::Option*> Options(const CLI::App& app) {
  return app.get_options([&app](const CLI::Option* option) {
    return !app.get_parent() || option != app.get_help_ptr();
  });
}

inline bool TakesValue(const CLI::Option& option) { return option.get_items_expected_min() > 0; }
inline bool Repeats(const CLI::Option& option) { return option.get_items_expected_max() > 1; }

inline std::vector<std::string> Names(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const auto& name : option.get_snames()) names.push_back("-" + name);
  for (const auto& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

/// The value of an option as the help calls it, without what checks it.
inline std::string TypeOf(const CLI::Option& option) {
  const auto name = option.get_type_name();
  return name.substr(0, name.find(':'));
}

}  // namespace nimbo::cli
