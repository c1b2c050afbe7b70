#pragma once

#include <string>
#include <utility>
#include <vector>

#include "nimbo/base/api.h"

namespace nimbo::base {

/// An ordered set of keys with text values: what configuration texts, shell commands and
/// whole-object settings are exchanged as. Its text form is `key=value,...`; a value that holds one
/// of `,=+:{}` or blanks at an end stands in braces, a "url" always does. Keys are compared as Hash
/// does. There is no text form for a value whose braces do not match; such a text cannot be parsed.
class NIMBO_API AttrSet {
 public:
  AttrSet() = default;
  /// [any] Reads a text form; a null text is an empty set; the last value of a key counts. What
  /// cannot be parsed is told in one console line that quotes the piece and its position, and
  /// leaves an empty set, which no object takes.
  explicit AttrSet(const char* text);

  /// [any] The value of `key`, or null when there is none. Stays valid until the set is changed.
  const char* Get(const char* key) const;
  /// [any] Replaces the value of `key`, or appends it. A null value removes it.
  void Set(const char* key, const char* value);
  /// [any] The text form; with `lines` one entry a line, each ended by a newline, without braces.
  std::string ToString(bool lines) const;

 private:
  friend class nimbo::Framework;
  std::vector<std::pair<std::string, std::string>> _entries;
  bool _valid = true;
};

}  // namespace nimbo::base
