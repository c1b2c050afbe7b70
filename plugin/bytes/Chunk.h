#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "plugin/bytes/Bytes.h"

/// RTMP messages cut into chunks (RTMP 1.0, 5.3). Pure functions over memory that the caller owns.
namespace nimbo::plugin {

/// RTMP message types (RTMP 1.0, 5.4, 6.2 and 7.1).
enum class MessageType : unsigned char {
  SetChunkSize = 1,
  Abort = 2,
  Acknowledgement = 3,
  UserControl = 4,
  WindowSize = 5,
  PeerBandwidth = 6,
  Audio = 8,
  Video = 9,
  CommandAmf3 = 17,
  Data = 18,
  Command = 20,
};

/// The largest message body that a chunk header's 24-bit length can tell.
constexpr std::size_t MaxMessageBody = 0xFFFFFF;
/// A 24-bit time stamp that says that the true one follows in 32 bits (RTMP 1.0, 5.3.1.3).
constexpr std::uint32_t ExtendedTimestamp = 0xFFFFFF;

/// What the full chunk header of a message says (RTMP 1.0, 5.3.1).
struct MessageHeader {
  int channel;  ///< chunk stream id, 2 to 63
  unsigned char type;
  std::uint32_t timestamp;  ///< ms
  std::size_t bodySize;     ///< at most MaxMessageBody
  int streamId;
};

/// One message on its way out, cut into chunks: hands out its pieces in order, from the memory in
/// which they lie, as far as they have not been taken yet. The chunk headers come from the side,
/// the parts are only read. The bytes are those that librtmp writes for a message with a full
/// header.
class ChunkedMessage {
 public:
  /// The body is `head` and `tail`, one behind the other; together they are `header.bodySize` long,
  /// and stay alive as long as this object.
  ChunkedMessage(const MessageHeader& header, std::size_t chunkSize, Bytes head, Bytes tail);

  /// Calls `give(Bytes)` for each of the pieces that come next, at most `room` of them. Returns
  /// their number; 0 when all has been taken.
  template <class Give>
  std::size_t Next(std::size_t room, Give give);
  /// The next `size` bytes have been taken; a write may end inside a piece.
  void Take(std::size_t size);

 private:
  static constexpr std::size_t FullHeader = 12;
  static constexpr std::size_t ExtendedSize = 4;

  /// A place between two bytes of the message.
  struct Place {
    Bytes header;      ///< what is left of the header of the chunk
    std::size_t body;  ///< bytes of the body in front
    std::size_t room;  ///< bytes of the body that still fit the chunk
  };
  static Bytes Behind(Bytes bytes, std::size_t size) {
    return {bytes.data + size, bytes.size - size};
  }
  /// The bytes that follow `place` and lie behind each other; none at the message's end.
  Bytes PieceAt(const Place& place) const;
  /// `place`, `size` bytes of its piece later.
  void Advance(Place& place, std::size_t size) const;

  unsigned char _first[FullHeader + ExtendedSize];
  unsigned char _next[1 + ExtendedSize];  ///< in front of every further chunk
  std::size_t _next_size;
  std::size_t _chunk_size;
  Bytes _head;
  Bytes _tail;
  Place _place;
  Place _ahead;  ///< behind the pieces that were handed out last
  std::size_t _ahead_size = 0;
};

// In sight of whoever walks: a picture has two pieces a chunk.

inline Bytes ChunkedMessage::PieceAt(const Place& place) const {
  if (place.header.size > 0) return place.header;
  const bool inHead = place.body < _head.size;
  const Bytes piece = inHead ? Behind(_head, place.body) : Behind(_tail, place.body - _head.size);
  return {piece.data, std::min(piece.size, place.room)};
}

inline void ChunkedMessage::Advance(Place& place, std::size_t size) const {
  if (place.header.size > 0) {
    place.header = Behind(place.header, size);
    return;
  }
  place.body += size;
  place.room -= size;
  if (place.room == 0 && place.body < _head.size + _tail.size) {
    place.header = {_next, _next_size};
    place.room = _chunk_size;
  }
}

template <class Give>
std::size_t ChunkedMessage::Next(std::size_t room, Give give) {
  Place place = _place;
  std::size_t size = 0;
  std::size_t count = 0;
  for (; count < room; ++count) {
    const Bytes piece = PieceAt(place);
    if (piece.size == 0) break;
    give(piece);
    size += piece.size;
    Advance(place, piece.size);
  }
  _ahead = place;
  _ahead_size = size;
  return count;
}

}  // namespace nimbo::plugin
