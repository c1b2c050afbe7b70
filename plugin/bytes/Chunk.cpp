#include "plugin/bytes/Chunk.h"

#include <cassert>

namespace nimbo::plugin {

namespace {

constexpr unsigned FormatShift = 6;
constexpr unsigned FullFormat = 0;
constexpr unsigned NoHeaderFormat = 3;

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
