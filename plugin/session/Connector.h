#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace nimbo::plugin {

/// A TCP connection in the making: name look-up (IPv6 and IPv4), a connect that ends by a deadline,
/// and the socket options of a publisher.
class Connector {
 public:
  using Clock = std::chrono::steady_clock;
  /// Told of each socket before its connect, so that it can be watched; false gives up.
  using Watch = std::function<bool(int socket)>;

  struct Result {
    int socket = -1;      ///< blocking, with the options set; -1 when there is none
    std::string problem;  ///< why there is none
  };

  /// Connects to `host` (a name or an address) and `port`. Tries the addresses one after the other.
  /// `started` is called after the name look-up, when the attempt's time begins to count.
  static Result Connect(const std::string& host, unsigned port, std::chrono::milliseconds answer,
                        std::chrono::milliseconds stalledSend, const std::function<void()>& started,
                        const Watch& watch);
  /// The socket options of a publisher: no delay, `answer` for a read, and a server that takes
  /// nothing for `stalledSend` is given up by the kernel.
  static void SetOptions(int socket, std::chrono::milliseconds answer,
                         std::chrono::milliseconds stalledSend);
  /// Acknowledges at once what has been read so far. A server that lets Nagle's algorithm (RFC 896)
  /// wait sends the second part of an answer only then, and the kernel would take 40 ms for it.
  static void AcknowledgeNow(int socket);
};

}  // namespace nimbo::plugin
