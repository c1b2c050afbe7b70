#include "tests/plugin/rtmp/ClientFixture.h"

#include <utility>

namespace nimbo::test {

void ClientTest::Make(const std::string& url) {
  client.reset(stream::IElement::New("EleRtmpClient-ele-rtmp-client-muxer-sink", "client", nullptr,
                                     nullptr));
  client->Set("url", url.c_str());
}

bool ClientTest::Open(const std::string& url, const char* status) {
  Make(url);
  console.Clear();
  return client->StatusSet(status);
}

bool ClientTest::Receive(Bytes bytes, stream::IMedia* media, std::int64_t time, bool key) {
  const auto packet = NewPacket({std::move(bytes), key, time * Millisecond, ++sequence, media});
  return client->ReceivePacket(*packet, nullptr);
}

bool ClientTest::ReceiveBoth() {
  return Receive(AccessUnit(true), video.get()) && Receive(AdtsFrame(20), audio.get());
}

}  // namespace nimbo::test
