#pragma once

#include <cstdint>

namespace nimbo::publication {

/// Packets that a client has not got, or not taken, by what was in their way.
struct Drops {
  std::uint64_t gap = 0;      ///< overwritten, or in front of the key frame behind such a gap
  std::uint64_t lag = 0;      ///< later than max-lag
  std::uint64_t refused = 0;  ///< answered with a false result
  std::uint64_t ended = 0;    ///< not sent yet when it ended
};

/// What TCP tells of a client's connections, TLS and all other overhead included. All 0 where the
/// system tells nothing.
struct LinkFigures {
  std::uint64_t acknowledged = 0;  ///< bytes that the server's system has taken
  std::uint64_t unsent = 0;        ///< bytes that wait in this system, or are on their way
  std::uint64_t retransmits = 0;   ///< segments
  double roundTrip = 0;            ///< ms
  /// How late the client is, in ms: what it sends next has waited for so long in its queue, and
  /// what the server has not taken for so long in this system.
  double lag = 0;
};

/// How one client is doing.
struct ClientFigures {
  std::uint64_t videoPackets = 0;
  std::uint64_t audioPackets = 0;
  std::uint64_t bytes = 0;
  Drops dropped;
  std::uint64_t gaps = 0;  ///< packets that did not follow the one before
  std::uint64_t reconnections = 0;
  std::uint64_t attempts = 0;  ///< to connect, that have failed
  LinkFigures link;
  double setUp = 0;  ///< ms that the last connection made by Open took
  bool connected = false;
  int quality = 0;
};

}  // namespace nimbo::publication
