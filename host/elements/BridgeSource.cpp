#include <atomic>
#include <memory>
#include <utility>

#include "host/elements/FlowElement.h"
#include "host/elements/Properties.h"
#include "host/elements/QueueElement.h"
#include "host/stream/Console.h"
#include "host/stream/RingBuffer.h"
#include "host/stream/State.h"

namespace nimbo::stream {

namespace {

using Reader = IRing<Packet*>::Reader;

/// Brings one stream of another pipeline into its own: "BridgeSource". Its configuration text is
/// the stream's caps, such as "h264". It gives its pipeline a port; when that is linked to an
/// output that a ring stands for, it reads the ring, from the next packet on: in the thread of the
/// queue behind it, or in one of its own where there is none. Otherwise packets come and go in the
/// upstream's thread.
class BridgeSource final : public ThreadElement, private Borrower {
 public:
  BridgeSource() : ThreadElement("bridge") {}
  ~BridgeSource() override {
    StatusTakeDown();
    HostState().Leave(*this);  // a pipeline may delete it after it was linked to a playing output
  }

  bool Initialize(const char* type, const char* name, const char* cfgs,
                  base::object* owner) override {
    if (!IElement::Initialize(type, name, nullptr, owner)) return false;
    if (!Owner()) return Refuse("A BridgeSource needs a pipeline that it belongs to");
    _port = &Owner()->HostState().AddPort(*this, cfgs);
    HostState().Add(this, cfgs, true).Follow(*_port);
    return true;
  }

  bool CanWait(const Port&) const override { return _reader || SourceCanWait(*_port); }

  bool Start() override {
    const Port* upstream = _port->Peer();
    PacketRing* ring = upstream ? upstream->Ring() : nullptr;
    if (!ring) return FlowElement::Start();
    // The ring's element may be destroyed while this one plays.
    if (auto* buffer = dynamic_cast<RingBuffer*>(ring)) _ring = buffer->weak_from_this().lock();
    // Packets that were written before are not this element's.
    _reader.reset(ring->CreateReader(this));
    _next = _reader->position;
    return Borrow() ? FlowElement::Start() : ThreadElement::Start();
  }

  bool Stop() override { return _reader && !_lender ? ThreadElement::Stop() : FlowElement::Stop(); }

  bool ReceivePacket(Packet& packet, void*) override {
    Pass(packet);
    return true;  // the output's own pause follows a refusal
  }

  unsigned int GetPackets() const { return _packets; }
  unsigned int GetDropped() const { return _dropped; }

 private:
  void Pass(Packet& packet) {
    if (HostState().outputs.front()->Deliver(packet)) ++_packets;
  }

  /// False when there is no thread to borrow.
  bool Borrow() {
    const Port* input = HostState().outputs.front()->Peer();
    auto* queue = input ? dynamic_cast<QueueElement*>(input->Receiver()) : nullptr;
    const auto filled = queue && _ring ? queue->Lend(*input, *this) : nullptr;
    if (!filled) return false;
    _lender = input;
    _ring->Listen(*_reader, [filled] { filled->Notify(); });
    return true;
  }

  bool DeliverNext() override {
    return _reader->position != _ring->WritePosition() && PassNext(std::chrono::nanoseconds(1));
  }

  /// Passes the ring's next packet on; waits for it as Pop does.
  bool PassNext(std::chrono::nanoseconds timeout) {
    Packet* packet = nullptr;
    if (!_reader->Pop(packet, timeout)) return false;
    // A ring moves a reader that it has overtaken. Positions wrap, their distance does not.
    const std::uint32_t behind = _reader->position;
    _dropped += behind - 1 - _next;
    _next = behind;
    // The ring keeps the packet for this reader until the next wait.
    Pass(*packet);
    return true;
  }

  void Run() override {
    while (!Stopping() && _reader->ring.load()) PassNext(std::chrono::nanoseconds::zero());
  }

  void EndWaits() override { _reader->WaitAbort(); }
  void Ended() override {
    // Where the link has gone, the lender has, too, or has been told by whoever unlinked.
    const Port* input = std::exchange(_lender, nullptr);
    if (input && HostState().outputs.front()->Peer() == input) {
      static_cast<QueueElement*>(input->Receiver())->TakeBack(*this);
    }
    _reader.reset();
    _ring.reset();
  }

  Port* _port = nullptr;              ///< the pipeline's
  std::shared_ptr<RingBuffer> _ring;  ///< behind the reader, where it can be shared
  std::unique_ptr<Reader> _reader;
  std::uint32_t _next = 0;        ///< position behind the packet that was passed on last
  const Port* _lender = nullptr;  ///< the input whose element lends its thread
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned int> _dropped{0};
};

[[maybe_unused]] base::IClass* const Registered = RegisterElement<BridgeSource>(
    "BridgeSource-bridge-source", "brings one stream of another pipeline into its own",
    {Figure("packets", &BridgeSource::GetPackets, "packets passed on"),
     Figure("dropped", &BridgeSource::GetDropped,
            "packets that the ring overwrote before they were read")});

}  // namespace

}  // namespace nimbo::stream
