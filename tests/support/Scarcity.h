#pragma once

namespace nimbo::test {

/// What a program asks its system for.
enum class Resource { Memory, Thread };

/// While it lives, the n-th request for a resource (from 1) is refused: memory to operator new, or
/// a thread. Those of the thread that made it count, and those of threads that the product named;
/// the servers of a test, whose threads have no names of their own, get what they need. One at a
/// time.
///
/// For a program that exports its symbols.
class Scarcity {
 public:
  Scarcity(Resource resource, int nth);
  Scarcity(const Scarcity&) = delete;
  Scarcity& operator=(const Scarcity&) = delete;
  ~Scarcity();

  /// Whether the request came.
  static bool Refused();
};

}  // namespace nimbo::test
