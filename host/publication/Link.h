#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "host/base/Clock.h"

namespace nimbo::publication {

/// What the kernel tells of one of this process's TCP connections.
struct Connection {
  int descriptor = -1;
  std::uint64_t inode = 0;         ///< what tells it from all others
  unsigned short port = 0;         ///< of the other end
  std::uint64_t acknowledged = 0;  ///< bytes
  std::uint64_t outstanding = 0;   ///< bytes written, and not acknowledged
  std::uint64_t retransmits = 0;   ///< segments
  std::chrono::microseconds roundTrip{0};
};

/// The TCP connections of this process that stand. Those of a plug-in are among them: its own
/// sockets are asked, and nothing of the plug-in. None where the system does not tell.
std::vector<Connection> OwnConnections();

/// How old what is acknowledged is: the time since which more has been written.
class AgeMeter {
 public:
  using Time = Clock::time_point;
  /// Takes the bytes acknowledged and written in all; neither goes back, nor does the time.
  void Add(Time time, std::uint64_t acknowledged, std::uint64_t written);
  /// Since when the oldest byte that is not acknowledged was written, at the last Add; 0: there is
  /// none. As exact as the steps between the Adds, between which it takes writing to be steady.
  std::chrono::nanoseconds Age() const { return _age; }

 private:
  std::deque<std::pair<Time, std::uint64_t>> _written;  ///< from the last one acknowledged on
  std::chrono::nanoseconds _age{0};
};

/// How the connections of one client, one after the other, are doing.
class Link {
 public:
  /// The connection that it had, or else the first one of `free` that leads to its port, which is
  /// taken out.
  void Follow(std::vector<Connection>& free, unsigned short port, AgeMeter::Time now);

  bool Stands() const noexcept { return _now.inode != 0; }
  std::uint64_t Acknowledged() const noexcept { return _before.acknowledged + _now.acknowledged; }
  std::uint64_t Retransmits() const noexcept { return _before.retransmits + _now.retransmits; }
  std::uint64_t Outstanding() const noexcept { return _now.outstanding; }
  std::chrono::microseconds RoundTrip() const noexcept { return _now.roundTrip; }
  std::chrono::nanoseconds Age() const { return _age.Age(); }

 private:
  Connection _before;  ///< counts of the connections that have ended
  Connection _now;
  AgeMeter _age;
};

/// The port of an address: as it says, or that of its scheme.
unsigned short PortOf(const std::string& url);

}  // namespace nimbo::publication
