#include "plugin/session/GatheredWrite.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <cerrno>

namespace nimbo::plugin {

namespace {

/// The pieces of a message that one system call takes.
constexpr std::size_t MaxPieces = 256;

}  // namespace

bool WriteGathered(int socket, ChunkedMessage& message) {
  Bytes pieces[MaxPieces];
  iovec parts[MaxPieces];
  while (const std::size_t count = message.Next(pieces, MaxPieces)) {
    for (std::size_t i = 0; i < count; ++i) {
      parts[i] = {const_cast<unsigned char*>(pieces[i].data), pieces[i].size};
    }
    msghdr gathered = {};
    gathered.msg_iov = parts;
    gathered.msg_iovlen = count;
    const ssize_t sent = sendmsg(socket, &gathered, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    // A signal, or a time-out behind the first bytes, cuts a write short.
    message.Take(static_cast<std::size_t>(sent));
  }
  return true;
}

bool WriteGathered(gnutls_session_t session, ChunkedMessage& message) {
  Bytes pieces[MaxPieces];
  gnutls_record_cork(session);
  bool taken = true;
  while (const std::size_t count = taken ? message.Next(pieces, MaxPieces) : 0) {
    std::size_t whole = 0;
    for (std::size_t i = 0; taken && i < count; ++i) {
      const auto size = static_cast<ssize_t>(pieces[i].size);
      taken = gnutls_record_send(session, pieces[i].data, pieces[i].size) == size;
      if (taken) whole += pieces[i].size;
    }
    message.Take(whole);
  }
  int result;
  do {
    result = gnutls_record_uncork(session, 0);
  } while (result == GNUTLS_E_INTERRUPTED);
  return taken && result >= 0;
}

}  // namespace nimbo::plugin
