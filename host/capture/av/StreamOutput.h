#pragma once

#include <cstdint>
#include <deque>
#include <utility>

#include "common/Held.h"
#include "host/capture/H264.h"
#include "host/stream/PacketPool.h"
#include "nimbo/stream/media.h"

namespace nimbo::capture::av {

/// The packets of one stream that are made but not yet taken. Times are nanoseconds on the
/// producer's own time line; those of packets taken never decrease. One thread at a time.
class StreamOutput {
 public:
  /// What the packets appended from now on carry.
  void SetMedia(Held<stream::IMedia> media) { _media = std::move(media); }
  stream::IMedia* Media() const noexcept { return _media.get(); }

  /// Makes a packet of the two pieces.
  void Append(ByteSpan head, ByteSpan body, bool key, std::int64_t time);

  bool Empty() const noexcept { return _waiting.empty(); }
  /// Of the oldest packet, and from there to the newest. There must be one.
  std::int64_t FrontTime() const { return _waiting.front()->TimeStamp(); }
  std::int64_t Span() const { return _waiting.back()->TimeStamp() - _waiting.front()->TimeStamp(); }
  /// Takes the oldest packet, its time moved by `shift`.
  Held<stream::Packet> Take(std::int64_t shift);
  /// Drops what is waiting.
  void Clear() { _waiting.clear(); }

 private:
  Held<stream::IMedia> _media;
  stream::PacketPool _pool;
  std::deque<Held<stream::HostPacket>> _waiting;
  std::uint32_t _sequence = 0;
  std::int64_t _last = 0;  ///< time stamp of the last packet taken; none is negative
};

}  // namespace nimbo::capture::av
