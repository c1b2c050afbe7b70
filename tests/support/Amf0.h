#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// One value of the Action Message Format, version 0.
struct AmfValue {
  enum class Kind { Number, Boolean, String, Object, Null, Undefined };

  Kind kind = Kind::Undefined;
  double number = 0;
  bool boolean = false;
  std::string text;
  std::vector<std::pair<std::string, AmfValue>> members;  ///< of an object or an ECMA array

  AmfValue() = default;
  AmfValue(double value) : kind(Kind::Number), number(value) {}
  AmfValue(bool value) : kind(Kind::Boolean), boolean(value) {}
  AmfValue(const char* value) : kind(Kind::String), text(value) {}
  AmfValue(std::vector<std::pair<std::string, AmfValue>> value)
      : kind(Kind::Object), members(std::move(value)) {}
  static AmfValue Null();

  /// The text of an object's member; empty when there is none.
  std::string Text(const std::string& member) const;
};

/// Reads all values of a command message. False when the bytes are no AMF0.
bool DecodeAmf(const Bytes& bytes, std::vector<AmfValue>& values);

Bytes EncodeAmf(const std::vector<AmfValue>& values);

}  // namespace nimbo::test
