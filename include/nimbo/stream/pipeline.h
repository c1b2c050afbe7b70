#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nimbo/stream/element.h"
#include "nimbo/stream/object.h"
#include "nimbo/stream/port.h"

namespace nimbo::stream {

/// A set of linked elements that change their status together.
/// Properties: "serialize", the elements as a configuration text, each linked to the next;
/// "status", read only.
class NIMBO_API Pipeline : public Object {
 public:
  Pipeline();
  /// [control] Takes the elements down and destroys them.
  ~Pipeline() override;

  /// [control] Leaves the application before the object is destroyed.
  void Release() override;
  bool Initialize(const char* type, const char* name, const char* cfgs,
                  base::object* owner) override;
  /// [control] Called before the upstream output `port` is linked to this pipeline; may link it
  /// itself. False refuses the link.
  virtual bool beforeLinkFrom(IPort* port);
  /// [control] Links an upstream output to the pipeline.
  bool LinkFrom(IPort* port);
  /// [control] Brings an element that was added late to the pipeline's own status.
  bool ActiveElement(IElement* element);

  /// [control] Sets a parameter, then brings elements that came with it to the pipeline's status.
  bool SetStr(const char* key, const char* value) override;

  bool StatusUp(Status to) override;
  bool StatusDown(Status to) override;
  bool afterStatusDown(Status to) override;

 protected:
  std::vector<IPort*> _ports;  ///< the pipeline's own ports, in the order of their creation

 private:
  friend class IElement;
  friend class nimbo::Framework;
  bool SetSerialize(std::string text);
  std::string GetSerialize() const;
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace nimbo::stream
