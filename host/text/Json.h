#pragma once

#include <string>
#include <utility>
#include <vector>

namespace nimbo::cli {

/// Pieces of JSON (RFC 8259), without line breaks. Values are pieces themselves.
using JsonMember = std::pair<const char*, std::string>;

std::string JsonText(const std::string& text);
std::string JsonBool(bool value);
std::string JsonArray(const std::vector<std::string>& values);
std::string JsonObject(const std::vector<JsonMember>& members);
/// An array of texts.
std::string JsonTexts(const std::vector<std::string>& texts);

/// `text` with "?" for every byte that is not part of a UTF-8 character (RFC 3629).
std::string Utf8(const std::string& text);

}  // namespace nimbo::cli
