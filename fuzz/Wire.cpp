#include "fuzz/Wire.h"

#include <sys/socket.h>

#include <thread>

#include "tests/support/MediaSamples.h"

namespace nimbo::fuzz {
namespace {

constexpr log::Site Here = {"fuzz", 0, "Fuzz"};
plugin::rtmp::Profile profile = {
    {Here, Here, Here, Here, Here, Here, Here, Here}, false, false, false, false, true};
plugin::rtmp::SequenceCounters counters;

}  // namespace

Wire::Wire(test::IngestServer::Securer secure)
    : MediaSender(profile, counters),
      _secure(std::move(secure)),
      _listener(test::BoundSocket(false, _port)) {
  listen(_listener, 1);
  Connect();
}

Wire::~Wire() {
  _server->Reset();
  _rtmp.Free();
}

void Wire::Connect() {
  test::Bytes handshake(1 + 2 * 1536);
  handshake[0] = 3;
  test::Bytes answers = handshake;
  const auto add = [&](const char* name, int transaction, const test::Bytes& end) {
    const test::Bytes command = test::EncodeCommand(name, transaction, end);
    test::Append(answers, test::EncodeMessage(3, test::CommandMessage, 0, command));
  };
  add("_result", 1, test::EncodeNumber(0));
  add("_result", 4, test::EncodeNumber(1));
  add("onStatus", 0, test::EncodeInformation("status", "NetStream.Publish.Start"));
  std::thread server([&] {
    _socket = accept(_listener, nullptr, nullptr);
    _server = _secure ? _secure(_socket) : std::make_unique<test::Transport>(_socket);
    Require(_server->Handshake() && _server->Write(answers), "the server answers");
    if (!_secure) recv(_socket, handshake.data(), handshake.size(), MSG_WAITALL);
  });
  const std::string place = "://127.0.0.1:" + std::to_string(_port) + "/live/stream";
  Require(ConnectServer(((_secure ? "rtmps" : "rtmp") + place).c_str()), "a publisher connects");
  server.join();
}

void Wire::Expect(test::MessageType type, stream::Packet& packet, unsigned traits, bool sent,
                  const std::vector<test::Bytes>& bodies) {
  profile.detailed = traits & 1;
  profile.clearsBuffers = traits & 2;
  profile.bracketsEachCall = traits & 4;
  profile.refusesShortFrames = traits & 8;
  for (const bool copy : {true, false}) {
    counters.s_last_vid_seq = 0;
    BeginSession();
    _vid_buffer = SendBufferCreate(1);
    _aud_buffer = SendBufferCreate(1);
    _vcopy = _acopy = copy;
    Require((type == test::VideoMessage ? SendH264(&packet) : SendAAC(&packet)) == sent, "result");
    DestroyBuffers();
    const std::int64_t time = packet.TimeStamp() / test::Millisecond;
    Require(Arrived(type, static_cast<std::uint32_t>(time)) == bodies, "bodies");
  }
}

std::vector<test::Bytes> Wire::Arrived(test::MessageType type, std::uint32_t time) {
  std::vector<test::Bytes> bodies;
  bool all = false;
  Require(static_cast<bool>(_rtmp.SendControl(0, 0, 0)), "the connection stands");
  while (!all) {
    unsigned char bytes[65536];
    const ssize_t size = _server->Read(bytes, sizeof bytes);
    Require(
        _reader.Feed(bytes, static_cast<std::size_t>(size),
                     [&](test::Message& message) {
                       all = message.type == test::UserControlMessage;
                       if (!message.IsMedia()) return;
                       Require(message.type == type && message.chunkStream == 4, "kind of message");
                       Require(message.time == (bodies.empty() ? 0 : time), "time in milliseconds");
                       bodies.push_back(message.body);
                     }),
        "chunks");
  }
  return bodies;
}

}  // namespace nimbo::fuzz
