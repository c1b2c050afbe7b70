// What a hostile server says before it has accepted the publish, from its first byte on; in TLS
// records where FUZZ_SECURE. Our reader takes it apart, and librtmp answers what it is handed.

#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "fuzz/Fuzz.h"
#include "plugin/session/RtmpSession.h"
#include "tests/support/IngestServer.h"
#include "tests/support/TlsServer.h"

namespace nimbo::fuzz {
namespace {

test::IngestServer::Securer Securer() {
  if (!FUZZ_SECURE) return nullptr;
  setenv("RTMP_TLS_VERIFY", "0", 1);
  static test::TlsServer tls;
  return tls.Securer();
}

/// A server that says what it is given, whatever it is asked, and then ends its side.
class Server {
 public:
  explicit Server(test::Bytes words) : _words(std::move(words)), _thread([this] { Serve(); }) {}
  ~Server() { _thread.join(); }

  static std::string Url() {
    Listener();
    return (FUZZ_SECURE ? "rtmps://127.0.0.1:" : "rtmp://127.0.0.1:") + std::to_string(port) +
           "/live/stream";
  }

 private:
  static int Listener() {
    static const int listener = [] {
      const int made = test::BoundSocket(false, port);
      listen(made, 1);
      return made;
    }();
    return listener;
  }
  void Serve() {
    static const test::IngestServer::Securer secure = Securer();
    const int socket = accept(Listener(), nullptr, nullptr);
    const auto transport = secure ? secure(socket) : std::make_unique<test::Transport>(socket);
    if (!transport->Handshake()) return;
    std::thread drain([&] {
      unsigned char bytes[16384];
      while (transport->Read(bytes, sizeof bytes) > 0) {
      }
    });
    transport->Write(_words);
    shutdown(socket, SHUT_WR);
    drain.join();
  }

  static inline int port = 0;
  const test::Bytes _words;
  std::thread _thread;
};

}  // namespace

void Run(FuzzedDataProvider in) {
  // The greeting, most of the time; it would take long to be found.
  test::Bytes words;
  if (in.ConsumeBool()) {
    words.resize(1 + 2 * 1536);
    words[0] = 3;
  }
  const std::string options = in.ConsumeBool() ? " token=secret" : "";
  const auto rest = in.ConsumeRemainingBytes<unsigned char>();
  words.insert(words.end(), rest.begin(), rest.end());

  plugin::RtmpSession session;
  Require(session.Allocate(), "a session is made");
  Require(static_cast<bool>(session.SetupUrl((Server::Url() + options).c_str())),
          "a usable address");
  session.EnableWrite();
  {
    const Server server(words);
    Status status = session.Connect();
    if (status) status = session.ConnectStream();
    Require(static_cast<bool>(status) == status.Why().empty(), "a failure is explained");
    for (const char c : status.Why()) {
      Require(static_cast<unsigned char>(c) >= ' ' && c != 0x7F, "an explanation can be shown");
    }
    Require(session.Connected() == session.IsConnected(), "what is shown is so");
    session.Disconnect();
  }
  Require(!session.Connected(), "nothing is left");
}

}  // namespace nimbo::fuzz
