#include "plugin/bytes/Amf0.h"

#include <cstdint>
#include <cstring>

namespace nimbo::plugin {

bool Amf0Reader::Take(std::size_t size, const unsigned char*& bytes) {
  if (_left.size < size) return false;
  bytes = _left.data;
  _left = {_left.data + size, _left.size - size};
  return true;
}

bool Amf0Reader::Unsigned(std::size_t size, std::size_t& value) {
  const unsigned char* bytes = nullptr;
  if (!Take(size, bytes)) return false;
  value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value << 8 | bytes[i];
  return true;
}

bool Amf0Reader::Text(std::size_t lengthSize, std::string_view& text) {
  std::size_t length = 0;
  const unsigned char* bytes = nullptr;
  if (!Unsigned(lengthSize, length) || !Take(length, bytes)) return false;
  text = {reinterpret_cast<const char*>(bytes), length};
  return true;
}

bool Amf0Reader::ReadValue(Amf0Value& value, const Visitor& visit, int depth) {
  constexpr std::size_t DateSize = 10;
  const unsigned char* bytes = nullptr;
  if (depth > MaxDepth || !Take(1, bytes)) return false;
  value = {static_cast<Amf0Type>(*bytes), 0, {}};
  switch (value.type) {
    case Amf0Type::Number: {
      if (!Take(sizeof(double), bytes)) return false;
      std::uint64_t bits = 0;
      for (std::size_t i = 0; i < sizeof bits; ++i) bits = bits << 8 | bytes[i];
      std::memcpy(&value.number, &bits, sizeof bits);
      return true;
    }
    case Amf0Type::Boolean:
      return Take(1, bytes);
    case Amf0Type::String:
      return Text(2, value.text);
    case Amf0Type::LongString:
      return Text(4, value.text);
    case Amf0Type::Null:
    case Amf0Type::Undefined:
      return true;
    case Amf0Type::Date:
      return Take(DateSize, bytes);
    case Amf0Type::EcmaArray:
    case Amf0Type::Object:
    case Amf0Type::StrictArray: {
      const Bytes before = _left;
      // An array of properties has a count that writers may get wrong, then it is as an object.
      const bool counted = value.type == Amf0Type::EcmaArray;
      if (counted && !Take(4, bytes)) return false;
      const bool read = value.type == Amf0Type::StrictArray ? ReadElements(visit, depth + 1)
                                                            : ReadProperties(visit, depth + 1);
      value.text = {reinterpret_cast<const char*>(before.data), before.size - _left.size};
      return read;
    }
    default:
      return false;
  }
}

bool Amf0Reader::ReadProperties(const Visitor& visit, int depth) {
  for (;;) {
    std::string_view name;
    if (!Text(2, name)) return false;
    const bool last = name.empty() && _left.size > 0 &&
                      *_left.data == static_cast<unsigned char>(Amf0Type::ObjectEnd);
    if (last) {
      const unsigned char* end = nullptr;
      return Take(1, end);
    }
    Amf0Value value;
    if (!ReadValue(value, visit, depth)) return false;
    if (visit) visit(depth, name, value);
  }
}

bool Amf0Reader::ReadElements(const Visitor& visit, int depth) {
  std::size_t count = 0;
  if (!Unsigned(4, count)) return false;
  Amf0Value value;
  while (count-- > 0) {
    // Every element takes a byte, so a count without elements ends soon.
    if (!ReadValue(value, visit, depth)) return false;
  }
  return true;
}

namespace {

/// The codecs in a property of the answer to "connect": a list of their names, or an object that
/// has a property of each name.
void ReadFourCcs(const Amf0Value& value, std::vector<std::string_view>& codecs) {
  Bytes bytes = {reinterpret_cast<const unsigned char*>(value.text.data()), value.text.size()};
  if (value.type == Amf0Type::StrictArray) {
    constexpr std::size_t CountSize = 4;
    Amf0Reader reader({bytes.data + CountSize, bytes.size - CountSize});
    Amf0Value one;
    while (!reader.AtEnd() && reader.Read(one)) {
      if (one.type == Amf0Type::String) codecs.push_back(one.text);
    }
  } else if (value.type == Amf0Type::Object) {
    // The type stands right in front of what it tells of.
    Amf0Reader reader({bytes.data - 1, bytes.size + 1});
    Amf0Value whole;
    static_cast<void>(
        reader.Read(whole, [&codecs](int depth, std::string_view name, const Amf0Value&) {
          if (depth == 1) codecs.push_back(name);
        }));
  }
}

}  // namespace

bool ReadCommand(Bytes body, ServerCommand& command) {
  constexpr int NameAt = 0;
  constexpr int TransactionAt = 1;
  constexpr int InformationAt = 3;
  command = {};
  Amf0Reader reader(body);
  int at = NameAt;
  const auto visit = [&command, &at](int depth, std::string_view name, const Amf0Value& value) {
    const bool text = value.type == Amf0Type::String || value.type == Amf0Type::LongString;
    if (name == "secureToken" && command.secureToken == -1) {
      command.secureToken = text ? static_cast<long>(value.text.size()) : -2;
    }
    if (depth != 1) return;
    if (name == "fourCcList" || name == "videoFourCcInfoMap" || name == "audioFourCcInfoMap") {
      ReadFourCcs(value, command.fourCcs);
    }
    if (at != InformationAt || !text) return;
    if (name == "tcUrl") command.tcUrl = value.text;
    if (name == "level") command.level = value.text;
    if (name == "code") command.code = value.text;
    if (name == "description") command.description = value.text;
  };
  for (; !reader.AtEnd(); ++at) {
    Amf0Value value;
    if (!reader.Read(value, visit)) return false;
    if (at == NameAt) {
      if (value.type != Amf0Type::String) return false;
      command.name = value.text;
    } else if (at == TransactionAt) {
      if (value.type != Amf0Type::Number) return false;
      command.transaction = value.number;
    } else if (at == InformationAt && value.type == Amf0Type::Number) {
      command.hasNumber = true;
      command.number = value.number;
    }
  }
  return at > TransactionAt;
}

}  // namespace nimbo::plugin
