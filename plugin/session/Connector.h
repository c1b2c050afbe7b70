#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include "common/FileDescriptor.h"
#include "common/Status.h"

namespace nimbo::plugin {

/// A TCP connection in the making: name look-up (IPv6 and IPv4), a connect that ends by a deadline,
/// and the socket options of a publisher.
class Connector {
 public:
  /// Told of each socket before its connect, so that it can be watched; a failure gives up.
  using Watch = std::function<Status(int socket)>;

  /// Connects to `host` (a name or an address) and `port`, and stores the socket, blocking and with
  /// its options set. Tries the addresses one after the other, each for `answer` at most. `started`
  /// is called after the name look-up, when the attempt's time begins to count.
  static Status Connect(const std::string& host, unsigned port, std::chrono::milliseconds answer,
                        const std::function<void()>& started, const Watch& watch,
                        FileDescriptor& socket);
  /// The socket options of a publisher: no delay, `answer` for a read, `backstop` for a write that
  /// nobody watches.
  static void SetOptions(int socket, std::chrono::milliseconds answer,
                         std::chrono::milliseconds backstop);
  /// How many bytes the kernel may hold that were not sent yet. What is written waits beyond that,
  /// so that it can still be chosen what is worth sending.
  static void BoundUnsent(int socket, std::size_t bytes);
  /// Acknowledges at once what has been read so far. A server that lets Nagle's algorithm (RFC 896)
  /// wait sends the second part of an answer only then, and the kernel would take 40 ms for it.
  static void AcknowledgeNow(int socket);
};

}  // namespace nimbo::plugin
