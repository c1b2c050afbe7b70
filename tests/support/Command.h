#pragma once

#include <string>
#include <vector>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// A command message, in the Action Message Format, version 0.
struct Command {
  std::string name;
  double transaction = 0;
  std::vector<std::string> texts;  ///< its strings behind the name; those of objects as "KEY=TEXT"
};

/// Without a name when the bytes are no command.
Command DecodeCommand(const Bytes& body);

/// The end of an answer: a number, or what a server says about a request.
Bytes EncodeNumber(double number);
Bytes EncodeInformation(const std::string& level, const std::string& code);
Bytes EncodeCommand(const std::string& name, double transaction, const Bytes& end);

}  // namespace nimbo::test
