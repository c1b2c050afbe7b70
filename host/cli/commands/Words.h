#pragma once

#include <string>
#include <vector>

#include "common/Status.h"

namespace nimbo::cli {

/// Takes the first word off `text`: what stands before the first blank. `text` keeps the rest
/// without blanks at its ends.
std::string TakeWord(std::string& text);

/// Splits `text` at blanks. A word in quotation marks or in braces is taken without them; inside
/// quotation marks `\"` and `\\` stand for themselves, braces nest and keep what is in them as it
/// is. Braces inside a word belong to it, with the blanks that they hold, so that configuration
/// texts need no quoting. Fails when a quotation mark or brace is not closed.
Result<std::vector<std::string>> SplitWords(const std::string& text);

}  // namespace nimbo::cli
