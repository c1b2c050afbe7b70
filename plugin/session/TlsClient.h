#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include <gnutls/gnutls.h>

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

  /// Makes the handshake with `host` over `socket`. Certificate and name are checked as `trust`
  /// says. At most TLS 1.2: librtmp takes the session tickets of a TLS 1.3 server for an error.
  /// False, with the reason in `problem`, when it fails; `warning` is set where the connection goes
  /// on unchecked because there is nothing to check it against.
  bool Connect(const std::string& host, int socket, const TlsTrust& trust, std::string& problem,
               std::string& warning);
  /// Gives the session to librtmp, which says goodbye on it and frees it. This object must stay
  /// alive until then.
  gnutls_session_t Lend();
  /// Whether reads return at once when nothing has arrived.
  void NonBlockingReads(bool on) { _transport.nonBlocking = on; }
  /// Forgets everything of a connection that has ended.
  void Reset();

 private:
  struct Transport {
    int socket = -1;
    bool nonBlocking = false;
  };
  static ssize_t Pull(gnutls_transport_ptr_t transport, void* data, std::size_t size);
  bool LoadTrust(const TlsTrust& trust, std::string& problem, std::string& warning);

  Transport _transport;
  std::string _host;                    ///< the session points to it
  gnutls_session_t _session = nullptr;  ///< until it is lent
  gnutls_certificate_credentials_t _credentials = nullptr;
};

}  // namespace nimbo::plugin
