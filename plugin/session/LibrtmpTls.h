#pragma once

namespace nimbo::plugin {

/// Whether the librtmp of this process keeps its TLS sessions with GnuTLS, so that one made here
/// can be lent to it. Told by the libraries that it needs. [any]
bool LibrtmpUsesGnuTls();

}  // namespace nimbo::plugin
