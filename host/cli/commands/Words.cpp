#include "host/cli/commands/Words.h"

#include "host/text/Text.h"

namespace nimbo::cli {

namespace {

using text::Blanks;
using text::Trimmed;

bool IsBlank(char character) { return Blanks.find(character) != std::string_view::npos; }

/// The position behind the brace that closes the one at `start`; npos when there is none.
std::size_t BehindBraces(const std::string& text, std::size_t start) {
  int depth = 0;
  for (std::size_t at = start; at < text.size(); ++at) {
    if (text[at] == '{') ++depth;
    if (text[at] == '}' && --depth == 0) return at + 1;
  }
  return std::string::npos;
}

/// Reads the quoted word at `at` and moves `at` behind it. False when it is not closed.
bool TakeQuoted(const std::string& text, std::size_t& at, std::string& word) {
  for (++at; at < text.size(); ++at) {
    if (text[at] == '"') {
      ++at;
      return true;
    }
    const bool escaped =
        text[at] == '\\' && at + 1 < text.size() && (text[at + 1] == '"' || text[at + 1] == '\\');
    word += text[escaped ? ++at : at];
  }
  return false;
}

/// Reads a word that is not quoted. False when a brace in it is not closed.
bool TakePlain(const std::string& text, std::size_t& at, std::string& word) {
  const auto start = at;
  bool onlyBraces = text[at] == '{';
  while (at < text.size() && !IsBlank(text[at])) {
    if (text[at] != '{') {
      onlyBraces = false;
      ++at;
      continue;
    }
    if (at != start) onlyBraces = false;
    at = BehindBraces(text, at);
    if (at == std::string::npos) return false;
  }
  word = onlyBraces ? text.substr(start + 1, at - start - 2) : text.substr(start, at - start);
  return true;
}

}  // namespace

std::string TakeWord(std::string& text) {
  text = Trimmed(text);
  const auto end = text.find_first_of(Blanks);
  auto word = text.substr(0, end);
  text = end == std::string::npos ? std::string() : Trimmed(text.substr(end));
  return word;
}

Result<std::vector<std::string>> SplitWords(const std::string& text) {
  std::vector<std::string> words;
  std::size_t at = 0;
  while ((at = text.find_first_not_of(Blanks, at)) != std::string::npos) {
    const auto start = at;
    std::string word;
    if (!(text[at] == '"' ? TakeQuoted : TakePlain)(text, at, word)) {
      return Status::Failed("not closed: " + text.substr(start));
    }
    words.push_back(std::move(word));
  }
  return words;
}

}  // namespace nimbo::cli
