#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include "host/stream/PacketPool.h"
#include "nimbo/stream/media.h"

namespace nimbo::capture::av {

/// Gives a counted object of the framework back.
struct ReleaseReference {
  template <class T>
  void operator()(T* object) const {
    object->Release();
  }
};
using MediaPtr = std::unique_ptr<stream::IMedia, ReleaseReference>;
using HostPacketPtr = std::unique_ptr<stream::HostPacket, ReleaseReference>;

/// Memory of somebody else.
struct ByteView {
  const unsigned char* data = nullptr;
  std::size_t size = 0;
};

/// The packets of one stream that are made but not yet taken. Times are nanoseconds on the
/// producer's own time line; those of packets taken never decrease. One thread at a time.
class StreamOutput {
 public:
  /// What the packets appended from now on carry. Takes over one reference.
  void SetMedia(stream::IMedia* media) { _media.reset(media); }
  stream::IMedia* Media() const noexcept { return _media.get(); }

  /// Makes a packet of the two pieces.
  void Append(ByteView head, ByteView body, bool key, std::int64_t time);

  bool Empty() const noexcept { return _waiting.empty(); }
  /// Of the oldest packet, and from there to the newest. There must be one.
  std::int64_t FrontTime() const { return _waiting.front()->TimeStamp(); }
  std::int64_t Span() const { return _waiting.back()->TimeStamp() - _waiting.front()->TimeStamp(); }
  /// Takes the oldest packet, its time moved by `shift`; the caller gets its reference.
  stream::Packet* Take(std::int64_t shift);
  /// Drops what is waiting.
  void Clear() { _waiting.clear(); }

 private:
  MediaPtr _media;
  stream::PacketPool _pool;
  std::deque<HostPacketPtr> _waiting;
  std::uint32_t _sequence = 0;
  std::int64_t _last = 0;  ///< time stamp of the last packet taken; none is negative
};

}  // namespace nimbo::capture::av
