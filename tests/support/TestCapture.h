#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nimbo/stream/packet.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::test {

/// A capture source `name` whose packets come from the test: the source that a configuration
/// connects to with "pv:NAME". Registered while it lives; must outlive the objects that use it.
class Feed {
 public:
  Feed(std::string name, Held<stream::IMedia> media);
  Feed(const Feed&) = delete;
  Feed& operator=(const Feed&) = delete;
  ~Feed();

  stream::IMedia* Media() const;
  /// [any] Hands a packet to the source's consumer, or keeps it until there is one.
  void Push(Held<stream::Packet> packet);
  /// [any] A packet of the feed's own media.
  void Push(Bytes bytes, bool key, std::int64_t time, std::uint32_t sequence);
  /// [control] Sources of this name fail to open from now on.
  void FailToOpen();
  /// [control] What sources of this name give was taken in before their start.
  void FallBehind();
  /// [control] They open, but fail to start.
  void FailToStart();

  struct State;

 private:
  std::string _name;
  std::shared_ptr<State> _state;
};

/// The configuration of an application with one packet ring for each of the named sources.
std::string RingConfiguration(const std::vector<std::string>& sources,
                              const std::string& ring = "RingSink");

}  // namespace nimbo::test
