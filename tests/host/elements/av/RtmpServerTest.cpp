#include <gtest/gtest.h>

#include <cstdio>
#include <thread>

#include "host/capture/CaptureRegistry.h"
#include "host/capture/av/Libav.h"
#include "nimbo/stream/service.h"
#include "tests/host/capture/av/MediaFile.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/IngestServer.h"
#include "tests/support/Owned.h"
#include "tests/support/StreamFile.h"

namespace nimbo::test {
namespace {

using namespace capture::av;

class RtmpServer : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(capture::LoadAvModule());
    server.reset(stream::Service::New("rtmp-server", "rtmp-server", nullptr));
    ASSERT_TRUE(server);
    ASSERT_TRUE(server->Set("addr", address.c_str()));
    ASSERT_TRUE(server->Set("file", first.Path().c_str()));
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

  const StreamFile first{{}};
  const std::string second = first.Path() + "-2";
  const UnusedPort port;
  const std::string address = port.Url();
  Owned<stream::Service> server;
};

TEST_F(RtmpServer, RecordsOnePublisherAfterTheOther) {
  ConsoleCapture console;
  ASSERT_TRUE(server->Set("status", "play"));
  const StreamFile media({});
  ASSERT_TRUE(WriteMedia(media.Path(), "flv", 30));
  for (const std::string& file : {first.Path(), second}) {
    // The server may not listen yet.
    while (!Ffmpeg("-i " + media.Path() + " -c copy -f flv " + address)) continue;
    ASSERT_TRUE(console.WaitFor(file + "\" has"));
    EXPECT_EQ(CountPackets(file), CountPackets(media.Path()));
    console.Clear();
  }
  std::remove(second.c_str());
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
  const IngestServer taken;
  for (const std::string& refused : {taken.Url(), std::string("http://127.0.0.1/live")}) {
    ConsoleCapture console;
    ASSERT_TRUE(server->Set("addr", refused.c_str()));
    EXPECT_FALSE(server->Set("status", "play"));
    EXPECT_EQ(console.Count("cannot listen on " + refused), 1U);
    EXPECT_EQ(console.Lines().size(), 1U) << console.Text();
    EXPECT_TRUE(server->Set("status", "null"));
  }
}

}  // namespace
}  // namespace nimbo::test
