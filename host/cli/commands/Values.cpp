#include "host/cli/commands/Values.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "host/publication/Url.h"

namespace nimbo::cli {

namespace {

constexpr char Digits[] = "0123456789.";
constexpr char KeyVariable[] = "NIMBO_KEY";

constexpr struct {
  std::string_view name;
  double seconds;
} Units[] = {{"ms", 0.001}, {"s", 1}, {"m", 60}, {"h", 3600}, {"d", 86400}};

/// The number at the front of `text`, which it takes away. Nothing when there is none.
std::optional<double> TakeNumber(std::string_view& text) {
  const auto end = std::min(text.find_first_not_of(Digits), text.size());
  const std::string digits(text.substr(0, end));
  char* stop = nullptr;
  const double number = std::strtod(digits.c_str(), &stop);
  if (digits.empty() || *stop != '\0' || stop == digits.c_str()) return std::nullopt;
  text.remove_prefix(end);
  return number;
}

}  // namespace

std::optional<double> ParseSeconds(const std::string& text) {
  std::string_view rest = text;
  if (const auto number = TakeNumber(rest); number && rest.empty()) return number;
  rest = text;
  double seconds = 0;
  double before = std::numeric_limits<double>::infinity();
  do {
    const auto number = TakeNumber(rest);
    const auto name = rest.substr(0, std::min(rest.find_first_of(Digits), rest.size()));
    const auto* unit = std::find_if(std::begin(Units), std::end(Units),
                                    [&](const auto& known) { return known.name == name; });
    if (!number || unit == std::end(Units) || unit->seconds >= before) return std::nullopt;
    before = unit->seconds;
    seconds += *number * before;
    rest.remove_prefix(name.size());
  } while (!rest.empty());
  return seconds;
}

CLI::Option* AddSeconds(CLI::App& app, const std::string& name, double& seconds,
                        const SecondsRange& range, const std::string& description) {
  return app
      .add_option_function<std::string>(
          name,
          [name, &seconds, range](const std::string& text) {
            const auto read = ParseSeconds(text);
            if (!read) {
              throw CLI::ValidationError(
                  name, "\"" + text + "\" is no time: 90, 2.5s, 500ms and 1h30m are");
            }
            const bool low = range.positive ? *read <= 0 : *read < range.low;
            if (low || (range.high > 0 && *read > range.high)) {
              throw CLI::ValidationError(
                  name, "\"" + text + "\" is out of range: " +
                            (range.positive ? "more than 0 s"
                                            : fmt::format("{} s to {} s", range.low, range.high)) +
                            " is expected");
            }
            seconds = *read;
          },
          description)
      ->type_name("TIME");
}

void AddKeyFile(CLI::App& app, KeyOptions& options) {
  app.add_option("--key-file", options.file,
                 "A file whose first line is the stream key: it goes behind every address that\n"
                 "ends behind its application, as rtmp://HOST/APPLICATION/ does")
      ->type_name("FILE");
}

Result<std::string> KeyOf(const KeyOptions& options) {
  if (!options.file.empty()) return publication::ReadKey(options.file);
  const char* key = std::getenv(KeyVariable);
  return std::string(key ? key : "");
}

}  // namespace nimbo::cli
