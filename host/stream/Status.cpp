#include "nimbo/stream/status.h"

#include <algorithm>

#include "host/base/Framework.h"
#include "host/base/Nearest.h"
#include "host/stream/Console.h"
#include "host/stream/StatusSteps.h"
#include "host/stream/Tree.h"
#include "sync/Atomic.h"

namespace nimbo::stream {

namespace {

constexpr IStatus::Status NamedStatus[] = {IStatus::null, IStatus::ready, IStatus::play};

IStatus::Status Above(IStatus::Status status) {
  return status == IStatus::null ? IStatus::ready : IStatus::play;
}

IStatus::Status Below(IStatus::Status status) {
  return status == IStatus::ready ? IStatus::null : IStatus::ready;
}

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

IStatus::~IStatus() = default;

bool IStatus::Open() {
  sync::Store(_status, ready);
  return true;
}

bool IStatus::Close() {
  sync::Store(_status, null);
  return true;
}

bool IStatus::Start() {
  sync::Store(_status, play);
  return true;
}

bool IStatus::Stop() {
  sync::Store(_status, ready);
  return true;
}

bool IStatus::StartToPause() {
  sync::Store(_status, pause);
  return true;
}

bool IStatus::StopFromPause() {
  sync::Store(_status, ready);
  return true;
}

bool IStatus::Resume() {
  sync::Store(_status, play);
  return true;
}

bool IStatus::Pause() {
  sync::Store(_status, pause);
  return true;
}

bool IStatus::StatusUp(Status to) {
  if (to != ready) return Start();
  _open_pending_close = true;
  return Open();
}

bool IStatus::StatusDown(Status to) {
  if (to != null) return Stop();
  if (!_open_pending_close) return true;
  _open_pending_close = false;
  return Close();
}

bool IStatus::beforeStatusUp(Status) { return true; }
bool IStatus::afterStatusUp(Status) { return true; }
bool IStatus::beforeStatusDown(Status) { return true; }
bool IStatus::afterStatusDown(Status) { return true; }

bool IStatus::StatusChange(Status to) {
  if (std::find(std::begin(NamedStatus), std::end(NamedStatus), to) == std::end(NamedStatus)) {
    return false;
  }
  while (StatusGet() < to) {
    if (!StatusSteps::Up(*this, Above(StatusGet()))) return false;
  }
  bool ok = true;
  while (StatusSteps::IsAbove(*this, to)) {
    const Status next = StatusIsNull() ? null : Below(StatusGet());
    const bool made = StatusSteps::Down(*this, next, true);
    if (!made && StatusSteps::IsAbove(*this, next)) return false;  // refused
    StatusSteps::DownEnd(*this, next);
    ok = ok && made;
  }
  return ok;
}

bool IStatus::StatusSet(const char* name) {
  const auto id = base::Hash(name);
  for (const Status status : NamedStatus) {
    if (id == base::Hash(StatusName(status))) return StatusChange(status);
  }
  Explain("There is no status \"", name, "\" to go to",
          base::Suggest(name ? name : "", {"null", "ready", "play"}));
  return false;
}

void IStatus::StatusTakeDown() {
  while (StatusSteps::IsAbove(*this, null)) {
    const Status next = StatusIsNull() ? null : Below(StatusGet());
    StatusSteps::Down(*this, next, false);
    StatusSteps::DownEnd(*this, next);
  }
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
