#pragma once

#include <vector>

#include "nimbo/stream/status.h"

namespace nimbo::stream {

/// [any] "null", "ready", "pause" or "play".
NIMBO_API const char* StatusName(IStatus::Status status);

/// The single steps of the status machine, for containers, which move their children in step: on
/// the way down every child has made its step before the first after hook runs, because threads
/// that deliver to a child are joined there. [control]
struct StatusSteps {
  using Children = std::vector<IStatus*>;

  /// The status that a step down from `status` leads to.
  static IStatus::Status Below(IStatus::Status status);

  /// Raises the children in the order given. When one fails, those that were raised are lowered
  /// again in reverse order, and the result is false.
  static bool Raise(const Children& children, IStatus::Status to);
  /// Lowers every child that is above `to`, in the order given, without the after hooks. False when
  /// a step failed; all have been lowered all the same.
  static bool Lower(const Children& children, IStatus::Status to);
  /// Runs the after hooks of the children that were lowered to `to`.
  static void Lowered(const Children& children, IStatus::Status to);

  /// One object's step up, with its hooks.
  static bool Up(IStatus& object, IStatus::Status to);
  /// One object's step down without its after hook. False when it failed; with `refusable` also
  /// when the before hook refused it, in which case nothing has happened.
  static bool Down(IStatus& object, IStatus::Status to, bool refusable);
  /// The after hook of a step down that waits for it.
  static void DownEnd(IStatus& object, IStatus::Status to);
  /// True when the object has a step to make on the way down to `to`.
  static bool IsAbove(const IStatus& object, IStatus::Status to);
};

}  // namespace nimbo::stream
