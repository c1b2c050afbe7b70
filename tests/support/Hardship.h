#pragma once

#include <chrono>

// For a program that exports its symbols: these stand in front of the system's functions, for the
// program and all its libraries.

namespace nimbo::test {

/// Lasts as long as the object. One at a time of each kind.
class Interposer {
 public:
  Interposer(const Interposer&) = delete;
  Interposer& operator=(const Interposer&) = delete;

 protected:
  Interposer() = default;
  ~Interposer() = default;
};

/// The sockets of this process that are connected to `port` of loopback give and take what the
/// system may give and take at worst: a read brings one byte, a write takes some of the bytes, and
/// every now and then a call is interrupted instead.
class FaultySockets : Interposer {
 public:
  FaultySockets(int port, unsigned seed);
  ~FaultySockets();

  /// How many calls were met.
  static int Calls();
};

/// Moves the clock of the day, as somebody who sets it would. Whoever computed the end of a wait
/// from it would wait for an hour, or not at all, since the kernel's clock has not moved.
class MovedClock : Interposer {
 public:
  explicit MovedClock(std::chrono::hours by);
  ~MovedClock();
};

/// What a program asks its system for.
enum class Resource { Memory, Thread };

/// The n-th request for a resource (from 1) is refused: memory to operator new, or a thread. Those
/// of the thread that made it count, and those of threads that the product named; the servers of a
/// test, whose threads have no names of their own, get what they need.
class Scarcity : Interposer {
 public:
  Scarcity(Resource resource, int nth);
  ~Scarcity();

  /// Whether the request came.
  static bool Refused();
};

}  // namespace nimbo::test
