#pragma once

#include <atomic>
#include <string>

#include "host/stream/Port.h"
#include "nimbo/base/thread.h"
#include "nimbo/stream/element.h"

namespace nimbo::stream {

/// What the host's own elements have in common: they tell each other what a stream carries and
/// whether its producer can wait.
class NIMBO_API FlowElement : public IElement {
 public:
  /// [control] Links every free output, so that all streams of a source go the same way.
  bool Link(IElement& sink) override;
  /// [control] Called as soon as it is known what comes in through `input`: its Media(), or null
  /// where the producer failed. Passes it on to what the outputs feed.
  virtual void MediaKnown(Port& input);
  /// [any] True when the thread that delivers through `output` may be held up: nothing is lost
  /// meanwhile, or only where the loss was planned for. Asked while a packet is under way.
  virtual bool CanWait(const Port& output) const = 0;
  /// [delivering] True when what is under way through `output` was taken in earlier than it could
  /// be delivered, so that it comes faster than its stream goes, and can wait.
  virtual bool Behind(const Port&) const { return false; }

 protected:
  /// [control] Tells the element behind `output` that its media is known.
  static void TellMedia(Port& output);
  /// [control] True when MediaKnown will still be called for `input`: it is linked, through the
  /// host's own elements alone, to a source of the host that has not been opened yet.
  static bool MediaWillBeKnown(const Port& input);
  /// [delivering] Behind of what feeds `input`.
  static bool SourceBehind(const Port& input);
  /// [any] CanWait of what feeds `input`.
  static bool SourceCanWait(const Port& input);
};

/// An element that runs a function in a thread of its own while it plays.
class NIMBO_API ThreadElement : public FlowElement {
 public:
  bool Start() override;
  /// Only signals; the thread is joined in afterStatusDown.
  bool Stop() override;
  bool afterStatusDown(Status to) override;

 protected:
  explicit ThreadElement(const char* threadName);

  /// [delivering] Runs until Stopping().
  virtual void Run() = 0;
  /// [control] Ends what Run waits for; Stopping() is true already.
  virtual void EndWaits() = 0;
  /// [control] Run has returned.
  virtual void Ended() {}
  bool Stopping() const noexcept { return _stopping.load(); }

 private:
  base::Thread _thread;
  std::atomic<bool> _stopping{true};
};

}  // namespace nimbo::stream
