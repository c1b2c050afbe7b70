#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "host/base/Clock.h"
#include "host/elements/FlowElement.h"
#include "host/elements/PacketQueue.h"
#include "host/elements/RingReader.h"
#include "host/stream/LagJudge.h"
#include "sync/Mutex.h"
#include "sync/Signal.h"

namespace nimbo::stream {

/// An element with pairs of an input and an output, each with a queue between them, and one thread
/// that delivers for all pairs. What comes in while a queue is full waits where the source can wait
/// and drops older packets where it cannot. Where a ring stands in front of an input, the thread
/// takes packets out of it by itself, as far as there is room: so a packet costs one wake-up on its
/// way.
class QueueElement : public ThreadElement {
 public:
  /// [control] An input brings its output with it; outputs alone cannot be added.
  IPort* PortAdd(const char* caps, const char* direction) override;
  void MediaKnown(Port& input) override;
  /// The element's own thread: what it does not take in time is dropped where it was queued.
  bool CanWait(const Port&) const override { return true; }
  bool ReceivePacket(Packet& packet, void* from) override;
  bool Start() override;
  /// [control] Takes what comes to `input` out of `ring`, which must stay until Detach. False when
  /// this element cannot: the ring may go, or the input is another element's.
  bool Attach(const Port& input, RingReader& ring) EXCLUDES(_mutex);
  /// [control] Takes nothing out of `ring` any more.
  void Detach(const RingReader& ring) EXCLUDES(_mutex);

  bool SetMax(const char* text) { return SetCount("max", text); }
  bool SetMaxLag(const char* text);
  std::string GetMaxLag() const;
  /// [any] Figures: packets that a queue holds at most, that were delivered, dropped because a
  /// queue was full, because they were late, and because playing ended, and that are queued now or
  /// being delivered.
  int GetMax() const { return _max; }
  unsigned int GetLate() const { return _late; }
  unsigned int GetEnded() const { return _ended; }
  unsigned int GetPackets() const { return _packets; }
  unsigned int GetDropped() const { return _dropped; }
  unsigned int GetQueued() const { return _queued; }
  /// [any] For how many milliseconds the packet has waited that is being delivered now.
  unsigned int GetLag() const;

 protected:
  struct Pair {
    Port* input;
    Port* output;
    PacketQueue queue;
    RingReader* ring = nullptr;  ///< in front of the input; null where packets are delivered to it
    bool silent = false;         ///< nothing came for so long that the others no longer wait for it
  };

  /// Packets of streams that cannot wait may be late by `maxLag`; 0: by any time.
  QueueElement(const char* threadName, int max,
               std::chrono::nanoseconds maxLag = std::chrono::nanoseconds(0))
      : ThreadElement(threadName), _max(max), _max_lag(maxLag) {}

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

  /// Guards the pairs and what is in them. No other lock is taken under it but those of rings,
  /// packets and their pools.
  sync::Mutex _mutex;

 private:
  bool SetCount(const char* key, const char* text);
  /// The pair of an input; null for others.
  Pair* Find(const void* input) REQUIRES(_mutex);
  /// [delivering] Queues what the rings hold and there is room for.
  void ReadRings() REQUIRES(_mutex);
  void Queue(Pair& pair, Held<Packet> packet, Clock::time_point since) REQUIRES(_mutex);
  /// [delivering] Where the packet that goes next has waited for too long, goes on at the newest
  /// key frame; sound goes with its pictures. True when there is room now.
  bool DropLate() REQUIRES(_mutex);
  bool IsLate(const Pair& pair, Clock::time_point now) REQUIRES(_mutex);
  void GoOnAtNewestKey(Pair& pair) REQUIRES(_mutex);
  void DropSoundBefore(std::int64_t time) REQUIRES(_mutex);
  void CountLate(std::size_t queued, unsigned int passed = 0);

  /// Shared, because a ring may tell of a packet when the element is gone.
  const std::shared_ptr<sync::Signal> _filled = std::make_shared<sync::Signal>();
  sync::Condition _drained;
  std::vector<std::unique_ptr<Pair>> _pairs GUARDED_BY(_mutex);
  std::uint64_t _order GUARDED_BY(_mutex) = 0;  ///< of the next packet, over all queues
  bool _taking GUARDED_BY(_mutex) = false;      ///< packets are taken
  bool _pictures GUARDED_BY(_mutex) = false;    ///< some came
  LagJudge _judge GUARDED_BY(_mutex);           ///< of the packets that decide
  /// Time stamp (ns) of the key frame that was gone on with last.
  std::int64_t _go_on_from GUARDED_BY(_mutex) = 0;
  std::atomic<int> _max;
  std::atomic<std::chrono::nanoseconds> _max_lag;
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned int> _dropped{0};
  std::atomic<unsigned int> _late{0};
  /// Since when the packet waits that is being delivered; the clock's beginning: there is none.
  std::atomic<Clock::time_point> _delivering_since{};
  std::atomic<unsigned int> _ended{0};
  std::atomic<unsigned int> _queued{0};
};

}  // namespace nimbo::stream
