#pragma once

#include <cstddef>
#include <cstdint>

#include <gnutls/gnutls.h>

#include "plugin/rtmp/FlvTag.h"

namespace nimbo::plugin::rtmp {

/// What the full chunk header of a message says (RTMP 1.0, 5.3.1).
struct ChunkHeader {
  int channel;  ///< chunk stream id, 2 to 63
  unsigned char type;
  std::uint32_t timestamp;  ///< ms
  std::size_t bodySize;     ///< at most MaxMessageBody
  int streamId;
};

/// Writes one message, cut into chunks, from the memory in which its parts lie: the chunk headers
/// come from the side and the parts are only read. The bytes are those that librtmp writes for a
/// message with a full header.
class ChunkWriter {
 public:
  ChunkWriter(const ChunkHeader& header, std::size_t chunkSize);

  /// Writes the message whose body is `head` and `tail`, one behind the other. False when the
  /// connection failed or took less than everything in its send time-out.
  bool Write(int socket, Bytes head, Bytes tail) const;
  /// The same in as few TLS records as it takes.
  bool Write(gnutls_session_t session, Bytes head, Bytes tail) const;

 private:
  /// Hands out the pieces of the message in order, until `take` returns false.
  template <class Take>
  bool ForEachPiece(Bytes head, Bytes tail, Take take) const;

  static constexpr std::size_t FullHeader = 12;
  static constexpr std::size_t ExtendedTime = 4;

  unsigned char _first[FullHeader + ExtendedTime];
  std::size_t _first_size;
  unsigned char _next[1 + ExtendedTime];  ///< in front of every further chunk
  std::size_t _next_size;
  std::size_t _chunk_size;
};

}  // namespace nimbo::plugin::rtmp
