#pragma once

#include <cstddef>
#include <cstdint>

#include "nimbo/base/reference.h"
#include "nimbo/stream/media.h"

namespace nimbo::stream {

/// One encoded access unit (H.264 in Annex B form) or audio frame (AAC behind its ADTS header).
/// Counted, shared by all its readers and not changed by any of them. [any]
class NIMBO_API Packet : public base::Reference {
 public:
  const unsigned char* Data() const noexcept { return _data; }
  /// Length of Data() in bytes.
  unsigned int Size() const noexcept { return _size; }
  bool IsKey() const noexcept { return _key; }
  /// Decode time in nanoseconds on the clock of the capture, which all streams of an application
  /// share (the reference host's begins at 0, a device's is the maker's): times of two streams
  /// can be compared, those of two machines cannot. Never decreases in a stream.
  std::int64_t TimeStamp() const noexcept { return _time_stamp; }
  /// Grows by one per packet of a stream, modulo 2^32.
  std::uint32_t Sequence() const noexcept { return _sequence; }
  /// What the packet belongs to; may be null. Lives as long as the packet.
  IMedia* Media() const noexcept { return _media; }

 protected:
  ~Packet() override;

  const unsigned char* _data = nullptr;
  unsigned int _size = 0;
  bool _key = false;
  std::int64_t _time_stamp = 0;
  std::uint32_t _sequence = 0;
  IMedia* _media = nullptr;  ///< one reference is held
};

}  // namespace nimbo::stream
