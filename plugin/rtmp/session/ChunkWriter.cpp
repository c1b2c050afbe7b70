#include "plugin/rtmp/session/ChunkWriter.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>

namespace nimbo::plugin::rtmp {

namespace {

/// The pieces of a message that one system call takes.
constexpr std::size_t MostPieces = 256;

/// Sends all of `pieces`, which are changed meanwhile.
bool SendAll(int socket, iovec* pieces, std::size_t count) {
  while (count > 0) {
    msghdr message = {};
    message.msg_iov = pieces;
    message.msg_iovlen = count;
    const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    auto left = static_cast<std::size_t>(sent);
    while (count > 0 && left >= pieces->iov_len) {
      left -= pieces->iov_len;
      ++pieces;
      --count;
    }
    if (count == 0) break;
    // A signal can cut a write short; a connection that stays stalled fails at the next one.
    pieces->iov_base = static_cast<unsigned char*>(pieces->iov_base) + left;
    pieces->iov_len -= left;
  }
  return true;
}

}  // namespace

ChunkWriter::ChunkWriter(const ChunkHeader& header, std::size_t chunkSize)
    : _chunk_size(chunkSize) {
  constexpr std::uint32_t NeedsExtension = 0xFFFFFF;
  constexpr unsigned FullFormat = 0U << 6;
  constexpr unsigned NoHeaderFormat = 3U << 6;
  const bool extended = header.timestamp >= NeedsExtension;

  ByteWriter first(_first);
  first.u8(FullFormat | static_cast<unsigned>(header.channel));
  first.u24(extended ? NeedsExtension : header.timestamp);
  first.u24(header.bodySize);
  first.u8(header.type);
  const auto id = static_cast<std::uint32_t>(header.streamId);
  for (unsigned shift = 0; shift < 32; shift += 8) first.u8(id >> shift & 0xFF);  // little-endian
  if (extended) first.u32(header.timestamp);
  _first_size = first.Written();

  ByteWriter next(_next);
  next.u8(NoHeaderFormat | static_cast<unsigned>(header.channel));
  if (extended) next.u32(header.timestamp);
  _next_size = next.Written();
}

template <class Take>
bool ChunkWriter::ForEachPiece(Bytes head, Bytes tail, Take take) const {
  if (!take({_first, _first_size})) return false;
  std::size_t room = _chunk_size;
  for (Bytes part : {head, tail}) {
    while (part.size > 0) {
      if (room == 0) {
        if (!take({_next, _next_size})) return false;
        room = _chunk_size;
      }
      const std::size_t size = std::min(room, part.size);
      if (!take({part.data, size})) return false;
      part = {part.data + size, part.size - size};
      room -= size;
    }
  }
  return true;
}

bool ChunkWriter::Write(int socket, Bytes head, Bytes tail) const {
  iovec pieces[MostPieces];
  std::size_t count = 0;
  const auto take = [&](Bytes piece) {
    if (count == MostPieces) {
      if (!SendAll(socket, pieces, count)) return false;
      count = 0;
    }
    pieces[count++] = {const_cast<unsigned char*>(piece.data), piece.size};
    return true;
  };
  return ForEachPiece(head, tail, take) && SendAll(socket, pieces, count);
}

bool ChunkWriter::Write(gnutls_session_t session, Bytes head, Bytes tail) const {
  gnutls_record_cork(session);
  const auto take = [session](Bytes piece) {
    return gnutls_record_send(session, piece.data, piece.size) == static_cast<ssize_t>(piece.size);
  };
  bool sent = ForEachPiece(head, tail, take);
  int result;
  do {
    result = gnutls_record_uncork(session, 0);
  } while (result == GNUTLS_E_INTERRUPTED);
  return sent && result >= 0;
}

}  // namespace nimbo::plugin::rtmp
