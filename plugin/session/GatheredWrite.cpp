#include "plugin/session/GatheredWrite.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>
#include <limits>

namespace nimbo::plugin {

namespace {

/// The pieces of a message that one system call takes.
constexpr std::size_t MaxPieces = 256;

}  // namespace

bool WriteGathered(int socket, ChunkedMessage& message) {
  iovec parts[MaxPieces];
  for (;;) {
    iovec* next = parts;
    const std::size_t count = message.Next(MaxPieces, [&next](Bytes piece) {
      *next++ = {const_cast<unsigned char*>(piece.data), piece.size};
    });
    if (count == 0) return true;
    msghdr gathered = {};
    gathered.msg_iov = parts;
    gathered.msg_iovlen = count;
    const ssize_t sent = sendmsg(socket, &gathered, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    // A signal, or a time-out behind the first bytes, cuts a write short.
    message.Take(static_cast<std::size_t>(sent));
  }
}

bool WriteGathered(gnutls_session_t session, ChunkedMessage& message) {
  gnutls_record_cork(session);
  // What is corked is taken whole, or there is no memory for it.
  bool taken = true;
  constexpr auto All = std::numeric_limits<std::size_t>::max();
  message.Next(All, [&](Bytes piece) {
    const auto size = static_cast<ssize_t>(piece.size);
    taken = taken && gnutls_record_send(session, piece.data, piece.size) == size;
  });
  int result;
  do {
    result = gnutls_record_uncork(session, 0);
  } while (result == GNUTLS_E_INTERRUPTED);
  return taken && result >= 0;
}

}  // namespace nimbo::plugin
