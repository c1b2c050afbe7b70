#pragma once

#include <string>
#include <vector>

namespace nimbo::cli {

/// Takes the first word off `text`: what stands before the first blank. `text` keeps the rest
/// without blanks at its ends.
std::string TakeWord(std::string& text);

/// Splits `text` at blanks. A word in quotation marks or in braces is taken without them; inside
/// quotation marks `\"` and `\\` stand for themselves, braces nest and keep what is in them as it
/// is. Braces inside a word belong to it, with the blanks that they hold, so that configuration
/// texts need no quoting. False, with the reason in `error`, when a quotation mark or brace is not
/// closed; `words` is then empty.
bool SplitWords(const std::string& text, std::vector<std::string>& words, std::string& error);

}  // namespace nimbo::cli
