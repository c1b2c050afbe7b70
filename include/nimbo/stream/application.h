#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nimbo/stream/object.h"
#include "nimbo/stream/packet_ring.h"

namespace nimbo::stream {

/// A set of pipelines that are built from one configuration text and change their status together.
/// Properties: "serialize", the configuration text; "status", read only.
class NIMBO_API Application : public Object {
 public:
  Application();
  /// [control] Destroys the pipelines, after taking them down.
  ~Application() override;

  /// [control] Adds the packet rings of all its ring sinks to `list`, in the order of the
  /// configuration. `readyOnly` asks only for rings whose media is known or about to be.
  bool OutputList(std::vector<PacketRing*>& list, bool readyOnly);

  bool StatusUp(Status to) override;
  bool StatusDown(Status to) override;
  bool afterStatusDown(Status to) override;

 private:
  friend class nimbo::Framework;
  /// [control] Builds the pipelines that `text` describes in place of those there are, which the
  /// status null allows. False, with one console line and no pipelines, when it cannot.
  bool SetSerialize(std::string text);
  std::string GetSerialize() const;
  struct State;
  std::unique_ptr<State> _state;
};

}  // namespace nimbo::stream
