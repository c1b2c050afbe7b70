#include "nimbo/base/attr_set.h"

#include <algorithm>

#include "host/base/ConfigText.h"
#include "host/base/Console.h"
#include "nimbo/base/names.h"

namespace nimbo::base {

namespace {

template <class Entries>
auto Position(Entries& entries, const char* key) {
  const std::uint32_t id = Hash(key);
  return std::find_if(entries.begin(), entries.end(),
                      [id](const Attribute& entry) { return Hash(entry.first.c_str()) == id; });
}

bool NeedsBraces(const Attribute& entry) {
  const std::string& value = entry.second;
  if (value.empty()) return IsUrlKey(entry.first);
  const auto isBlank = [](char c) { return ConfigBlanks.find(c) != ConfigBlanks.npos; };
  return value.find_first_of(",=+:{}") != std::string::npos || isBlank(value.front()) ||
         isBlank(value.back()) || IsUrlKey(entry.first);
}

}  // namespace

AttrSet::AttrSet(const char* text) {
  if (!text) return;
  auto read = ParseAttributes(text);
  _valid = static_cast<bool>(read);
  if (!read) {
    Refuse("settings: ", read.Why());
    return;
  }
  for (const auto& [key, value] : *read) Set(key.c_str(), value.c_str());
}

const char* AttrSet::Get(const char* key) const {
  const auto found = Position(_entries, key);
  return found == _entries.end() ? nullptr : found->second.c_str();
}

void AttrSet::Set(const char* key, const char* value) {
  if (!key) return;
  const auto found = Position(_entries, key);
  if (found == _entries.end()) {
    if (value) _entries.emplace_back(key, value);
  } else if (value) {
    found->second = value;
  } else {
    _entries.erase(found);
  }
}

std::string AttrSet::ToString(bool lines) const {
  std::string text;
  for (const Attribute& entry : _entries) {
    const bool braces = !lines && NeedsBraces(entry);
    if (!lines && !text.empty()) text += ',';
    text.append(entry.first).append("=");
    if (braces) text += '{';
    text += entry.second;
    if (braces) text += '}';
    if (lines) text += '\n';
  }
  return text;
}

}  // namespace nimbo::base
