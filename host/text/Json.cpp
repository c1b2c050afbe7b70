#include "host/text/Json.h"

#include <array>
#include <cstdio>

namespace nimbo::cli {

namespace {

/// RFC 3629, 4: the bytes that characters of each length begin with, and the limits of the second
/// byte; all others are 80 to BF.
struct Sequence {
  unsigned char firstLow, firstHigh;
  unsigned char secondLow, secondHigh;
  std::size_t size;
};
constexpr Sequence Sequences[] = {
    {0x00, 0x7F, 0, 0, 1},       {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};

/// The size of the character at `at`; 0 when there is none.
std::size_t CharacterSize(const std::string& text, std::size_t at) {
  const auto within = [&text](std::size_t place, unsigned char low, unsigned char high) {
    const auto byte = place < text.size() ? static_cast<unsigned char>(text[place]) : 0;
    return byte >= low && byte <= high;
  };
  for (const Sequence& known : Sequences) {
    if (!within(at, known.firstLow, known.firstHigh)) continue;
    bool whole = known.size == 1 || within(at + 1, known.secondLow, known.secondHigh);
    for (std::size_t i = 2; i < known.size; ++i) whole = whole && within(at + i, 0x80, 0xBF);
    return whole ? known.size : 0;
  }
  return 0;
}

template <class Items, class Write>
std::string List(char open, const Items& items, char close, Write write) {
  std::string list(1, open);
  for (const auto& item : items) list += (list.size() > 1 ? "," : "") + write(item);
  return list + close;
}

}  // namespace

std::string Utf8(const std::string& text) {
  std::string clean;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t size = CharacterSize(text, at);
    clean += size == 0 ? "?" : text.substr(at, size);
    at += size == 0 ? 1 : size;
  }
  return clean;
}

std::string JsonText(const std::string& text) {
  constexpr unsigned char FirstPrintable = 0x20;
  std::string quoted = "\"";
  for (const char character : Utf8(text)) {
    const auto code = static_cast<unsigned char>(character);
    if (code < FirstPrintable) {
      std::array<char, sizeof "\\u0000"> escaped{};
      std::snprintf(escaped.data(), escaped.size(), "\\u%04x", code);
      quoted += escaped.data();
      continue;
    }
    if (character == '"' || character == '\\') quoted += '\\';
    quoted += character;
  }
  return quoted + "\"";
}

std::string JsonBool(bool value) { return value ? "true" : "false"; }

std::string JsonArray(const std::vector<std::string>& values) {
  return List('[', values, ']', [](const std::string& value) { return value; });
}

std::string JsonObject(const std::vector<JsonMember>& members) {
  return List('{', members, '}', [](const JsonMember& member) {
    return JsonText(member.first) + ":" + member.second;
  });
}

std::string JsonTexts(const std::vector<std::string>& texts) {
  return List('[', texts, ']', JsonText);
}

}  // namespace nimbo::cli
