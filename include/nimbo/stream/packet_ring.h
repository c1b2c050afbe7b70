#pragma once

#include <chrono>

#include "nimbo/stream/media.h"
#include "nimbo/stream/packet.h"
#include "nimbo/stream/ring.h"

namespace nimbo::stream {

/// A ring of packets of one stream.
class NIMBO_API PacketRing : public IRing<Packet*> {
 public:
  ~PacketRing() override;
  /// [control] What the stream carries; waits until it is known, at most for `timeout`. Null when
  /// it did not become known or the producer failed. Lives as long as the ring.
  virtual IMedia* Media(std::chrono::nanoseconds timeout) = 0;
};

}  // namespace nimbo::stream
