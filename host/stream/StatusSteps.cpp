#include "host/stream/StatusSteps.h"

#include <utility>

#include "host/base/Framework.h"
#include "host/stream/Shielded.h"
#include "sync/Atomic.h"

namespace nimbo::stream {

namespace {

/// How an exception line calls a step.
const char* StepUpName(IStatus::Status to) { return to == IStatus::ready ? "Open" : "Start"; }
const char* StepDownName(IStatus::Status to) { return to == IStatus::null ? "Close" : "Stop"; }

}  // namespace

const char* StatusName(IStatus::Status status) {
  switch (status) {
    case IStatus::null:
      return "null";
    case IStatus::ready:
      return "ready";
    case IStatus::pause:
      return "pause";
    case IStatus::play:
      return "play";
  }
  return "unknown";
}

IStatus::Status StatusSteps::Below(IStatus::Status status) {
  return status == IStatus::ready ? IStatus::null : IStatus::ready;
}

bool StatusSteps::Up(IStatus& object, IStatus::Status to) {
  const IStatus::Status from = object.StatusGet();
  const auto* named = dynamic_cast<const base::object*>(&object);
  if (to == IStatus::ready && Framework::Touched(object)) {  // an earlier Open that failed
    Down(object, IStatus::null, false);
    DownEnd(object, IStatus::null);
  }
  if (!Shielded("beforeStatusUp", named, [&] { return object.beforeStatusUp(to); })) return false;
  Framework::Touched(object) = true;
  const bool made = Shielded(StepUpName(to), named, [&] { return object.StatusUp(to); });
  // The base operations have set the status, overrides that do not call them have not; and one that
  // fails after it called them has set it too early.
  sync::Store(Framework::Status(object), made ? to : from);
  if (made) Shielded("afterStatusUp", named, [&] { return object.afterStatusUp(to); });
  return made;
}

bool StatusSteps::Down(IStatus& object, IStatus::Status to, bool refusable) {
  const auto* named = dynamic_cast<const base::object*>(&object);
  const bool agreed =
      Shielded("beforeStatusDown", named, [&] { return object.beforeStatusDown(to); });
  if (refusable && !agreed) return false;
  const bool made = Shielded(StepDownName(to), named, [&] { return object.StatusDown(to); });
  sync::Store(Framework::Status(object), to);
  if (to == IStatus::null) Framework::Touched(object) = false;
  Framework::AfterPending(object) = true;
  return made;
}

void StatusSteps::DownEnd(IStatus& object, IStatus::Status to) {
  if (!std::exchange(Framework::AfterPending(object), false)) return;
  const auto* named = dynamic_cast<const base::object*>(&object);
  Shielded("afterStatusDown", named, [&] { return object.afterStatusDown(to); });
}

bool StatusSteps::IsAbove(const IStatus& object, IStatus::Status to) {
  return object.StatusGet() > to || (to == IStatus::null && Framework::Touched(object));
}

bool StatusSteps::Raise(const Children& children, IStatus::Status to) {
  Children raised;
  for (IStatus* child : children) {
    if (child->StatusGet() >= to) continue;
    if (child->StatusChange(to)) {
      raised.insert(raised.begin(), child);
      continue;
    }
    Lower(raised, Below(to));
    Lowered(raised, Below(to));
    return false;
  }
  return true;
}

bool StatusSteps::Lower(const Children& children, IStatus::Status to) {
  bool ok = true;
  if (to == IStatus::null) {  // a child may play while its container does not
    ok = Lower(children, IStatus::ready);
    Lowered(children, IStatus::ready);
  }
  for (IStatus* child : children) {
    if (IsAbove(*child, to)) ok = Down(*child, to, false) && ok;
  }
  return ok;
}

void StatusSteps::Lowered(const Children& children, IStatus::Status to) {
  for (IStatus* child : children) DownEnd(*child, to);
}

}  // namespace nimbo::stream
