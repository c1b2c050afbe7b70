#pragma once

namespace nimbo::test {

/// While it lives, the sockets of this process that are connected to `port` of loopback give and
/// take what the system may give and take at worst: a read brings one byte, a write takes some of
/// the bytes, and every now and then a call is interrupted instead. One at a time.
///
/// For a program that exports its symbols: the calls of the libraries are met as well.
class FaultySockets {
 public:
  FaultySockets(int port, unsigned seed);
  FaultySockets(const FaultySockets&) = delete;
  FaultySockets& operator=(const FaultySockets&) = delete;
  ~FaultySockets();

  /// How many calls were met.
  static int Calls();
};

}  // namespace nimbo::test
