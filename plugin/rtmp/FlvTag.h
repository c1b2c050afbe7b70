#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

/// The constants of FLV audio and video tag bodies that this plug-in writes (Adobe Flash Video File
/// Format 10.1, annex E.4). The byte tables stand in docs/wire-format.md.
namespace nimbo::plugin::rtmp {

/// A view over memory that its caller owns.
struct Bytes {
  const unsigned char* data = nullptr;
  std::size_t size = 0;
};

/// RTMP message types that carry media (RTMP 1.0, 7.1).
enum class MessageType : unsigned char { Audio = 8, Video = 9 };

/// High four bits of a video tag's first byte.
enum class FrameType : unsigned char { Key = 1, Inter = 2 };
/// Low four bits of a video tag's first byte.
enum class CodecId : unsigned char { Avc = 7 };
enum class AvcPacketType : unsigned char { SequenceHeader = 0, Nalu = 1 };

/// High four bits of an audio tag's first byte.
enum class SoundFormat : unsigned char { Aac = 10 };
enum class AacPacketType : unsigned char { SequenceHeader = 0, Raw = 1 };

/// The largest message body that a chunk header's 24-bit length can tell.
constexpr std::size_t MaxMessageBody = 0xFFFFFF;

/// Writes big-endian fields one behind the other into memory that the caller has made large enough.
class ByteWriter {
 public:
  explicit ByteWriter(unsigned char* out) : _start(out), _next(out) {}

  void u8(unsigned value) { *_next++ = static_cast<unsigned char>(value); }
  void u16(std::size_t value) {
    u8(static_cast<unsigned>(value >> 8));
    u8(static_cast<unsigned>(value));
  }
  void u24(std::size_t value) {
    u8(static_cast<unsigned>(value >> 16));
    u16(value);
  }
  void u32(std::size_t value) {
    u16(value >> 16);
    u16(value);
  }
  void bytes(Bytes from) { _next = std::copy_n(from.data, from.size, _next); }
  std::size_t Written() const { return static_cast<std::size_t>(_next - _start); }

 private:
  unsigned char* _start;
  unsigned char* _next;
};

}  // namespace nimbo::plugin::rtmp
