#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nimbo::text {

/// What stands between words.
constexpr std::string_view Blanks = " \t\r\n";

/// `text` without the bytes of `blanks` at its ends.
inline std::string Trimmed(std::string_view text, std::string_view blanks = Blanks) {
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return std::string(text.substr(first, text.find_last_not_of(blanks) + 1 - first));
}

inline std::string Joined(const std::vector<std::string>& texts,
                          std::string_view separator = ", ") {
  std::string joined;
  for (const auto& text : texts) {
    if (&text != &texts.front()) joined += separator;
    joined += text;
  }
  return joined;
}

}  // namespace nimbo::text
