#include <atomic>
#include <utility>

#include "host/base/Console.h"
#include "host/elements/FlowElement.h"
#include "host/elements/Properties.h"
#include "host/elements/QueueElement.h"
#include "host/elements/RingReader.h"
#include "host/stream/State.h"

namespace nimbo::stream {

namespace {

/// Brings one stream of another pipeline into its own: "BridgeSource". Its configuration text is
/// the stream's caps, such as "h264". It gives its pipeline a port; when that is linked to an
/// output that a ring stands for, the ring is read from the next packet on: by the queue behind
/// this element, or by a thread of its own where there is none. Otherwise packets come and go in
/// the upstream's thread.
class BridgeSource final : public ThreadElement {
 public:
  BridgeSource() : ThreadElement("bridge") {}
  ~BridgeSource() override {
    StatusTakeDown();
    HostState(*this).Leave(
        *this);  // a pipeline may delete it after it was linked to a playing output
  }

  bool Initialize(const char* type, const char* name, const char* cfgs,
                  base::object* owner) override {
    if (!IElement::Initialize(type, name, nullptr, owner)) return false;
    Pipeline* owner_pipeline = Framework::Pipeline(*this);
    if (!owner_pipeline) return Refuse("A BridgeSource needs a pipeline that it belongs to");
    _port = &HostState(*owner_pipeline).AddPort(*this, cfgs);
    HostState(*this).Add(this, cfgs, true).Follow(*_port);
    return true;
  }

  bool CanWait(const Port&) const override { return _ring.IsOpen() || SourceCanWait(*_port); }

  bool Start() override {
    const Port* upstream = _port->Peer();
    PacketRing* ring = upstream ? upstream->Ring() : nullptr;
    if (!ring) return FlowElement::Start();
    // Packets that were written before are not this element's.
    _ring.Open(*ring, this);
    const Port* input = Output().Peer();
    auto* queue = input ? dynamic_cast<QueueElement*>(input->Receiver()) : nullptr;
    if (!queue || !queue->Attach(*input, _ring)) return ThreadElement::Start();
    _attached = input;
    return FlowElement::Start();
  }

  bool Stop() override {
    return _ring.IsOpen() && !_attached ? ThreadElement::Stop() : FlowElement::Stop();
  }

  bool ReceivePacket(Packet& packet, void*) override {
    Pass(packet);
    return true;  // the output's own pause follows a refusal
  }

  unsigned int GetPackets() const { return _passed + _ring.Taken(); }
  unsigned int GetDropped() const { return _ring.Missed(); }

 private:
  Port& Output() { return *HostState(*this).outputs.front(); }

  void Pass(Packet& packet) {
    if (Output().Deliver(packet)) ++_passed;
  }

  void Run() override {
    while (!Stopping() && !_ring.AtEnd()) {
      if (const Held<Packet> packet = _ring.Wait()) Pass(*packet);
    }
  }

  void EndWaits() override { _ring.Abort(); }
  void Ended() override {
    const Port* input = std::exchange(_attached, nullptr);
    // Where the link has gone, the queue has, too.
    if (input && Output().Peer() == input) {
      static_cast<QueueElement*>(input->Receiver())->Detach(_ring);
    }
    _ring.Close();
  }

  Port* _port = nullptr;  ///< the pipeline's
  RingReader _ring;
  const Port* _attached = nullptr;       ///< the input whose element reads the ring
  std::atomic<unsigned int> _passed{0};  ///< by the upstream's thread or its own
};

[[maybe_unused]] base::IClass* const Registered = RegisterElement<BridgeSource>(
    "BridgeSource-bridge-source", "brings one stream of another pipeline into its own",
    {Figure("packets", &BridgeSource::GetPackets, "packets passed on"),
     Figure("dropped", &BridgeSource::GetDropped,
            "packets that the ring overwrote before they were read")});

}  // namespace

}  // namespace nimbo::stream
