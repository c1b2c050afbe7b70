#pragma once

#include <memory>

#include "nimbo/stream/object.h"
#include "nimbo/stream/packet.h"
#include "nimbo/stream/port.h"

namespace nimbo::stream {

class Pipeline;

/// A link in a pipeline. Packets enter through its input ports and leave through its output ports.
class NIMBO_API IElement : public Object {
 public:
  IElement();
  /// [control] Unlinks the element and takes it out of its pipeline.
  ~IElement() override;

  /// [control] Creates an element of the registered class `type` in `pipeline` (null for none).
  /// Without a `name` it is called after its class's first keyword. `cfg` may be null; for a class
  /// whose settings are not texts of `key=value` it is what that class says. Null on failure.
  static IElement* New(const char* type, const char* name, Pipeline* pipeline, const char* cfg);

  /// [control] Leaves the pipeline before the object is destroyed.
  void Release() override;
  /// [control] Enters the pipeline that `owner` is. An override calls this one, which takes `cfgs`
  /// as settings, or passes null for it.
  bool Initialize(const char* type, const char* name, const char* cfgs,
                  base::object* owner) override;

  /// [control] Adds a port for the capabilities `caps` (null or empty: any); `direction` is "in" or
  /// "out". Null on failure.
  virtual IPort* PortAdd(const char* caps, const char* direction);
  /// [control] Links this element's next free output to the next free input of `sink`, which is
  /// asked to add one (PortAdd) when it has none.
  virtual bool Link(IElement& sink);
  /// [control] True when an output of this element is linked to an input of `sink`.
  virtual bool Linked(const IElement& sink) const;
  /// [sending] Takes a packet. After a false result the packet is dropped and delivery to this
  /// element pauses for one second. The packet belongs to the caller: Hold it to keep it.
  virtual bool ReceivePacket(Packet& packet, void* from);
  /// [any] Queues a message for the pipeline, its application and their listeners, which get it on
  /// the control thread, in order. `text` and `attrs` may be null; they are copied.
  bool SendMessageUp(const char* name, const char* text, base::AttrSet* attrs);

  /// [control] The outputs' deliveries are resumed before Start and interrupted before Stop.
  bool StatusUp(Status to) override;
  bool StatusDown(Status to) override;

  Pipeline* Owner() const noexcept { return _pipeline; }

  struct State;
  /// The reference host's own side of the object.
  State& HostState() noexcept { return *_state; }
  const State& HostState() const noexcept { return *_state; }

 protected:
  unsigned int _flags = 0;  ///< properties of the element that the framework looks at

 private:
  friend class Pipeline;
  Pipeline* _pipeline = nullptr;
  std::unique_ptr<State> _state;
};

}  // namespace nimbo::stream
