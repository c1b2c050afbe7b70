#pragma once

#include <cstdint>

namespace nimbo::plugin {

/// How far what was written to a socket has come. [any]
struct TcpProgress {
  /// Grows, or at least changes, with every byte that the other side acknowledges.
  std::uint64_t acknowledged = 0;
  /// The same, and every byte more that it has room for: a server that reads makes room, although
  /// the sending system, which waits longer after each attempt, may not have tried again yet.
  std::uint64_t promised = 0;
  /// Something was written that has not been acknowledged yet.
  bool waiting = false;
  /// Bytes that were written and have not been acknowledged.
  std::uint64_t outstanding = 0;

  static TcpProgress Of(int socket);
};

}  // namespace nimbo::plugin
