#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/IngestServer.h"
#include "tests/support/StreamFile.h"

namespace nimbo::test {

/// What a server's certificate says.
struct Certificate {
  std::string name = "localhost";  ///< DNS name
  bool addresses = true;           ///< 127.0.0.1 and ::1 are in it too
  bool expired = false;
  bool issued = false;  ///< by an authority, not signed by itself
};

/// A server certificate made for one test, and TLS with it. Must outlive the servers that use it.
class TlsServer {
 public:
  /// `priority` is GnuTLS's choice of versions, such as "NORMAL:-VERS-ALL:+VERS-TLS1.3".
  /// On each connection it changes its keys `changesKeys` times, early on, and asks the publisher
  /// to change its own every other time (TLS 1.3). GnuTLS ends a connection at the ninth in a
  /// second.
  explicit TlsServer(const Certificate& certificate = {}, const std::string& priority = "NORMAL",
                     unsigned changesKeys = 0);
  TlsServer(const TlsServer&) = delete;
  TlsServer& operator=(const TlsServer&) = delete;
  ~TlsServer();

  /// For IngestServer::Options.
  IngestServer::Securer Securer();
  /// A PEM file that trusts the certificate or its authority; removed with this object.
  const std::string& TrustFile() const { return _trust_file->Path(); }
  /// All handshakes that succeeded, as "VERSION NAME-ASKED-FOR".
  std::vector<std::string> Handshakes() const;
  /// How often keys were changed.
  unsigned KeyChanges() const { return _key_changes; }

 private:
  class Layer;
  struct Keys;

  std::unique_ptr<Keys> _keys;
  const unsigned _changes_keys;
  std::atomic<unsigned> _key_changes{0};
  std::unique_ptr<StreamFile> _trust_file;
  mutable std::mutex _mutex;
  std::vector<std::string> _handshakes;
};

}  // namespace nimbo::test
