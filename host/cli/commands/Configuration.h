#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "common/Status.h"

/// A file in place of options: TOML with a line for each option, without its dashes, and "input"
/// and "url" for what has none.

namespace nimbo::cli {

/// The names of the option that names such a file, and of what stands in it for the addresses.
constexpr char ConfigurationOption[] = "--config";
constexpr char UrlSetting[] = "url";

struct Setting {
  std::string name;
  std::vector<std::string> values;
  bool operator==(const Setting&) const = default;
};

/// What the file says, in its order. Fails, with a reason that names the file, where it cannot be
/// read.
Result<std::vector<Setting>> ReadConfiguration(const std::string& path);

/// The values of all settings of that name.
std::vector<std::string> ValuesOf(const std::vector<Setting>& settings, const std::string& name);

/// The words of a command line, with what the file behind "publish --config" says beside them: an
/// option that stands among the words counts in place of the file's. Fails where the file cannot be
/// read, or names what is no option.
Result<std::vector<std::string>> WithConfiguration(const CLI::App& program,
                                                   std::vector<std::string> words);

}  // namespace nimbo::cli
