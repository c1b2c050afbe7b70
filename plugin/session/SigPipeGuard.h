#pragma once

#include <signal.h>

namespace nimbo::plugin {

/// Keeps SIGPIPE from the calling thread while librtmp writes, which it does without MSG_NOSIGNAL:
/// blocks it, takes away one that a failed write raised, and restores the thread's mask. The
/// process's signal settings are not touched. Guards nest: only the outermost one of a thread makes
/// system calls, two when nothing failed.
class SigPipeGuard {
 public:
  SigPipeGuard();
  ~SigPipeGuard();
  SigPipeGuard(const SigPipeGuard&) = delete;
  SigPipeGuard& operator=(const SigPipeGuard&) = delete;

  /// To be called after a write that may have failed.
  static void Suspect();

 private:
  bool _outermost;
  bool _was_pending = false;
  sigset_t _previous = {};
};

}  // namespace nimbo::plugin
