#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "host/elements/FlowElement.h"
#include "host/elements/PacketQueue.h"
#include "sync/Mutex.h"
#include "sync/Signal.h"

namespace nimbo::stream {

/// A source without a thread of its own, to which the queue behind it lends its thread.
class Borrower {
 public:
  /// [delivering] Delivers the next packet. False when there is none yet.
  virtual bool DeliverNext() = 0;

 protected:
  ~Borrower() = default;
};

/// An element with pairs of an input and an output, each with a queue between them, and one thread
/// that delivers for all pairs. What comes in while a queue is full waits where the source can wait
/// and drops older packets where it cannot.
class QueueElement : public ThreadElement {
 public:
  /// [control] An input brings its output with it; outputs alone cannot be added.
  IPort* PortAdd(const char* caps, const char* direction) override;
  void MediaKnown(Port& input) override;
  /// The element's own thread: what it does not take in time is dropped where it was queued.
  bool CanWait(const Port&) const override { return true; }
  bool ReceivePacket(Packet& packet, void* from) override;
  bool Start() override;
  /// [control] Lets `source` deliver to `input` in this element's thread, after each signal and as
  /// far as there is room, until TakeBack: so a packet costs one wake-up on its way from a ring.
  /// The signal may outlive the element. Null when `input` is another element's.
  std::shared_ptr<sync::Signal> Lend(const Port& input, Borrower& source)
      EXCLUDES(_lending, _mutex);
  /// [control] The source is not called any more.
  void TakeBack(const Borrower& source) EXCLUDES(_lending);

  bool SetMax(const char* text) { return SetCount("max", text); }
  /// [any] Figures: packets that a queue holds at most, that were delivered, dropped because a
  /// queue was full, and are queued now.
  int GetMax() const { return _max; }
  unsigned int GetPackets() const { return _packets; }
  unsigned int GetDropped() const { return _dropped; }
  unsigned int GetQueued() const { return _queued; }

 protected:
  using Clock = std::chrono::steady_clock;
  struct Pair {
    Port* input;
    Port* output;
    PacketQueue queue;
    bool silent = false;  ///< nothing came for so long that the others no longer wait for it
  };

  QueueElement(const char* threadName, int max) : ThreadElement(threadName), _max(max) {}

  /// [delivering] The pair whose packet goes next; null when none may go yet. Then it is asked
  /// again when a packet comes, and at `due` if it set that.
  virtual Pair* Choose(Clock::time_point& due) REQUIRES(_mutex) = 0;
  /// [control] Playing begins anew.
  virtual void Begin() REQUIRES(_mutex) {}

  void Run() override;
  void EndWaits() override;
  void Ended() override;

  /// The pairs, in the order of their creation.
  std::vector<std::unique_ptr<Pair>>& Pairs() REQUIRES(_mutex) { return _pairs; }

  /// Guards the pairs and what is in them. No other lock is taken under it but those of packets and
  /// their pools.
  sync::Mutex _mutex;

 private:
  struct Loan {
    Pair* pair;
    Borrower* source;
  };

  bool SetCount(const char* key, const char* text);
  /// The pair of an input; null for others.
  Pair* Find(const void* input) REQUIRES(_mutex);
  /// [delivering] Lets every borrower deliver what it has and there is room for.
  void RunBorrowers() EXCLUDES(_lending, _mutex);

  sync::Mutex _lending ACQUIRED_BEFORE(_mutex);  ///< held while borrowers deliver
  std::vector<Loan> _loans GUARDED_BY(_lending);

  const std::shared_ptr<sync::Signal> _filled = std::make_shared<sync::Signal>();
  sync::Condition _drained;
  std::vector<std::unique_ptr<Pair>> _pairs GUARDED_BY(_mutex);
  std::uint64_t _order GUARDED_BY(_mutex) = 0;  ///< of the next packet, over all queues
  bool _taking GUARDED_BY(_mutex) = false;      ///< packets are taken
  std::atomic<int> _max;
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned int> _dropped{0};
  std::atomic<unsigned int> _queued{0};
};

}  // namespace nimbo::stream
