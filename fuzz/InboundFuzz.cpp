// What a hostile server sends to a session that publishes; below TLS too where FUZZ_SECURE. The
// input is cut into pieces, each of which is drained as in front of a message. Their lengths and
// how things end stand behind them.

#include <sys/socket.h>

#include "fuzz/Wire.h"
#include "tests/support/TlsServer.h"

namespace nimbo::fuzz {
namespace {

/// Of so many inputs, and pieces, one does what costs a new connection.
constexpr int Seldom = 16;

test::IngestServer::Securer Securer() {
  if (!FUZZ_SECURE) return nullptr;
  setenv("RTMP_TLS_VERIFY", "0", 1);
  static test::TlsServer tls;
  return tls.Securer();
}

}  // namespace

void Run(FuzzedDataProvider in) {
  static Wire wire(Securer());
  plugin::RtmpSession& session = wire.Session();
  if (!session.Connected()) wire.Connect();
  const int ending = in.ConsumeIntegral<std::uint8_t>() % Seldom;
  const bool reset = ending == 2;
  bool torn = false;  // TLS was broken into
  while (in.remaining_bytes() > 0 && session.IsConnected()) {
    const bool below = FUZZ_SECURE && in.ConsumeIntegral<std::uint8_t>() % Seldom == 1;
    // A piece is drawn out to up to what one draining reads.
    const std::size_t size = in.ConsumeIntegral<std::uint16_t>();
    test::Bytes piece = in.ConsumeBytes<unsigned char>(in.ConsumeIntegral<std::uint8_t>());
    if (!piece.empty() && piece.size() < size) piece.resize(size, piece.back());
    torn = torn || (below && !piece.empty());
    below ? void(send(wire.Socket(), piece.data(), piece.size(), MSG_NOSIGNAL))
          : void(wire.Server().Write(piece));
    const bool heard = static_cast<bool>(session.Listen());
    Require(session.IsConnected() == heard, "a stream that has ended is left");
  }
  Require(session.IsConnected() == session.Connected(), "what is shown is so");
  if (ending != 1 && !reset && !torn) return;
  reset ? wire.Server().Reset() : wire.Server().Close();
  // Seeing the end means that all in front of it was read. One that is never seen is a time-out.
  while (session.IsConnected()) static_cast<void>(session.Listen());
  Require(!session.Connected(), "a lost connection is shown");
}

}  // namespace nimbo::fuzz
