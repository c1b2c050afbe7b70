#include <chrono>
#include <optional>

#include "host/elements/Properties.h"
#include "host/elements/QueueElement.h"
#include "host/stream/Media.h"
#include "host/stream/State.h"

namespace nimbo::stream {

namespace {

constexpr int DefaultMax = 64;
/// How long packets wait for an input from which nothing comes.
constexpr std::chrono::milliseconds SilenceLimit{500};

/// Merges streams by time stamp: "ele-sync". Each input has the output of the same number. Packets
/// wait until every linked input has one, so that their order is known; an input from which nothing
/// comes for 500 ms is not waited for until something comes again. At the start the first picture
/// goes before everything else. Properties "max": packets that the queue of an input holds;
/// "max-lag": seconds that packets of live streams may have waited, in front of this element too.
class AvSync final : public QueueElement {
 public:
  AvSync() : QueueElement("avsync", DefaultMax, DefaultMaxLag) {}
  ~AvSync() override { StatusTakeDown(); }

  /// [control] Links the output of the next pair, one a call.
  bool Link(IElement& sink) override { return IElement::Link(sink); }

 private:
  void Begin() override REQUIRES(_mutex) {
    _picture_gone = false;
    _held_since.reset();
  }

  static bool Awaited(const Pair& pair) {
    return pair.queue.Empty() && !pair.silent && pair.input->Linked();
  }

  /// True when `one` goes before `other`; both have packets.
  static bool GoesBefore(const Pair& one, const Pair& other) {
    const std::int64_t times[] = {one.queue.Front().TimeStamp(), other.queue.Front().TimeStamp()};
    if (times[0] != times[1]) return times[0] < times[1];
    return IsVideo(one.queue.Front()) && !IsVideo(other.queue.Front());
  }

  Pair* Choose(Clock::time_point& due) override REQUIRES(_mutex) {
    Pair* next = nullptr;
    Pair* picture = nullptr;
    bool complete = true;
    for (const auto& pair : Pairs()) {
      if (pair->queue.Empty()) {
        complete = complete && !Awaited(*pair);
        continue;
      }
      if (!next || GoesBefore(*pair, *next)) next = pair.get();
      if (!picture && IsVideo(pair->queue.Front())) picture = pair.get();
    }
    if (!next) {
      _held_since.reset();
      return nullptr;
    }
    const bool first_picture = !_picture_gone && picture;
    if (first_picture) next = picture;
    if (!first_picture && !complete && !Overdue(due)) return nullptr;
    _held_since.reset();
    _picture_gone = _picture_gone || first_picture;
    return next;
  }

  /// The packets that are there have waited long enough; the inputs that are awaited are silent
  /// then. Otherwise sets when that will be.
  bool Overdue(Clock::time_point& due) REQUIRES(_mutex) {
    const auto now = Clock::now();
    if (!_held_since) _held_since = now;
    due = *_held_since + SilenceLimit;
    if (now < due) return false;
    for (const auto& pair : Pairs()) pair->silent = pair->silent || Awaited(*pair);
    return true;
  }

  bool _picture_gone GUARDED_BY(_mutex) = false;
  std::optional<Clock::time_point> _held_since GUARDED_BY(_mutex);
};

[[maybe_unused]] base::IClass* const Registered = RegisterElement<AvSync>(
    "AvSync-ele-sync", "merges streams by time stamp",
    {Setting("max", &AvSync::SetMax, &AvSync::GetMax, "packets queued at most for an input"),
     Setting("max-lag", &AvSync::SetMaxLag, &AvSync::GetMaxLag, MaxLagText),
     Figure("packets", &AvSync::GetPackets, "packets delivered"),
     Figure("dropped", &AvSync::GetDropped, "packets dropped because a queue was full"),
     Figure("late", &AvSync::GetLate, "packets dropped because they were late"),
     Figure("lag", &AvSync::GetLag, "milliseconds for which what is being delivered has waited"),
     Figure("ended", &AvSync::GetEnded, "packets dropped because playing ended"),
     Figure("queued", &AvSync::GetQueued, "packets in the queues or being delivered")});

}  // namespace

}  // namespace nimbo::stream
