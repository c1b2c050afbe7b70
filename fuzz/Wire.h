#pragma once

#include <memory>
#include <vector>

#include "fuzz/Fuzz.h"
#include "plugin/rtmp/MediaSender.h"
#include "tests/support/IngestServer.h"

namespace nimbo::fuzz {

/// A publisher and its server in one thread, so that nothing happens on their connection but what a
/// fuzzer does. The server says all that it has to say before it is asked.
class Wire final : public plugin::rtmp::MediaSender {
 public:
  /// `secure` makes TLS of a connection.
  explicit Wire(test::IngestServer::Securer secure = nullptr);
  /// The server goes first, so that the goodbye waits for nobody.
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  /// Makes a fresh connection.
  void Connect();
  plugin::RtmpSession& Session() { return _rtmp; }
  test::Transport& Server() { return *_server; }
  /// The server's socket, below TLS.
  int Socket() const { return _socket; }

  /// Sends the packet as the first of a session, once copied and once in place. Requires the result
  /// `sent`, and messages with these bodies: a sequence header, and a frame at the packet's time.
  /// The bits of `traits` say what the publishing class does differently.
  void Expect(test::MessageType type, stream::Packet& packet, unsigned traits, bool sent,
              const std::vector<test::Bytes>& bodies);

 private:
  bool Send(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
            unsigned int timestamp) override {
    return SendMessage(packet, type, data, size, timestamp);
  }
  /// The bodies of the media messages that have arrived.
  std::vector<test::Bytes> Arrived(test::MessageType type, std::uint32_t time);

  test::IngestServer::Securer _secure;
  int _port = 0;
  int _listener;
  int _socket = -1;
  std::unique_ptr<test::Transport> _server;
  test::ChunkReader _reader;
};

}  // namespace nimbo::fuzz
