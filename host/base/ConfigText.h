#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/Status.h"
#include "nimbo/base/attr_set.h"

namespace nimbo::base {

/// The bytes that do not count at the ends of keys, values and entries.
constexpr std::string_view ConfigBlanks = " \t\r\n\v\f";

/// True for the key whose unbraced value runs to the end of its level.
NIMBO_API bool IsUrlKey(const std::string& key);

/// How console lines show a text from outside: with "?" for control bytes, which must not steer the
/// terminal.
NIMBO_API std::string Printable(std::string text);
/// The same for a piece of a text, cut to 32 bytes, which also keeps what is secret in a long URL
/// off the console.
NIMBO_API std::string ShowPiece(std::string piece);
/// The beginning of a line about a piece that starts at byte `position`: `"PIECE" at byte N`.
NIMBO_API std::string QuotePiece(const std::string& piece, std::size_t position);

/// One `key=value` as it was written. Positions are in bytes of the text that was parsed.
struct ConfigSetting {
  std::string key;
  std::string value;
  std::size_t position = 0;       ///< of the key
  std::size_t valuePosition = 0;  ///< behind the opening brace, where there is one
};

/// One entry of a configuration text: `CLASS[:key=value,...]`, or `key=value,...` with a `type`.
struct ConfigEntry {
  std::string type;
  std::size_t typePosition = 0;  ///< where it stands in the text, in bytes
  AttrSet settings;          ///< without "type"; values in braces stand here verbatim, without them
  bool element = false;      ///< written in the form `CLASS...`
  std::size_t position = 0;  ///< where the entry starts in the text, in bytes
  std::string text;          ///< the entry as written
  std::vector<ConfigSetting> written;  ///< what `settings` was made of, in the order of the text

  /// The setting that counts for `key`, its last one; null when there is none.
  NIMBO_API const ConfigSetting* Find(const char* key) const;
};

/// Splits a configuration text into entries joined by "+". A value in braces is taken verbatim
/// (braces nest). An unbraced `url=` runs to the end of its level, so that "+", "," and "=" in a
/// URL survive. False, with one console line that quotes the piece and its position, when the text
/// cannot be parsed; `entries` is then empty. An empty text has no entries. [any]
NIMBO_API bool ParseConfiguration(const std::string& text, std::vector<ConfigEntry>& entries);

/// A key and its value, as an AttrSet keeps them.
using Attribute = std::pair<std::string, std::string>;

/// Splits `key=value,...` by the same rules; a "+" means nothing here. A failure is what AttrSet
/// prints: the piece in quotes, its position in bytes from 0, and what is wrong with it. [any]
NIMBO_API Result<std::vector<Attribute>> ParseAttributes(const std::string& text);

/// `pv:NAME[,key=value]...`, the form of a source's `connect` text.
struct ConnectText {
  std::string name;
  AttrSet options;
};
/// False with one console line, as above. [any]
NIMBO_API bool ParseConnect(const std::string& text, ConnectText& connect);

}  // namespace nimbo::base
