#include "host/elements/Properties.h"
#include "host/elements/QueueElement.h"

namespace nimbo::stream {

namespace {

constexpr int DefaultMax = 60;

/// Decouples what stands before it from what stands behind it: "fifofilter". Packets leave in the
/// order in which they came. Property "max": packets that the queue of a stream holds.
class FifoFilter final : public QueueElement {
 public:
  FifoFilter() : QueueElement("fifo", DefaultMax) {}
  ~FifoFilter() override { StatusTakeDown(); }

 private:
  Pair* Choose(Clock::time_point&) override REQUIRES(_mutex) {
    Pair* first = nullptr;
    for (const auto& pair : Pairs()) {
      if (pair->queue.Empty()) continue;
      if (!first || pair->queue.FrontOrder() < first->queue.FrontOrder()) first = pair.get();
    }
    return first;
  }
};

[[maybe_unused]] base::IClass* const Registered = RegisterElement<FifoFilter>(
    "FifoFilter-fifo-filter", "a queue between what stands before and behind it",
    {Setting("max", &FifoFilter::SetMax, &FifoFilter::GetMax, "packets queued at most"),
     Figure("packets", &FifoFilter::GetPackets, "packets delivered"),
     Figure("dropped", &FifoFilter::GetDropped, "packets dropped because the queue was full"),
     Figure("ended", &FifoFilter::GetEnded, "packets dropped because playing ended"),
     Figure("queued", &FifoFilter::GetQueued, "packets in the queue or being delivered")});

}  // namespace

}  // namespace nimbo::stream
