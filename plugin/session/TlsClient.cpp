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

/// Older versions are not to be used any more (RFC 8996).
constexpr char Priority[] = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

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
  switch (error) {
    case GNUTLS_E_AGAIN:
      return "the server does not answer";
    case GNUTLS_E_PREMATURE_TERMINATION:
    case GNUTLS_E_PULL_ERROR:
    case GNUTLS_E_PUSH_ERROR:
      return "the server closed the connection; does it expect rtmp:// on this port?";
    case GNUTLS_E_UNEXPECTED_PACKET:
    case GNUTLS_E_UNEXPECTED_PACKET_LENGTH:
    case GNUTLS_E_UNSUPPORTED_VERSION_PACKET:
    case GNUTLS_E_RECORD_OVERFLOW:
      return "what the server sends is not TLS; does it expect rtmp:// on this port?";
    case GNUTLS_E_FATAL_ALERT_RECEIVED:
      if (const char* name = gnutls_alert_get_name(gnutls_alert_get(session))) {
        return std::string("the server said: ") + name;
      }
      break;
    default:
      break;
  }
  return gnutls_strerror(error);
}

/// Sends what lies behind the first `done` bytes of the parts, or some of it, as sendmsg does.
ssize_t PushBehind(int socket, const giovec_t* parts, int count, std::size_t done) {
  while (done >= parts->iov_len) {
    done -= parts->iov_len;
    ++parts;
    --count;
  }
  giovec_t rest = {static_cast<char*>(parts->iov_base) + done, parts->iov_len - done};
  msghdr message = {};
  message.msg_iov = done > 0 ? &rest : const_cast<giovec_t*>(parts);
  message.msg_iovlen = done > 0 ? 1 : static_cast<std::size_t>(count);
  return sendmsg(socket, &message, MSG_NOSIGNAL);
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

Status TlsClient::LoadTrust(const TlsTrust& trust) {
  if (!trust.verify) return {};
  if (!trust.caFile.empty()) {
    const int loaded = gnutls_certificate_set_x509_trust_file(_credentials, trust.caFile.c_str(),
                                                              GNUTLS_X509_FMT_PEM);
    if (loaded > 0) return {};
    return Status::Failed("RTMP_CA_FILE=\"" + trust.caFile +
                          "\" holds no certificate that can be read");
  }
  if (gnutls_certificate_set_x509_system_trust(_credentials) > 0) return {};
  _warning =
      "the server's certificate is not checked: this system has no certificate store (name one "
      "with RTMP_CA_FILE)";
  return {};
}

Status TlsClient::Connect(const std::string& host, int socket, const TlsTrust& trust) {
  Reset();
  _transport.socket = socket;
  _host = host;
  _warning.clear();
  if (gnutls_certificate_allocate_credentials(&_credentials) < 0 ||
      gnutls_init(&_session, GNUTLS_CLIENT | GNUTLS_NO_SIGNAL) < 0 ||
      gnutls_priority_set_direct(_session, Priority, nullptr) < 0) {
    return Status::Failed("TLS cannot be set up");
  }
  if (Status loaded = LoadTrust(trust); !loaded) return loaded;
  const bool check = trust.verify && _warning.empty();

  gnutls_credentials_set(_session, GNUTLS_CRD_CERTIFICATE, _credentials);
  if (!IsAddress(host)) {
    gnutls_server_name_set(_session, GNUTLS_NAME_DNS, host.c_str(), host.size());
  }
  if (check) gnutls_session_set_verify_cert(_session, _host.c_str(), 0);
  gnutls_transport_set_ptr(_session, &_transport);
  gnutls_transport_set_pull_function(_session, Pull);
  gnutls_transport_set_vec_push_function(_session, Push);

  int result;
  do {
    result = gnutls_handshake(_session);
  } while (result < 0 && result != GNUTLS_E_AGAIN && !gnutls_error_is_fatal(result));
  if (result == GNUTLS_E_SUCCESS) return {};
  return Status::Failed("TLS: " +
                        (result == GNUTLS_E_CERTIFICATE_VERIFICATION_ERROR
                             ? VerificationText(gnutls_session_get_verify_cert_status(_session))
                             : HandshakeText(_session, result)));
}

gnutls_session_t TlsClient::Lend() {
  gnutls_session_t session = _session;
  _session = nullptr;
  return session;
}

TlsClient::Read TlsClient::Receive(gnutls_session_t session, unsigned char* buffer,
                                   std::size_t size, bool wait) {
  _transport.nonBlocking = !wait;
  // A record that carries no data of the server, a session ticket (RFC 8446, 4.6.1) or a change of
  // keys, ends a read too; another one may follow it at once, but not for ever.
  constexpr int MaxRecords = 32;
  ssize_t result = 0;
  for (int records = 0; records < MaxRecords; ++records) {
    _transport.ranDry = false;
    result = gnutls_record_recv(session, buffer, size);
    const bool goesOn = result < 0 && !gnutls_error_is_fatal(static_cast<int>(result));
    if (!goesOn || _transport.ranDry) break;
  }
  _transport.nonBlocking = false;
  if (result > 0) return {static_cast<std::size_t>(result), false};
  return {0, result == 0 || gnutls_error_is_fatal(static_cast<int>(result)) != 0};
}

ssize_t TlsClient::Pull(gnutls_transport_ptr_t transport, void* data, std::size_t size) {
  auto* from = static_cast<Transport*>(transport);
  const int flags = from->nonBlocking ? MSG_DONTWAIT : 0;
  ssize_t result;
  do {
    // librtmp takes the end of a wait by a signal for the end of the connection.
    result = recv(from->socket, data, size, flags);
  } while (result < 0 && errno == EINTR);
  from->ranDry = result < 0;
  return result;
}

ssize_t TlsClient::Push(gnutls_transport_ptr_t transport, const giovec_t* parts, int count) {
  ssize_t whole = 0;
  for (int part = 0; part < count; ++part) whole += static_cast<ssize_t>(parts[part].iov_len);
  // A record is written whole: after a signal in the middle of one GnuTLS would ask to be called
  // again, and librtmp would begin another one with the same bytes.
  for (ssize_t done = 0; done < whole;) {
    const ssize_t sent = PushBehind(static_cast<const Transport*>(transport)->socket, parts, count,
                                    static_cast<std::size_t>(done));
    if (sent < 0 && errno != EINTR) return sent;
    if (sent > 0) done += sent;
  }
  return whole;
}

}  // namespace nimbo::plugin
