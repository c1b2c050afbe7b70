#pragma once

#include <gnutls/gnutls.h>

#include "plugin/bytes/Chunk.h"

/// Writing a message from the memory in which its parts lie, without putting it together first.
namespace nimbo::plugin {

/// Writes all of `message` in as few system calls as it takes. False when the connection failed or
/// took nothing within its send time-out.
bool WriteGathered(int socket, ChunkedMessage& message);
/// The same in as few TLS records as it takes.
bool WriteGathered(gnutls_session_t session, ChunkedMessage& message);

}  // namespace nimbo::plugin
