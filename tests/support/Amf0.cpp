#include "tests/support/Amf0.h"

#include <cstring>

namespace nimbo::test {
namespace {

enum Marker : unsigned char {
  NumberMarker = 0,
  BooleanMarker = 1,
  StringMarker = 2,
  ObjectMarker = 3,
  NullMarker = 5,
  UndefinedMarker = 6,
  EcmaArrayMarker = 8,
  ObjectEndMarker = 9,
};

class Decoder {
 public:
  explicit Decoder(const Bytes& bytes) : _at(bytes.data()), _end(bytes.data() + bytes.size()) {}

  bool AtEnd() const { return _at == _end; }

  bool Value(AmfValue& value) {
    if (!Has(1)) return false;
    switch (*_at++) {
      case NumberMarker: {
        if (!Has(8)) return false;
        const std::uint64_t high = ReadBig(_at, 4);
        const std::uint64_t bits = (high << 32) | ReadBig(_at + 4, 4);
        _at += 8;
        value.kind = AmfValue::Kind::Number;
        std::memcpy(&value.number, &bits, sizeof bits);
        return true;
      }
      case BooleanMarker:
        if (!Has(1)) return false;
        value = AmfValue(*_at++ != 0);
        return true;
      case StringMarker:
        value.kind = AmfValue::Kind::String;
        return String(value.text);
      case EcmaArrayMarker:
        if (!Has(4)) return false;
        _at += 4;
        [[fallthrough]];
      case ObjectMarker:
        value.kind = AmfValue::Kind::Object;
        return Members(value);
      case NullMarker:
        value.kind = AmfValue::Kind::Null;
        return true;
      case UndefinedMarker:
        return true;
      default:
        return false;
    }
  }

 private:
  bool Has(std::ptrdiff_t size) const { return _end - _at >= size; }

  bool String(std::string& text) {
    if (!Has(2)) return false;
    const auto size = static_cast<std::ptrdiff_t>(ReadBig(_at, 2));
    _at += 2;
    if (!Has(size)) return false;
    text.assign(_at, _at + size);
    _at += size;
    return true;
  }

  bool Members(AmfValue& value) {
    for (;;) {
      std::string name;
      if (!String(name)) return false;
      if (name.empty()) return Has(1) && *_at++ == ObjectEndMarker;
      AmfValue member;
      if (!Value(member)) return false;
      value.members.emplace_back(std::move(name), std::move(member));
    }
  }

  const unsigned char* _at;
  const unsigned char* _end;
};

void EncodeText(const std::string& text, Bytes& out) {
  AppendBig(out, text.size(), 2);
  out.insert(out.end(), text.begin(), text.end());
}

void Encode(const AmfValue& value, Bytes& out) {
  switch (value.kind) {
    case AmfValue::Kind::Number: {
      std::uint64_t bits = 0;
      std::memcpy(&bits, &value.number, sizeof bits);
      out.push_back(NumberMarker);
      return AppendBig(out, bits, 8);
    }
    case AmfValue::Kind::Boolean:
      out.push_back(BooleanMarker);
      return out.push_back(value.boolean);
    case AmfValue::Kind::String:
      out.push_back(StringMarker);
      return EncodeText(value.text, out);
    case AmfValue::Kind::Object:
      out.push_back(ObjectMarker);
      for (const auto& [name, member] : value.members) {
        EncodeText(name, out);
        Encode(member, out);
      }
      EncodeText("", out);
      return out.push_back(ObjectEndMarker);
    case AmfValue::Kind::Null:
      return out.push_back(NullMarker);
    case AmfValue::Kind::Undefined:
      return out.push_back(UndefinedMarker);
  }
}

}  // namespace

AmfValue AmfValue::Null() {
  AmfValue value;
  value.kind = Kind::Null;
  return value;
}

std::string AmfValue::Text(const std::string& member) const {
  for (const auto& [name, value] : members) {
    if (name == member) return value.text;
  }
  return "";
}

bool DecodeAmf(const Bytes& bytes, std::vector<AmfValue>& values) {
  Decoder decoder(bytes);
  while (!decoder.AtEnd()) {
    AmfValue value;
    if (!decoder.Value(value)) return false;
    values.push_back(std::move(value));
  }
  return true;
}

Bytes EncodeAmf(const std::vector<AmfValue>& values) {
  Bytes out;
  for (const AmfValue& value : values) Encode(value, out);
  return out;
}

}  // namespace nimbo::test
