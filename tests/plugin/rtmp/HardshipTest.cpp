#include <tuple>

#include "host/stream/ControlQueue.h"
#include "plugin/session/RtmpSession.h"
#include "tests/plugin/rtmp/Publisher.h"
#include "tests/support/Hardship.h"
#include "tests/support/TlsServer.h"

// What the system gives too little of, in too small pieces, or not at all.

namespace nimbo::test {
namespace {

using plugin::RtmpSession;
using plugin::SessionLimits;
using Who = std::tuple<Publisher::Kind, bool>;  ///< and whether over TLS

class Hardship : public PluginTest, public testing::WithParamInterface<Who> {
 protected:
  Hardship() {
    setenv("RTMP_CA_FILE", tls.TrustFile().c_str(), 1);
    if (std::get<1>(GetParam())) options.secure = tls.Securer();
  }
  ~Hardship() override { unsetenv("RTMP_CA_FILE"); }

  std::unique_ptr<Publisher> Make(const std::string& url) {
    return Publisher::New(std::get<0>(GetParam()), url);
  }

  TlsServer tls{{}, "NORMAL", 6};
  IngestServer::Options options;
};

/// Everything that a publisher has said behind the handshake, but for what holds the server's port.
Bytes Wire(const Record& record) {
  Bytes wire;
  for (const Message& message : record.messages) {
    if (message.type == CommandMessage && &message == &record.messages.front()) continue;
    Append(wire, message.header);
    Append(wire, message.body);
  }
  return wire;
}

TEST_P(Hardship, SocketsThatTakeAndGiveBytesOneByOneChangeNothingOnTheWire) {
  constexpr int Frames = 40;
  Bytes wires[2];
  for (const bool faulty : {false, true}) {
    IngestServer server({Script{}}, options);
    const auto publisher = Make(server.Url());
    {
      const FaultySockets faults(faulty ? server.Port() : 0, 1);
      ASSERT_TRUE(publisher->Open());
      for (int i = 0; i < Frames; ++i) publisher->FeedOnce(3000, 300);
      ASSERT_TRUE(server.WaitForMedia(0, 2 * Frames + 2));
      publisher->Close();
      ASSERT_TRUE(server.WaitForEnd(0));
      EXPECT_EQ(FaultySockets::Calls() > 1000, faulty);
    }
    const Record record = server.Get(0);
    EXPECT_EQ(record.error, "");
    EXPECT_EQ(record.CommandNames().back(), "deleteStream");
    wires[faulty] = Wire(record);
  }
  EXPECT_TRUE(wires[0] == wires[1]);
  // The server has asked for other keys all the time.
  EXPECT_EQ(tls.KeyChanges(), std::get<1>(GetParam()) ? 12u : 0u);
}

TEST_P(Hardship, AClockThatIsSetForwardsAndBackIsNotNoticed) {
  IngestServer server({Script{}}, options);
  const auto publisher = Make(server.Url());
  std::size_t media = 0;
  const auto goesOn = [&] {
    media = server.Get(0).mediaCount + 20;
    return server.WaitForMedia(0, media);
  };
  for (const int hours : {0, 1, -1}) {
    const MovedClock moved{std::chrono::hours(hours)};
    if (hours == 0) {
      ASSERT_TRUE(publisher->Open());
      publisher->StartFeeding(300);
    }
    ASSERT_TRUE(goesOn()) << hours;
  }
  ASSERT_TRUE(goesOn());
  const MovedClock moved{std::chrono::hours(1)};
  server.Reset(0);
  ASSERT_TRUE(server.WaitForMedia(1, 20));
  publisher->Close();
  ASSERT_TRUE(server.WaitForEnd(1));
  EXPECT_EQ(server.Connections(), 2u);
}

/// Opens a publisher, loses its connection, waits for the next one and closes, while the n-th
/// request is refused. False once it takes more of them than that.
class Lacking : public Hardship {
 protected:
  bool Live(Resource resource, int nth) {
    IngestServer server({{{{Point::Media, Reaction::Reset, 6}}}, {}}, options);
    auto publisher = Make(server.Url());
    bool refused = false;
    {
      const Scarcity scarcity(resource, nth);
      // What has escaped to the caller was told to it.
      const auto attempt = [](const auto& step) {
        try {
          step();
        } catch (const std::bad_alloc&) {
        }
      };
      attempt([&] { publisher->Open(); });
      for (int i = 0; i < 12; ++i) attempt([&] { publisher->FeedOnce(200, 100); });
      attempt([&] { publisher->Close(); });
      refused = Scarcity::Refused();
    }
    stream::ControlQueue::Global().Run();
    publisher->Close();
    publisher.reset();
    return refused;
  }

  /// Nothing is missing afterwards.
  void ExpectWell() {
    IngestServer server({Script{}}, options);
    const auto publisher = Make(server.Url());
    ASSERT_TRUE(publisher->Open());
    for (int i = 0; i < 4; ++i) publisher->FeedOnce(200, 100);
    EXPECT_TRUE(server.WaitForMedia(0, 10));
    publisher->Close();
  }
};

// Run with the address and leak sanitizers, too.
TEST_P(Lacking, MemoryEndsNothingAndLeaksNothing) {
  RtmpSession::Limits().attempt = RtmpSession::Limits().answer = std::chrono::milliseconds(1000);
  int nth = 1;
  while (Live(Resource::Memory, nth)) ++nth;
  RtmpSession::Limits() = SessionLimits();
  EXPECT_GT(nth, 50);
  ExpectWell();
}

TEST_P(Lacking, ThreadsEndNothing) {
  int nth = 1;
  while (Live(Resource::Thread, nth)) ++nth;
  EXPECT_GT(nth, 1);
  ExpectWell();
}

const auto nameOf = [](const auto& info) {
  const auto& [kind, secured] = info.param;
  return std::string(NameOf(kind)) + (secured ? "Tls" : "");
};

INSTANTIATE_TEST_SUITE_P(Fault, Hardship,
                         testing::Combine(testing::Values(Publisher::Kind::Pusher,
                                                          Publisher::Kind::Client,
                                                          Publisher::Kind::ClientInPlace),
                                          testing::Bool()),
                         nameOf);
// GnuTLS asks for memory in its own way, so that TLS adds nothing here but time.
INSTANTIATE_TEST_SUITE_P(Fault, Lacking,
                         testing::Combine(testing::Values(Publisher::Kind::Pusher,
                                                          Publisher::Kind::Client,
                                                          Publisher::Kind::ClientInPlace),
                                          testing::Values(false)),
                         nameOf);

}  // namespace
}  // namespace nimbo::test
