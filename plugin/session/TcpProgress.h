#pragma once

#include <cstdint>

namespace nimbo::plugin {

/// How far what was written to a socket has come. [any]
struct TcpProgress {
  /// Grows, or at least changes, with every byte that the other side acknowledges.
  std::uint64_t acknowledged = 0;
  /// Something was written that has not been acknowledged yet.
  bool waiting = false;

  static TcpProgress Of(int socket);
};

}  // namespace nimbo::plugin
