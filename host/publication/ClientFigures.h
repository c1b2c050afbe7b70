#pragma once

#include <cstdint>

namespace nimbo::publication {

/// How one client is doing.
struct ClientFigures {
  std::uint64_t videoPackets = 0;
  std::uint64_t audioPackets = 0;
  std::uint64_t bytes = 0;
  std::uint64_t refused = 0;  ///< packets that it answered with a false result
  std::uint64_t gaps = 0;     ///< packets that did not follow the one before
  std::uint64_t reconnections = 0;
  bool connected = false;
  int quality = 0;
};

}  // namespace nimbo::publication
