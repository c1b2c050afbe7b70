#pragma once

#include "nimbo/base/api.h"

namespace nimbo::stream {

/// The status machine of everything that can be opened and played. The framework moves an object
/// one step at a time: null -Open-> ready -Start-> play -Stop-> ready -Close-> null. `pause` exists
/// and is not entered. Every Open that was called is paired with one Close: when the object is
/// taken down, or before the next Open if this one failed.
class NIMBO_API IStatus {
 public:
  enum Status : int { null = 0, ready = 1, pause = 2, play = 3 };

  IStatus() = default;
  IStatus(const IStatus&) = delete;
  IStatus& operator=(const IStatus&) = delete;
  virtual ~IStatus();

  /// [control] The four steps. The base operations set the status and return true.
  virtual bool Open();
  virtual bool Close();
  virtual bool Start();
  virtual bool Stop();
  /// [control] The steps by way of `pause`; never called.
  virtual bool StartToPause();
  virtual bool StopFromPause();
  virtual bool Resume();
  virtual bool Pause();

  /// [control] The step itself, up to `to` or down to it; the hooks below are called around it. A
  /// container moves its children here. False leaves the status where it was on the way up; the way
  /// down always ends. To be called by the status machine alone.
  virtual bool StatusUp(Status to);
  virtual bool StatusDown(Status to);
  /// [control] Called before and after each step that succeeded. A false result of a before hook
  /// refuses the step, unless a container or the end of the object's life asks for it; that of an
  /// after hook changes nothing.
  virtual bool beforeStatusUp(Status to);
  virtual bool afterStatusUp(Status to);
  virtual bool beforeStatusDown(Status to);
  /// [control] After Stop: here, and not in Stop, threads that deliver packets are joined.
  virtual bool afterStatusDown(Status to);

  /// [control] Moves to `to` step by step. False when a step failed: on the way up the status is
  /// then that of the last step that succeeded, the way down goes on to its end. An exception that
  /// escapes a step becomes one console line and a failure.
  bool StatusChange(Status to);
  /// [control] The same by name: "null", "ready", "play" ("pause" and other texts are refused).
  bool StatusSet(const char* name);
  /// [any]
  Status StatusGet() const noexcept {
    Status now;
    __atomic_load(&_status, &now, __ATOMIC_ACQUIRE);
    return now;
  }
  bool StatusIsNull() const noexcept { return StatusGet() == null; }
  bool StatusIsPlay() const noexcept { return StatusGet() == play; }

 protected:
  /// [control] Stops and closes whatever is still started or open, a failed Open included.
  void StatusTakeDown();

 private:
  friend class nimbo::Framework;
  Status _status = null;
  /// Left null, or tried to, and did not return there since.
  [[maybe_unused]] bool _touched = false;
  [[maybe_unused]] bool _open_pending_close = false;  ///< Open was called, Close was not since
  [[maybe_unused]] bool _after_pending = false;       ///< a step down waits for its after hook
};

}  // namespace nimbo::stream
