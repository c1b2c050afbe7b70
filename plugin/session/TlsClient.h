#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include <gnutls/gnutls.h>

#include "common/Status.h"

namespace nimbo::plugin {

/// What a connection trusts: certificates and whether they are checked at all.
class TlsTrust {
 public:
  /// Reads the environment: RTMP_CA_FILE names a file of trusted certificates (PEM) that stands in
  /// place of the system's store; RTMP_TLS_VERIFY=0 turns the check off.
  static TlsTrust FromEnvironment();

  std::string caFile;  ///< empty: the system's store
  bool verify = true;
};

/// A TLS connection over a connected socket, for librtmp built on GnuTLS: made here, so that the
/// server's name is told and checked, then lent to librtmp.
class TlsClient {
 public:
  TlsClient() = default;
  TlsClient(const TlsClient&) = delete;
  TlsClient& operator=(const TlsClient&) = delete;
  ~TlsClient();

  /// Makes the handshake with `host` over `socket`: TLS 1.2 or 1.3. Certificate and name are
  /// checked as `trust` says.
  Status Connect(const std::string& host, int socket, const TlsTrust& trust);
  /// Why the last connection goes on unchecked, where there is nothing to check it against; else
  /// empty.
  const std::string& Warning() const { return _warning; }
  /// Gives the session to librtmp, which says goodbye on it and frees it. This object must stay
  /// alive until then.
  gnutls_session_t Lend();
  /// One read of a session that was lent: bytes of the server; with `wait` there are some, unless
  /// the socket's time-out ends the wait.
  struct Read {
    std::size_t size = 0;
    bool end = false;  ///< the server, or the connection, has ended
  };
  Read Receive(gnutls_session_t session, unsigned char* buffer, std::size_t size, bool wait);
  /// Forgets everything of a connection that has ended.
  void Reset();

 private:
  struct Transport {
    int socket = -1;
    bool nonBlocking = false;
    bool ranDry = false;  ///< the last read of the socket brought nothing
  };
  static ssize_t Pull(gnutls_transport_ptr_t transport, void* data, std::size_t size);
  static ssize_t Push(gnutls_transport_ptr_t transport, const giovec_t* parts, int count);
  Status LoadTrust(const TlsTrust& trust);

  Transport _transport;
  std::string _host;  ///< the session points to it
  std::string _warning;
  gnutls_session_t _session = nullptr;  ///< until it is lent
  gnutls_certificate_credentials_t _credentials = nullptr;
};

}  // namespace nimbo::plugin
