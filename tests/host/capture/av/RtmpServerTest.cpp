#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <unistd.h>

#include <thread>

#include "host/capture/CaptureSource.h"
#include "host/capture/av/Libav.h"
#include "nimbo/stream/service.h"
#include "tests/host/capture/av/MediaFile.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::test {
namespace {

using namespace capture::av;

/// A port that was free a moment ago.
int FreePort() {
  const int probe = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(probe, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size), 0);
  close(probe);
  return ntohs(address.sin_port);
}

struct ReleaseObject {
  void operator()(base::object* instance) const { instance->Release(); }
};
using ServicePtr = std::unique_ptr<stream::Service, ReleaseObject>;

class RtmpServer : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(capture::LoadAvModule());
    server.reset(stream::Service::New("rtmp-server", "rtmp-server", nullptr));
    ASSERT_TRUE(server);
    ASSERT_TRUE(server->Set("addr", address.c_str()));
    ASSERT_TRUE(server->Set("file", first.Path().c_str()));
  }

  /// Publishes; the server may not listen yet.
  static Encoded Publish(const std::string& url) {
    MediaForm form;
    form.format = "flv";
    form.pictures = 30;
    Encoded encoded;
    while (encoded.video.empty()) {
      encoded = WriteMedia(url, form);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return encoded;
  }

  /// How many packets the streams of a file hold.
  static std::size_t CountPackets(const std::string& path) {
    AVFormatContext* raw = nullptr;
    if (avformat_open_input(&raw, path.c_str(), nullptr, nullptr) < 0) return 0;
    const InputPtr input(raw);
    const PacketPtr packet(av_packet_alloc());
    std::size_t count = 0;
    for (; av_read_frame(input.get(), packet.get()) >= 0; ++count) av_packet_unref(packet.get());
    return count;
  }

  const TemporaryFile first{"recording.flv"};
  const TemporaryFile second{"recording-2.flv"};
  const std::string address = "rtmp://127.0.0.1:" + std::to_string(FreePort()) + "/live/stream";
  ServicePtr server;
};

TEST_F(RtmpServer, RecordsOnePublisherAfterTheOther) {
  ConsoleCapture console;
  ASSERT_TRUE(server->Set("status", "play"));
  for (const TemporaryFile* file : {&first, &second}) {
    const Encoded encoded = Publish(address);
    ASSERT_TRUE(console.WaitFor(file->Path() + "\" has"));
    EXPECT_EQ(CountPackets(file->Path()), encoded.video.size() + encoded.audio.size());
    console.Clear();
  }
  unsigned int packets = 0;
  ASSERT_TRUE(server->GetIntT("packets", packets));
  EXPECT_GT(packets, 100U);
}

TEST_F(RtmpServer, ClosesWhileAPublisherIsSilent) {
  ConsoleCapture console;
  ASSERT_TRUE(server->Set("status", "play"));
  AVIOContext* publisher = nullptr;
  while (avio_open(&publisher, address.c_str(), AVIO_FLAG_WRITE) < 0) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(server->Set("status", "null"));
  avio_close(publisher);
}

TEST_F(RtmpServer, RefusesAnAddressThatItCannotListenOn) {
  const int taken = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in local = {};
  local.sin_family = AF_INET;
  local.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof local;
  ASSERT_EQ(bind(taken, reinterpret_cast<sockaddr*>(&local), size), 0);
  ASSERT_EQ(listen(taken, 1), 0);
  ASSERT_EQ(getsockname(taken, reinterpret_cast<sockaddr*>(&local), &size), 0);
  const std::string inUse = "rtmp://127.0.0.1:" + std::to_string(ntohs(local.sin_port)) + "/a/b";
  for (const std::string& refused : {inUse, std::string("http://127.0.0.1/live")}) {
    ConsoleCapture console;
    ASSERT_TRUE(server->Set("addr", refused.c_str()));
    EXPECT_FALSE(server->Set("status", "play"));
    EXPECT_EQ(console.Count("cannot listen on " + refused), 1U);
    EXPECT_EQ(console.Lines().size(), 1U) << console.Text();
    EXPECT_TRUE(server->Set("status", "null"));
  }
  close(taken);
}

}  // namespace
}  // namespace nimbo::test
