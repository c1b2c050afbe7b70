#include "host/cli/commands/Configuration.h"

#define TOML_HEADER_ONLY 1
#include <fmt/format.h>
#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "host/base/Nearest.h"

namespace nimbo::cli {

namespace {

constexpr char Command[] = "publish";
constexpr char InputSetting[] = "input";

std::string Long(const std::string& name) { return "--" + name; }

/// True for the option `name` and for it with its value, "name=...".
bool Names(const std::string& word, const std::string& name) {
  return word == name || word.starts_with(name + "=");
}

/// The words that say the same as the setting.
Result<std::vector<std::string>> WordsOf(const CLI::App& command, const Setting& setting) {
  const std::string option = Long(setting.name);
  const std::string opposite = Long("no-" + setting.name);
  const CLI::Option* known = command.get_option_no_throw(option);
  if (!known || option == ConfigurationOption) {
    std::vector<std::string> names = {InputSetting, UrlSetting};
    for (const auto* one : command.get_options()) {
      for (const auto& name : one->get_lnames()) names.push_back(name);
    }
    return Status::Failed("\"" + setting.name + "\" is no setting" +
                          base::Suggest(setting.name, names));
  }
  const bool flag = known->get_items_expected_max() == 0;
  if (!flag) {
    std::vector<std::string> words;
    for (const auto& value : setting.values) words.push_back(option + "=" + value);
    return words;
  }
  if (setting.values == std::vector<std::string>{"true"}) return std::vector{option};
  if (setting.values != std::vector<std::string>{"false"}) {
    return Status::Failed("\"" + setting.name + "\" is true or false");
  }
  return command.get_option_no_throw(opposite) ? std::vector{opposite} : std::vector<std::string>();
}

/// A value as it would stand in a command line.
Result<std::string> TextOf(const toml::node& node) {
  if (const auto* text = node.as_string()) return text->get();
  if (const auto* flag = node.as_boolean()) return std::string(flag->get() ? "true" : "false");
  if (const auto* number = node.as_integer()) return std::to_string(number->get());
  if (const auto* number = node.as_floating_point()) return fmt::format("{}", number->get());
  return Status::Failed(node.is_table() ? "a section, which nothing knows"
                                        : "no text, number, true or false");
}

/// The values of a list, or the only one.
Result<std::vector<std::string>> TextsOf(const toml::node& node) {
  std::vector<std::string> texts;
  const auto add = [&texts](const toml::node& one) {
    auto text = TextOf(one);
    if (text) texts.push_back(*text);
    return text ? Status() : text.Failure();
  };
  if (!node.is_array()) {
    if (Status added = add(node); !added) return added;
    return texts;
  }
  for (const toml::node& one : *node.as_array()) {
    if (Status added = add(one); !added) return added;
  }
  return texts;
}

}  // namespace

Result<std::vector<Setting>> ReadConfiguration(const std::string& path) {
  std::ifstream file(path);
  if (!file) return Status::Failed("cannot read \"" + path + "\": " + std::strerror(errno));
  std::vector<Setting> settings;
  try {
    const toml::table table = toml::parse(file);
    for (const auto& [key, node] : table) {
      auto values = TextsOf(node);
      if (!values) {
        return Status::Failed(fmt::format("\"{}\", line {}: \"{}\" is {}", path,
                                          node.source().begin.line, key.str(), values.Why()));
      }
      settings.push_back({std::string(key.str()), *values});
    }
  } catch (const toml::parse_error& error) {
    return Status::Failed(
        fmt::format("\"{}\", line {}: {}", path, error.source().begin.line, error.description()));
  }
  return settings;
}

std::vector<std::string> ValuesOf(const std::vector<Setting>& settings, const std::string& name) {
  std::vector<std::string> values;
  for (const Setting& setting : settings) {
    if (setting.name != name) continue;
    values.insert(values.end(), setting.values.begin(), setting.values.end());
  }
  return values;
}

Result<std::vector<std::string>> WithConfiguration(const CLI::App& program,
                                                   std::vector<std::string> words) {
  const auto command = std::ranges::find(words, Command);
  const auto option = std::find_if(command, words.end(), [](const std::string& word) {
    return Names(word, ConfigurationOption);
  });
  if (option == words.end()) return words;
  const bool apart = *option == ConfigurationOption;
  if (apart && option + 1 == words.end()) return words;  // its own fault, which is told
  const std::string path = apart ? option[1] : option->substr(sizeof ConfigurationOption);
  auto settings = ReadConfiguration(path);
  if (!settings) return settings.Failure();
  std::vector<std::string> all(words.begin(), command + 1);
  for (const std::string& input : ValuesOf(*settings, InputSetting)) all.push_back(input);
  for (const Setting& setting : *settings) {
    if (setting.name == InputSetting || setting.name == UrlSetting) continue;
    const bool overridden = std::any_of(command, words.end(), [&](const std::string& word) {
      return Names(word, Long(setting.name)) || word == Long("no-" + setting.name);
    });
    auto said = WordsOf(*program.get_subcommand(Command), setting);
    if (!said) return Status::Failed("\"" + path + "\": " + said.Why());
    if (!overridden) all.insert(all.end(), said->begin(), said->end());
  }
  // A service whose variables are not set gives empty words.
  std::copy_if(command + 1, words.end(), std::back_inserter(all),
               [](const std::string& word) { return !word.empty(); });
  for (const std::string& url : ValuesOf(*settings, UrlSetting)) all.push_back(url);
  return all;
}

}  // namespace nimbo::cli
