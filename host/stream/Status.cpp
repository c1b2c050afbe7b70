#include "nimbo/stream/status.h"

#include <algorithm>

#include "host/base/Console.h"
#include "host/base/ControlThread.h"
#include "host/base/Framework.h"
#include "host/base/Nearest.h"
#include "host/stream/StatusSteps.h"
#include "sync/Atomic.h"

namespace nimbo::stream {

namespace {

constexpr IStatus::Status NamedStatus[] = {IStatus::null, IStatus::ready, IStatus::play};

IStatus::Status Above(IStatus::Status status) {
  return status == IStatus::null ? IStatus::ready : IStatus::play;
}

}  // namespace

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
  base::AssertControlThread();
  if (std::find(std::begin(NamedStatus), std::end(NamedStatus), to) == std::end(NamedStatus)) {
    return false;
  }
  while (StatusGet() < to) {
    if (!StatusSteps::Up(*this, Above(StatusGet()))) return false;
  }
  bool ok = true;
  while (StatusSteps::IsAbove(*this, to)) {
    const Status next = StatusIsNull() ? null : StatusSteps::Below(StatusGet());
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
  base::AssertControlThread();
  while (StatusSteps::IsAbove(*this, null)) {
    const Status next = StatusIsNull() ? null : StatusSteps::Below(StatusGet());
    StatusSteps::Down(*this, next, false);
    StatusSteps::DownEnd(*this, next);
  }
}

}  // namespace nimbo::stream
