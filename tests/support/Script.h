#pragma once

#include <chrono>
#include <vector>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// Where in a connection's life something can happen.
enum class Point {
  Accepted,      ///< the TCP connection stands, nothing was read
  SecureLayer,   ///< the TLS handshake is done
  C0C1,          ///< received, not answered
  C2,            ///< received
  Connect,       ///< the command came, not answered
  CreateStream,  ///< the command came, not answered
  Publish,       ///< the command came, not answered
  Published,     ///< the publish was accepted
  Media,         ///< the count-th audio or video message came (from 1)
  ByteCount,     ///< count bytes were received in all
};

enum class Reaction {
  Refuse,  ///< answer the command with an error, then go on
  Mute,    ///< go on reading, never answer again
  Stall,   ///< neither read nor answer any more
  Close,   ///< end the connection in good order
  Reset,   ///< end the connection with a reset
  Send,    ///< send the rule's bytes, then go on
};

struct Rule {
  Point at;
  Reaction reaction;
  std::size_t count = 1;  ///< for Media and ByteCount
  Bytes bytes = {};       ///< for Send
};

/// How the server treats one connection. The empty script accepts everything, as a common server
/// does.
struct Script {
  std::vector<Rule> rules;
  /// With a pause above zero, answers leave one byte at a time, this far apart.
  std::chrono::milliseconds trickle{0};
  /// Receive buffer of the connection in bytes, so that a stall soon fills the sender's window; 0
  /// for the system's choice.
  int receiveBuffer = 0;
};

}  // namespace nimbo::test
