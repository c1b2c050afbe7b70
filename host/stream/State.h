#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/base/Framework.h"
#include "host/stream/Backoff.h"
#include "host/stream/Message.h"
#include "host/stream/Port.h"
#include "host/stream/RingBuffer.h"
#include "host/stream/TreeList.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/element.h"
#include "nimbo/stream/packet_ring.h"
#include "nimbo/stream/pipeline.h"

/// What the reference host keeps beside the members that the contract names.

namespace nimbo::stream {

struct IElement::State {
  /// The element's ports, which it owns, in the order of their creation.
  TreeList<std::unique_ptr<Port>> inputs;
  TreeList<std::unique_ptr<Port>> outputs;
  /// Until when delivery to this element pauses, in nanoseconds of the steady clock. [any]
  std::atomic<std::int64_t> pauseUntil{0};
  /// How long those pauses are.
  Backoff pauses;
  /// [control] The element brings in what goes on whether it is taken or not, so that its packets
  /// must pass a ring before another pipeline gets them.
  bool live = false;

  /// [control] Adds a port of `owner`. Elements with fixed ports call this in their constructor;
  /// empty caps stand for any.
  Port& Add(IElement* owner, const char* caps, bool output) EXCLUDES(TreeMutex());
  /// [control] The first unlinked input that takes `caps`; null when there is none.
  Port* FreeInput(const char* caps);
  /// [control] The first unlinked output; null when there is none. A ring never runs out of them.
  Port* FreeOutput();
  /// [control] Adds an output for every ring whose outputs are all linked.
  void OfferRings();
  /// [control] Sets the gates of all inputs. The element is given nothing from the beginning of
  /// Close to the end of Open, however those around it play.
  void SetGates(Gate gate);
  /// [control] Takes `self`, whose state this is and which has been taken down, out of its pipeline
  /// and unlinks its inputs: from here on nothing is delivered to it, and nothing under way. Done
  /// while the object is still whole: by Release, and by the destructor of a class that is also
  /// destroyed without it while others deliver.
  void Leave(IElement& self);
  /// [control] The rings behind the outputs (Port::SetRing), each once, in their order; none for an
  /// element that does not end in rings. They must live as long as the element. Linking such an
  /// output to a pipeline's port means that the BridgeSource behind it reads the ring.
  std::vector<PacketRing*> Rings() const;
};

struct Pipeline::State {
  explicit State(Pipeline& owner) : self(owner) {}

  Pipeline& self;
  Application* application = nullptr;  ///< changed and read as a TreeList is
  /// The pipeline's elements, which it owns, in the order of their creation.
  TreeList<IElement*> elements;
  /// The ports behind Pipeline::_ports.
  std::vector<std::unique_ptr<Port>> ports;
  std::string serialize GUARDED_BY(TreeMutex());
  std::shared_ptr<MessageListeners> listeners = std::make_shared<MessageListeners>();

  /// [control] Appends an input port to the pipeline. What is delivered to it goes to `receiver`,
  /// an element of this pipeline (a BridgeSource), with the port as `from`. The port goes with the
  /// receiver, and so does its link: an upstream output that stayed linked would deliver to an
  /// object that is gone.
  Port& AddPort(IElement& receiver, const char* caps);
  /// [control] The pipeline's ports, as Pipeline::_ports.
  const std::vector<IPort*>& Ports() const noexcept { return self._ports; }

  /// [control] The elements, each behind all those that it delivers to.
  std::vector<IElement*> SinksFirst() const;
  /// [control] Brings elements that were added late to the pipeline's own status, sinks first.
  bool Settle();

  void Attach(IElement& element) EXCLUDES(TreeMutex());
  void Detach(IElement& element) EXCLUDES(TreeMutex());
};

struct Application::State {
  explicit State(Application& owner) : self(owner) {}

  Application& self;
  /// The application's pipelines, which it owns, in the order of the configuration.
  TreeList<Pipeline*> pipelines;
  std::string serialize GUARDED_BY(TreeMutex());
  std::shared_ptr<MessageListeners> listeners = std::make_shared<MessageListeners>();
  /// Shared by the rings of its pipelines.
  std::shared_ptr<GoOn> goOn = std::make_shared<GoOn>();

  void Attach(Pipeline& pipeline) EXCLUDES(TreeMutex());
  void Detach(Pipeline& pipeline) EXCLUDES(TreeMutex());
};

/// The host's own side of an object.
inline auto& HostState(IElement& element) noexcept { return Framework::State(element); }
inline const auto& HostState(const IElement& element) noexcept { return Framework::State(element); }
inline auto& HostState(Pipeline& pipeline) noexcept { return Framework::State(pipeline); }
inline const auto& HostState(const Pipeline& pipeline) noexcept {
  return Framework::State(pipeline);
}
inline auto& HostState(Application& application) noexcept { return Framework::State(application); }

}  // namespace nimbo::stream
