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
  /// whose settings are not texts of `key=value` it is what that class says. Null on failure. A
  /// pipeline owns its elements and destroys them with itself, unless they are destroyed before;
  /// one of no pipeline belongs to the caller, who ends it with Release.
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
  /// element pauses, for one second at first. The packet belongs to the caller: Hold it to keep it.
  /// `from` is the port that it came through, an IPort* as this element's PortAdd returned it or a
  /// port of its pipeline; null when no port did.
  virtual bool ReceivePacket(Packet& packet, void* from);
  /// [any] Queues a message for the pipeline, its application and their listeners, which get it on
  /// the control thread, in order. `text` and `attrs` may be null; they are copied.
  bool SendMessageUp(const char* name, const char* text, base::AttrSet* attrs);

  /// [control] The outputs' deliveries are resumed before Start and interrupted before Stop.
  bool StatusUp(Status to) override;
  bool StatusDown(Status to) override;

 protected:
  /// What the element tells the framework about itself, a bit for each. The bits are numbers of the
  /// maker's that have no names here: an element sets those that it was given for its kind, in its
  /// constructor, and the reference host looks at none.
  unsigned int _flags = 0;

 private:
  friend class Pipeline;
  Pipeline* _pipeline = nullptr;
  friend class nimbo::Framework;
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace nimbo::stream
