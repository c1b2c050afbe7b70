#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "plugin/bytes/Bytes.h"

/// Reading what a peer says in AMF0 (Action Message Format 0, 2): every length is checked, nesting
/// is bounded. Views point into the bytes that were read.
namespace nimbo::plugin {

enum class Amf0Type : unsigned char {
  Number = 0,
  Boolean = 1,
  String = 2,
  Object = 3,
  Null = 5,
  Undefined = 6,
  EcmaArray = 8,
  ObjectEnd = 9,
  StrictArray = 10,
  Date = 11,
  LongString = 12,
};

struct Amf0Value {
  Amf0Type type = Amf0Type::Undefined;
  double number = 0;      ///< of a number
  std::string_view text;  ///< of a string; of all that holds other values the bytes of them
};

class Amf0Reader {
 public:
  /// Told of each property inside an object: how deep it lies (1 in the outermost), name and value.
  using Visitor = std::function<void(int depth, std::string_view name, const Amf0Value& value)>;

  explicit Amf0Reader(Bytes bytes) : _left(bytes) {}

  bool AtEnd() const { return _left.size == 0; }
  /// Reads one value of any type whole, with everything inside it. False when it is not whole, of a
  /// type that commands have no use for, or nested too deep.
  bool Read(Amf0Value& value, const Visitor& visit = {}) { return ReadValue(value, visit, 0); }

 private:
  static constexpr int MaxDepth = 8;

  bool Take(std::size_t size, const unsigned char*& bytes);
  bool Unsigned(std::size_t size, std::size_t& value);
  bool Text(std::size_t lengthSize, std::string_view& text);
  bool ReadValue(Amf0Value& value, const Visitor& visit, int depth);
  bool ReadProperties(const Visitor& visit, int depth);
  bool ReadElements(const Visitor& visit, int depth);

  Bytes _left;
};

/// A command that a server sends (RTMP 1.0, 7.2): a name, the number of the call that it answers,
/// and what it says about it.
struct ServerCommand {
  std::string_view name;
  double transaction = 0;
  /// Of the information object behind the command object (RTMP 1.0, 7.2.2); may be empty.
  std::string_view level;
  std::string_view code;
  std::string_view description;
  /// The fourth value, where it is a number: the answer to "createStream".
  bool hasNumber = false;
  double number = 0;
  /// Where the client is asked to connect instead (Enhanced RTMP v2, reconnect request).
  std::string_view tcUrl;
  /// The codecs that the server says it takes (Enhanced RTMP, connect); "*" is any.
  std::vector<std::string_view> fourCcs;
  /// Length of a property "secureToken" at any depth: -1 when there is none, -2 when it is no text.
  long secureToken = -1;
};

/// Reads a command message's body. False when it is not one from its first byte to its last.
bool ReadCommand(Bytes body, ServerCommand& command);

}  // namespace nimbo::plugin
