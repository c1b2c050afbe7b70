#include "tests/support/TlsServer.h"

#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <netinet/in.h>

#include <atomic>
#include <ctime>
#include <stdexcept>

namespace nimbo::test {
namespace {

void Check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + gnutls_strerror(result));
}

/// A key and a certificate for it.
struct Pair {
  /// Signed by `issuer`, or by itself.
  Pair(const Certificate& says, const Pair* issuer) {
    gnutls_x509_privkey_init(&key);
    Check(gnutls_x509_privkey_generate(key, GNUTLS_PK_ECDSA,
                                       GNUTLS_CURVE_TO_BITS(GNUTLS_ECC_CURVE_SECP256R1), 0),
          "key");
    gnutls_x509_crt_init(&certificate);
    const std::time_t now = std::time(nullptr);
    constexpr std::time_t Day = 24 * 60 * 60;
    const unsigned char serial[] = {1};
    gnutls_x509_crt_set_version(certificate, 3);
    gnutls_x509_crt_set_serial(certificate, serial, sizeof serial);
    gnutls_x509_crt_set_activation_time(certificate, now - 2 * Day);
    gnutls_x509_crt_set_expiration_time(certificate, says.expired ? now - Day : now + Day);
    gnutls_x509_crt_set_basic_constraints(certificate, issuer ? 0 : 1, -1);
    gnutls_x509_crt_set_key_usage(certificate,
                                  GNUTLS_KEY_DIGITAL_SIGNATURE | GNUTLS_KEY_KEY_CERT_SIGN);
    gnutls_x509_crt_set_dn(certificate, issuer ? "CN=server" : "CN=test", nullptr);
    AddName(GNUTLS_SAN_DNSNAME, says.name.data(), says.name.size());
    if (says.addresses) {
      const in_addr v4{htonl(INADDR_LOOPBACK)};
      AddName(GNUTLS_SAN_IPADDRESS, &v4, sizeof v4);
      AddName(GNUTLS_SAN_IPADDRESS, &in6addr_loopback, sizeof in6addr_loopback);
    }
    gnutls_x509_crt_set_key(certificate, key);
    const Pair& signer = issuer ? *issuer : *this;
    Check(gnutls_x509_crt_sign2(certificate, signer.certificate, signer.key, GNUTLS_DIG_SHA256, 0),
          "sign");
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;
  ~Pair() {
    gnutls_x509_crt_deinit(certificate);
    gnutls_x509_privkey_deinit(key);
  }

  void AddName(gnutls_x509_subject_alt_name_t type, const void* data, std::size_t size) {
    Check(gnutls_x509_crt_set_subject_alt_name(certificate, type, data, static_cast<unsigned>(size),
                                               GNUTLS_FSAN_APPEND),
          "name");
  }

  gnutls_x509_privkey_t key = nullptr;
  gnutls_x509_crt_t certificate = nullptr;
};

}  // namespace

struct TlsServer::Keys {
  Keys(const Certificate& says, const std::string& priority)
      : authority({}, nullptr), server(says, says.issued ? &authority : nullptr) {
    gnutls_certificate_allocate_credentials(&credentials);
    Check(gnutls_certificate_set_x509_key(credentials, &server.certificate, 1, server.key),
          "credentials");
    Check(gnutls_priority_init(&versions, priority.c_str(), nullptr), "priority");
    gnutls_session_ticket_key_generate(&tickets);
  }
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;
  ~Keys() {
    gnutls_free(tickets.data);
    gnutls_priority_deinit(versions);
    gnutls_certificate_free_credentials(credentials);
  }

  Pair authority;
  Pair server;
  gnutls_certificate_credentials_t credentials = nullptr;
  gnutls_priority_t versions = nullptr;
  gnutls_datum_t tickets = {};
};

/// The server's end of one connection.
class TlsServer::Layer final : public Transport {
 public:
  Layer(TlsServer& server, int descriptor) : Transport(descriptor), _server(server) {
    gnutls_init(&_session, GNUTLS_SERVER | GNUTLS_NO_SIGNAL);
    gnutls_priority_set(_session, server._keys->versions);
    gnutls_credentials_set(_session, GNUTLS_CRD_CERTIFICATE, server._keys->credentials);
    gnutls_session_ticket_enable_server(_session, &server._keys->tickets);
    gnutls_transport_set_int(_session, descriptor);
  }
  ~Layer() override { gnutls_deinit(_session); }

  bool Handshake() override {
    int result = 0;
    do {
      result = gnutls_handshake(_session);
    } while (result < 0 && !gnutls_error_is_fatal(result));
    if (result < 0) return false;
    char name[256] = "";
    std::size_t size = sizeof name;
    unsigned type = 0;
    gnutls_server_name_get(_session, name, &size, &type, 0);
    const std::lock_guard<std::mutex> lock(_server._mutex);
    const char* version = gnutls_protocol_get_name(gnutls_protocol_get_version(_session));
    _server._handshakes.push_back(std::string(version) + " " + name);
    _ready = true;
    return true;
  }
  ssize_t Read(unsigned char* bytes, std::size_t size) override {
    constexpr unsigned Period = 5;  // reads
    if (++_reads % Period == 0 && _reads / Period <= _server._changes_keys) {
      const unsigned asked = _reads % (2 * Period) == 0 ? GNUTLS_KU_PEER : 0U;
      if (gnutls_session_key_update(_session, asked) == 0) ++_server._key_changes;
    }
    for (;;) {
      const ssize_t got = gnutls_record_recv(_session, bytes, size);
      if (got != GNUTLS_E_AGAIN && got != GNUTLS_E_INTERRUPTED) return got;
    }
  }

 protected:
  ssize_t WriteSome(const unsigned char* bytes, std::size_t size) override {
    return gnutls_record_send(_session, bytes, size);
  }
  void SayGoodbye() override {
    if (_ready.exchange(false)) gnutls_bye(_session, GNUTLS_SHUT_WR);
  }

 private:
  TlsServer& _server;
  gnutls_session_t _session = nullptr;
  unsigned _reads = 0;
  std::atomic<bool> _ready{false};  ///< the handshake is done, the goodbye not said
};

TlsServer::TlsServer(const Certificate& certificate, const std::string& priority,
                     unsigned changesKeys)
    : _keys(std::make_unique<Keys>(certificate, priority)), _changes_keys(changesKeys) {
  const Pair& trusted = certificate.issued ? _keys->authority : _keys->server;
  gnutls_datum_t pem = {};
  Check(gnutls_x509_crt_export2(trusted.certificate, GNUTLS_X509_FMT_PEM, &pem), "export");
  _trust_file = std::make_unique<StreamFile>(Bytes(pem.data, pem.data + pem.size));
  gnutls_free(pem.data);
}

TlsServer::~TlsServer() = default;

IngestServer::Securer TlsServer::Securer() {
  return [this](int descriptor) { return std::make_unique<Layer>(*this, descriptor); };
}

std::vector<std::string> TlsServer::Handshakes() const {
  const std::lock_guard<std::mutex> lock(_mutex);
  return _handshakes;
}

}  // namespace nimbo::test
