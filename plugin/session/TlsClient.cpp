#include "plugin/session/TlsClient.h"

#include <arpa/inet.h>
#include <gnutls/x509.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace nimbo::plugin {

namespace {

/// TLS 1.2 and older; see TlsClient::Connect.
constexpr char Priority[] = "NORMAL:-VERS-TLS1.3";

/// Server name indication is for names, not for addresses (RFC 6066, 3).
bool IsAddress(const std::string& host) {
  unsigned char parsed[sizeof(in6_addr)];
  return inet_pton(AF_INET, host.c_str(), parsed) == 1 ||
         inet_pton(AF_INET6, host.c_str(), parsed) == 1;
}

std::string VerificationText(unsigned int status) {
  gnutls_datum_t text = {};
  if (gnutls_certificate_verification_status_print(status, GNUTLS_CRT_X509, &text, 0) < 0) {
    return "the certificate was not accepted";
  }
  std::string result(reinterpret_cast<const char*>(text.data), text.size);
  gnutls_free(text.data);
  while (!result.empty() && result.back() == ' ') result.pop_back();
  return result;
}

std::string HandshakeText(gnutls_session_t session, int error) {
  if (error == GNUTLS_E_AGAIN) return "the server does not answer";
  std::string text = gnutls_strerror(error);
  if (error == GNUTLS_E_FATAL_ALERT_RECEIVED) {
    const gnutls_alert_description_t alert = gnutls_alert_get(session);
    if (const char* name = gnutls_alert_get_name(alert)) {
      text = std::string("the server said: ") + name;
    }
    if (alert == GNUTLS_A_PROTOCOL_VERSION) {
      text += "; it may accept TLS 1.3 only, which this publisher does not speak: enable TLS 1.2";
    }
  }
  return text;
}

}  // namespace

TlsTrust TlsTrust::FromEnvironment() {
  TlsTrust trust;
  if (const char* file = std::getenv("RTMP_CA_FILE")) trust.caFile = file;
  const char* verify = std::getenv("RTMP_TLS_VERIFY");
  trust.verify = !verify || std::strcmp(verify, "0") != 0;
  return trust;
}

TlsClient::~TlsClient() { Reset(); }

void TlsClient::Reset() {
  if (_session) gnutls_deinit(_session);
  _session = nullptr;
  if (_credentials) gnutls_certificate_free_credentials(_credentials);
  _credentials = nullptr;
  _transport = {};
}

bool TlsClient::LoadTrust(const TlsTrust& trust, std::string& problem, std::string& warning) {
  if (!trust.verify) return true;
  if (!trust.caFile.empty()) {
    const int loaded = gnutls_certificate_set_x509_trust_file(_credentials, trust.caFile.c_str(),
                                                              GNUTLS_X509_FMT_PEM);
    if (loaded > 0) return true;
    problem = "RTMP_CA_FILE=\"" + trust.caFile + "\" holds no certificate that can be read";
    return false;
  }
  if (gnutls_certificate_set_x509_system_trust(_credentials) > 0) return true;
  warning =
      "the server's certificate is not checked: this system has no certificate store (name one "
      "with RTMP_CA_FILE)";
  return true;
}

bool TlsClient::Connect(const std::string& host, int socket, const TlsTrust& trust,
                        std::string& problem, std::string& warning) {
  Reset();
  _transport.socket = socket;
  _host = host;
  if (gnutls_certificate_allocate_credentials(&_credentials) < 0 ||
      gnutls_init(&_session, GNUTLS_CLIENT | GNUTLS_NO_SIGNAL) < 0 ||
      gnutls_priority_set_direct(_session, Priority, nullptr) < 0) {
    problem = "TLS cannot be set up";
    return false;
  }
  if (!LoadTrust(trust, problem, warning)) return false;
  const bool check = trust.verify && warning.empty();

  gnutls_credentials_set(_session, GNUTLS_CRD_CERTIFICATE, _credentials);
  if (!IsAddress(host)) {
    gnutls_server_name_set(_session, GNUTLS_NAME_DNS, host.c_str(), host.size());
  }
  if (check) gnutls_session_set_verify_cert(_session, _host.c_str(), 0);
  gnutls_transport_set_int(_session, socket);
  // Only reads need to know whether they may wait; writes stay GnuTLS's own.
  gnutls_transport_set_ptr2(_session, &_transport,
                            reinterpret_cast<gnutls_transport_ptr_t>(std::intptr_t{socket}));
  gnutls_transport_set_pull_function(_session, Pull);

  int result;
  do {
    result = gnutls_handshake(_session);
  } while (result < 0 && result != GNUTLS_E_AGAIN && !gnutls_error_is_fatal(result));
  if (result == GNUTLS_E_SUCCESS) return true;
  problem = result == GNUTLS_E_CERTIFICATE_VERIFICATION_ERROR
                ? VerificationText(gnutls_session_get_verify_cert_status(_session))
                : HandshakeText(_session, result);
  problem = "TLS: " + problem;
  return false;
}

gnutls_session_t TlsClient::Lend() {
  gnutls_session_t session = _session;
  _session = nullptr;
  return session;
}

ssize_t TlsClient::Pull(gnutls_transport_ptr_t transport, void* data, std::size_t size) {
  const auto* from = static_cast<const Transport*>(transport);
  const int flags = from->nonBlocking ? MSG_DONTWAIT : 0;
  ssize_t result;
  do {
    // librtmp takes the end of a wait by a signal for the end of the connection.
    result = recv(from->socket, data, size, flags);
  } while (result < 0 && errno == EINTR);
  return result;
}

}  // namespace nimbo::plugin
