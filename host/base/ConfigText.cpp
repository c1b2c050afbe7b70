#include "host/base/ConfigText.h"

#include <algorithm>

#include "host/base/Console.h"
#include "host/text/Text.h"
#include "nimbo/base/names.h"

namespace nimbo::base {

namespace {

constexpr std::size_t End = std::string::npos;
/// Pieces that are shown are cut here.
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

/// Reads one level of text from left to right. The first fault ends it and is described in Error().
class Reader {
 public:
  /// `joined`: the level holds entries joined by "+".
  Reader(const std::string& text, bool joined) : _text(text), _joined(joined) {}

  bool Entries(std::vector<ConfigEntry>& entries);
  bool Attributes(std::vector<ConfigSetting>& settings);
  bool Connect(ConnectText& connect);
  const std::string& Error() const noexcept { return _error; }

 private:
  bool Settings(std::vector<ConfigSetting>& settings);
  bool Entry(ConfigEntry& entry);
  bool Setting(ConfigSetting& setting);
  bool Braced(ConfigSetting& setting);
  bool Unbraced(ConfigSetting& setting);

  bool AtEnd() const { return _at >= _text.size(); }
  bool AtJoint() const { return _joined && !AtEnd() && _text[_at] == '+'; }
  void SkipBlanks() { _at = std::min(_text.find_first_not_of(ConfigBlanks, _at), _text.size()); }
  /// Where a piece that starts at `from` ends, were it in order.
  std::size_t PieceEnd(std::size_t from) const {
    return std::min(_text.find_first_of(_joined ? ",+" : ",", from), _text.size());
  }
  std::string Cut(std::size_t from, std::size_t to) const {
    return text::Trimmed(std::string_view(_text).substr(from, to - from), ConfigBlanks);
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
  _error = QuotePiece(_text.substr(from, to - from), from) + ": " + reason;
  return false;
}

bool Reader::Braced(ConfigSetting& setting) {
  const std::size_t open = _at;
  std::size_t depth = 0;
  do {
    _at = _text.find_first_of("{}", _at);
    if (_at == End) return Fault(open, _text.size(), OpenBrace);
    depth = _text[_at] == '{' ? depth + 1 : depth - 1;
    ++_at;
  } while (depth > 0);
  setting.valuePosition = open + 1;
  setting.value = _text.substr(open + 1, _at - open - 2);
  SkipBlanks();
  if (AtEnd() || AtJoint() || _text[_at] == ',') return true;
  return Fault(_at, PieceEnd(_at), BehindBrace);
}

bool Reader::Unbraced(ConfigSetting& setting) {
  const std::size_t stop =
      std::min(_text.find_first_of(_joined ? ",+{}" : ",{}", _at), _text.size());
  if (stop < _text.size() && (_text[stop] == '{' || _text[stop] == '}')) {
    return Fault(setting.position, PieceEnd(stop), StrayBrace);
  }
  setting.valuePosition = _at;
  setting.value = Cut(_at, stop);
  _at = stop;
  return true;
}

bool Reader::Setting(ConfigSetting& setting) {
  SkipBlanks();
  const std::size_t from = _at;
  const std::size_t sign = _text.find_first_of("=,+:{}", from);
  if (sign == End || _text[sign] != '=' || sign == from) {
    return Fault(from, PieceEnd(from), ExpectSetting);
  }
  setting.position = from;
  setting.key = Cut(from, sign);
  _at = sign + 1;
  const std::size_t start = _at;
  SkipBlanks();
  if (!AtEnd() && _text[_at] == '{') return Braced(setting);
  if (!IsUrlKey(setting.key)) return Unbraced(setting);
  setting.valuePosition = start;
  setting.value = _text.substr(start);
  _at = _text.size();
  return true;
}

bool Reader::Attributes(std::vector<ConfigSetting>& settings) {
  if (!NoZeroByte()) return false;
  SkipBlanks();
  return AtEnd() || Settings(settings);
}

bool Reader::Settings(std::vector<ConfigSetting>& settings) {
  for (;;) {
    ConfigSetting setting;
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
    entry.typePosition = from;
    if (entry.type.empty() || (kind != ':' && kind != '+')) {
      return Fault(from, PieceEnd(from), ExpectEntry);
    }
    _at = kind == ':' ? sign + 1 : sign;
  }
  if (kind == ':' || kind == '=') {
    std::vector<ConfigSetting> settings;
    if (!Settings(settings)) return false;
    for (ConfigSetting& setting : settings) {
      if (!IsKey(setting.key, "type")) {
        entry.settings.Set(setting.key.c_str(), setting.value.c_str());
        entry.written.push_back(std::move(setting));
      } else if (entry.type.empty()) {
        entry.type = setting.value;
        entry.typePosition = setting.valuePosition;
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
  std::vector<ConfigSetting> options;
  if (!Settings(options)) return false;
  for (const ConfigSetting& option : options) {
    connect.options.Set(option.key.c_str(), option.value.c_str());
  }
  return true;
}

}  // namespace

bool IsUrlKey(const std::string& key) { return IsKey(key, "url"); }

std::string Printable(std::string text) {
  constexpr unsigned char FirstPrintable = 0x20, Delete = 0x7F;
  const auto isControl = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < FirstPrintable || byte == Delete;
  };
  std::replace_if(text.begin(), text.end(), isControl, '?');
  return text;
}

std::string ShowPiece(std::string piece) {
  if (piece.size() > QuoteLimit) piece.replace(QuoteLimit, End, "...");
  return Printable(std::move(piece));
}

std::string QuotePiece(const std::string& piece, std::size_t position) {
  return "\"" + ShowPiece(piece) + "\" at byte " + std::to_string(position);
}

const ConfigSetting* ConfigEntry::Find(const char* key) const {
  const auto found = std::find_if(written.rbegin(), written.rend(),
                                  [key](const auto& setting) { return IsKey(setting.key, key); });
  return found == written.rend() ? nullptr : &*found;
}

bool ParseConfiguration(const std::string& text, std::vector<ConfigEntry>& entries) {
  entries.clear();
  Reader reader(text, true);
  if (reader.Entries(entries)) return true;
  entries.clear();
  return Refuse("configuration: ", reader.Error());
}

Result<std::vector<Attribute>> ParseAttributes(const std::string& text) {
  std::vector<ConfigSetting> settings;
  Reader reader(text, false);
  if (!reader.Attributes(settings)) return Status::Failed(reader.Error());
  std::vector<Attribute> entries;
  entries.reserve(settings.size());
  for (ConfigSetting& setting : settings) {
    entries.emplace_back(std::move(setting.key), std::move(setting.value));
  }
  return entries;
}

bool ParseConnect(const std::string& text, ConnectText& connect) {
  connect = {};
  Reader reader(text, false);
  if (reader.Connect(connect)) return true;
  connect = {};
  return Refuse("connect: ", reader.Error());
}

}  // namespace nimbo::base
