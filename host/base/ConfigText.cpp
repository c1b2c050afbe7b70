#include "host/base/ConfigText.h"

#include <algorithm>

#include "base/reflect/Line.h"
#include "nimbo/base/names.h"

namespace nimbo::base {
namespace {

constexpr std::size_t End = std::string::npos;
/// Quoted pieces are cut here, which also keeps what is secret in a long URL off the console.
constexpr std::size_t QuoteLimit = 32;
/// Stands before the name of a source in a `connect` text.
constexpr const char* ConnectPrefix = "pv:";

constexpr const char* ExpectSetting = "KEY=VALUE is expected";
constexpr const char* ExpectEntry = "CLASS, CLASS:KEY=VALUE,... or type=CLASS,... is expected";
constexpr const char* ExpectConnect = "pv:NAME or pv:NAME,KEY=VALUE,... is expected";
constexpr const char* ExpectType = "an entry without a class needs a type=CLASS";
constexpr const char* SecondType = "the entry names its class twice";
constexpr const char* OpenBrace = "this brace is never closed";
constexpr const char* BehindBrace = "nothing but a separator may follow a closing brace";
constexpr const char* StrayBrace = "braces must enclose a value as a whole";
constexpr const char* ZeroByte = "the text holds a zero byte";

bool IsKey(const std::string& key, const char* name) { return Hash(key.c_str()) == Hash(name); }

std::string Trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(ConfigBlanks);
  if (first == End) return {};
  return text.substr(first, text.find_last_not_of(ConfigBlanks) + 1 - first);
}

/// Reads one level of text from left to right. The first fault ends it and is described in Error().
class Reader {
 public:
  /// `joined`: the level holds entries joined by "+".
  Reader(const std::string& text, bool joined) : _text(text), _joined(joined) {}

  bool Entries(std::vector<ConfigEntry>& entries);
  bool Attributes(std::vector<AttrSet::Entry>& settings);
  bool Connect(ConnectText& connect);
  const std::string& Error() const noexcept { return _error; }

 private:
  bool Settings(std::vector<AttrSet::Entry>& settings);
  bool Entry(ConfigEntry& entry);
  bool Setting(AttrSet::Entry& setting);
  bool Braced(std::string& value);
  bool Unbraced(std::size_t from, std::string& value);

  bool AtEnd() const { return _at >= _text.size(); }
  bool AtJoint() const { return _joined && !AtEnd() && _text[_at] == '+'; }
  void SkipBlanks() { _at = std::min(_text.find_first_not_of(ConfigBlanks, _at), _text.size()); }
  /// Where a piece that starts at `from` ends, were it in order.
  std::size_t PieceEnd(std::size_t from) const {
    return std::min(_text.find_first_of(_joined ? ",+" : ",", from), _text.size());
  }
  std::string Cut(std::size_t from, std::size_t to) const {
    return Trimmed(_text.substr(from, to - from));
  }
  bool NoZeroByte() {
    const std::size_t zero = _text.find('\0');
    return zero == End || Fault(zero, zero + 1, ZeroByte);
  }
  bool Fault(std::size_t from, std::size_t to, const char* reason);

  const std::string& _text;
  const bool _joined;
  std::size_t _at = 0;
  std::string _error;
};

bool Reader::Fault(std::size_t from, std::size_t to, const char* reason) {
  std::string piece = _text.substr(from, to - from);
  if (piece.size() > QuoteLimit) piece.replace(QuoteLimit, End, "...");
  // What comes from outside must not steer the terminal.
  constexpr unsigned char FirstPrintable = 0x20, Delete = 0x7F;
  std::replace_if(
      piece.begin(), piece.end(),
      [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < FirstPrintable || byte == Delete;
      },
      '?');
  ostream_string out(_error);
  out << "\"" << piece << "\" at byte " << static_cast<unsigned long>(from) << ": " << reason;
  return false;
}

bool Reader::Braced(std::string& value) {
  const std::size_t open = _at;
  std::size_t depth = 0;
  do {
    _at = _text.find_first_of("{}", _at);
    if (_at == End) return Fault(open, _text.size(), OpenBrace);
    depth = _text[_at] == '{' ? depth + 1 : depth - 1;
    ++_at;
  } while (depth > 0);
  value = _text.substr(open + 1, _at - open - 2);
  SkipBlanks();
  if (AtEnd() || AtJoint() || _text[_at] == ',') return true;
  return Fault(_at, PieceEnd(_at), BehindBrace);
}

bool Reader::Unbraced(std::size_t from, std::string& value) {
  const std::size_t stop =
      std::min(_text.find_first_of(_joined ? ",+{}" : ",{}", _at), _text.size());
  if (stop < _text.size() && (_text[stop] == '{' || _text[stop] == '}')) {
    return Fault(from, PieceEnd(stop), StrayBrace);
  }
  value = Cut(_at, stop);
  _at = stop;
  return true;
}

bool Reader::Setting(AttrSet::Entry& setting) {
  SkipBlanks();
  const std::size_t from = _at;
  const std::size_t sign = _text.find_first_of("=,+:{}", from);
  if (sign == End || _text[sign] != '=' || sign == from) {
    return Fault(from, PieceEnd(from), ExpectSetting);
  }
  setting.first = Cut(from, sign);
  _at = sign + 1;
  const std::size_t start = _at;
  SkipBlanks();
  if (!AtEnd() && _text[_at] == '{') return Braced(setting.second);
  if (!IsUrlKey(setting.first)) return Unbraced(from, setting.second);
  setting.second = _text.substr(start);
  _at = _text.size();
  return true;
}

bool Reader::Attributes(std::vector<AttrSet::Entry>& settings) {
  if (!NoZeroByte()) return false;
  SkipBlanks();
  return AtEnd() || Settings(settings);
}

bool Reader::Settings(std::vector<AttrSet::Entry>& settings) {
  for (;;) {
    AttrSet::Entry setting;
    if (!Setting(setting)) return false;
    settings.push_back(std::move(setting));
    if (AtEnd() || AtJoint()) return true;
    ++_at;  // the ","
  }
}

bool Reader::Entry(ConfigEntry& entry) {
  SkipBlanks();
  const std::size_t from = _at;
  const std::size_t sign = std::min(_text.find_first_of(":=,+{}", from), _text.size());
  const char kind = sign < _text.size() ? _text[sign] : '+';
  entry.position = from;
  entry.element = kind != '=';
  if (entry.element) {
    entry.type = Cut(from, sign);
    if (entry.type.empty() || (kind != ':' && kind != '+')) {
      return Fault(from, PieceEnd(from), ExpectEntry);
    }
    _at = kind == ':' ? sign + 1 : sign;
  }
  if (kind == ':' || kind == '=') {
    std::vector<AttrSet::Entry> settings;
    if (!Settings(settings)) return false;
    for (const auto& [key, value] : settings) {
      if (!IsKey(key, "type")) {
        entry.settings.Set(key.c_str(), value.c_str());
      } else if (entry.type.empty()) {
        entry.type = value;
      } else {
        return Fault(from, _at, SecondType);
      }
    }
  }
  if (entry.type.empty()) return Fault(from, _at, ExpectType);
  entry.text = Cut(from, _at);
  return true;
}

bool Reader::Entries(std::vector<ConfigEntry>& entries) {
  if (!NoZeroByte()) return false;
  SkipBlanks();
  if (AtEnd()) return true;
  for (;;) {
    ConfigEntry entry;
    if (!Entry(entry)) return false;
    entries.push_back(std::move(entry));
    if (AtEnd()) return true;
    ++_at;  // the "+"
  }
}

bool Reader::Connect(ConnectText& connect) {
  if (!NoZeroByte()) return false;
  SkipBlanks();
  const std::string prefix = ConnectPrefix;
  if (_text.compare(_at, prefix.size(), prefix) != 0) {
    return Fault(_at, PieceEnd(_at), ExpectConnect);
  }
  const std::size_t from = _at + prefix.size();
  const std::size_t stop = PieceEnd(from);
  connect.name = Cut(from, stop);
  if (connect.name.empty() || connect.name.find_first_of("=+:{}") != End) {
    return Fault(_at, stop, ExpectConnect);
  }
  _at = stop;
  if (AtEnd()) return true;
  ++_at;  // the ","
  std::vector<AttrSet::Entry> options;
  if (!Settings(options)) return false;
  for (const auto& [key, value] : options) connect.options.Set(key.c_str(), value.c_str());
  return true;
}

}  // namespace

bool IsUrlKey(const std::string& key) { return IsKey(key, "url"); }

bool ParseConfiguration(const std::string& text, std::vector<ConfigEntry>& entries) {
  entries.clear();
  Reader reader(text, true);
  if (reader.Entries(entries)) return true;
  entries.clear();
  Line(Colour::Red) << "configuration: " << reader.Error();
  return false;
}

bool ParseAttributes(const std::string& text, std::vector<AttrSet::Entry>& entries,
                     std::string& error) {
  entries.clear();
  Reader reader(text, false);
  if (reader.Attributes(entries)) return true;
  entries.clear();
  error = reader.Error();
  return false;
}

bool ParseConnect(const std::string& text, ConnectText& connect) {
  connect = {};
  Reader reader(text, false);
  if (reader.Connect(connect)) return true;
  connect = {};
  Line(Colour::Red) << "connect: " << reader.Error();
  return false;
}

}  // namespace nimbo::base
