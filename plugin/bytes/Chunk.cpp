#include "plugin/bytes/Chunk.h"

#include <cassert>

namespace nimbo::plugin {

namespace {

constexpr unsigned FormatShift = 6;
constexpr unsigned FullFormat = 0;
constexpr unsigned NoHeaderFormat = 3;

Bytes Behind(Bytes bytes, std::size_t size) { return {bytes.data + size, bytes.size - size}; }

}  // namespace

ChunkedMessage::ChunkedMessage(const MessageHeader& header, std::size_t chunkSize, Bytes head,
                               Bytes tail)
    : _chunk_size(chunkSize), _head(head), _tail(tail) {
  assert(chunkSize > 0 && header.bodySize == head.size + tail.size);
  const bool extended = header.timestamp >= ExtendedTimestamp;

  ByteWriter first(_first);
  first.u8(FullFormat << FormatShift | static_cast<unsigned>(header.channel));
  first.u24(extended ? ExtendedTimestamp : header.timestamp);
  first.u24(header.bodySize);
  first.u8(header.type);
  const auto id = static_cast<std::uint32_t>(header.streamId);
  for (unsigned shift = 0; shift < 32; shift += 8) first.u8(id >> shift & 0xFF);  // little-endian
  if (extended) first.u32(header.timestamp);
  _ahead = _place = {{_first, first.Written()}, 0, chunkSize};

  ByteWriter next(_next);
  next.u8(NoHeaderFormat << FormatShift | static_cast<unsigned>(header.channel));
  if (extended) next.u32(header.timestamp);
  _next_size = next.Written();
}

Bytes ChunkedMessage::PieceAt(const Place& place) const {
  if (place.header.size > 0) return place.header;
  const bool inHead = place.body < _head.size;
  Bytes piece = inHead ? Behind(_head, place.body) : Behind(_tail, place.body - _head.size);
  piece.size = std::min(piece.size, place.room);
  return piece;
}

void ChunkedMessage::Advance(Place& place, std::size_t size) const {
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

std::size_t ChunkedMessage::Next(Bytes* pieces, std::size_t room) {
  _ahead = _place;
  _ahead_size = 0;
  std::size_t count = 0;
  while (count < room) {
    const Bytes piece = PieceAt(_ahead);
    if (piece.size == 0) break;
    pieces[count++] = piece;
    _ahead_size += piece.size;
    Advance(_ahead, piece.size);
  }
  return count;
}

void ChunkedMessage::Take(std::size_t size) {
  if (size == _ahead_size) {
    _place = _ahead;
  } else {
    while (size > 0) {
      const std::size_t step = std::min(size, PieceAt(_place).size);
      assert(step > 0);
      Advance(_place, step);
      size -= step;
    }
  }
  _ahead = _place;
  _ahead_size = 0;
}

}  // namespace nimbo::plugin
