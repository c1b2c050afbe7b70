#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <librtmp/log.h>

#include "plugin/session/RtmpSession.h"
#include "tests/support/IngestServer.h"
#include "tests/support/Lateness.h"
#include "tests/support/MediaSamples.h"
#include "tests/support/TlsServer.h"

namespace nimbo::plugin {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::IngestServer;
using test::Point;
using test::Reaction;
using test::Record;
using test::Script;
using test::TlsServer;
using test::UnusedPort;
using Octets = test::Bytes;

/// Far longer than what is bounded in these tests, far shorter than what is not.
constexpr seconds Soon{20};

class Session : public testing::Test {
 protected:
  Session() { RtmpSession::Limits() = SessionLimits(); }
  ~Session() override {
    session.Free();
    unsetenv("RTMP_CA_FILE");
    unsetenv("RTMP_TLS_VERIFY");
    RtmpSession::Limits() = SessionLimits();
  }

  static Status Open(RtmpSession& session, const std::string& url) {
    if (!session.Allocate()) return Status::Failed();
    Status status = session.SetupUrl(url.c_str());
    if (!status) return status;
    session.EnableWrite();
    status = session.Connect();
    return status ? session.ConnectStream() : status;
  }
  /// Sends a video message as the copying mode does.
  static bool Send(RtmpSession& session, const Octets& body, std::uint32_t time) {
    Octets room(RTMP_MAX_HEADER_SIZE);
    test::Append(room, body);
    RTMPPacket packet = {};
    packet.m_headerType = RTMP_PACKET_SIZE_LARGE;
    packet.m_packetType = RTMP_PACKET_TYPE_VIDEO;
    packet.m_nChannel = 4;
    packet.m_nTimeStamp = time;
    packet.m_nInfoField2 = session.StreamId();
    packet.m_nBodySize = static_cast<std::uint32_t>(body.size());
    packet.m_body = reinterpret_cast<char*>(room.data()) + RTMP_MAX_HEADER_SIZE;
    return static_cast<bool>(session.Send(packet, false));
  }
  static IngestServer::Options Secured(TlsServer& tls) {
    IngestServer::Options options;
    options.secure = tls.Securer();
    return options;
  }

  RtmpSession session;
};

TEST_F(Session, CancelEndsAnAttemptAndSticksUntilResume) {
  RtmpSession::Limits() = {seconds(60), seconds(60), seconds(60), seconds(60), seconds(60)};
  IngestServer server({Script{{{Point::Hello, Reaction::Stall}}}, Script{}});
  const auto start = std::chrono::steady_clock::now();
  std::thread attempt([&] { EXPECT_FALSE(Open(session, server.Url())); });
  server.WaitFor(0, [](const Record& record) { return record.bytes > 1536; });
  EXPECT_TRUE(session.Connected());  // as soon as the connection stands
  session.Cancel();
  attempt.join();
  EXPECT_LT(std::chrono::steady_clock::now() - start, Soon);
  EXPECT_FALSE(Open(session, server.Url()));
  EXPECT_EQ(server.Connections(), 1u);
  session.Resume();
  EXPECT_TRUE(Open(session, server.Url()));
  session.Disconnect();
}

TEST_F(Session, ASendBehindACancelLeavesTheConnectionForResume) {
  RtmpSession::Limits().cancelledSend = milliseconds(100);
  RtmpSession::Limits().drain = milliseconds(300);
  IngestServer server;
  ASSERT_TRUE(Open(session, server.Url()));
  session.Cancel();
  EXPECT_TRUE(Send(session, {1}, 0));
  std::this_thread::sleep_for(milliseconds(900));
  EXPECT_TRUE(Send(session, {1}, 0));
  session.Resume();
  EXPECT_TRUE(Send(session, {1}, 0));
  session.Disconnect();
  ASSERT_TRUE(server.WaitForEnd(0));
  EXPECT_EQ(server.Get(0).mediaCount, 3u);
}

TEST_F(Session, TheLongestStreamNameIsPublishedAndALongerOneRefused) {
  constexpr std::size_t Longest = 974;
  IngestServer server;
  const std::string name(Longest, 'n');
  ASSERT_TRUE(Open(session, server.Url("live", name)));
  session.Disconnect();
  ASSERT_TRUE(server.WaitForEnd(0));
  EXPECT_EQ(server.Get(0).commands.at(4).texts.at(0), name);
  EXPECT_FALSE(Open(session, server.Url("live", name + "n")));
  EXPECT_EQ(server.Connections(), 1u);
}

TEST_F(Session, CredentialsInTheAddressAreNotToldAndNotSentUnchecked) {
  const std::string credentials = " pubUser=user pubPasswd=secret";
  IngestServer server;
  EXPECT_TRUE(Open(session, server.Url() + credentials));
  session.Disconnect();
  // librtmp makes this connection itself, and it checks no certificate.
  const UnusedPort unused;
  for (const std::string& url :
       {unused.Url(), "rtmps" + server.Url().substr(4), std::string("rtmp://host/app bad=1")}) {
    const Status status = Open(session, url + credentials);
    EXPECT_FALSE(status);
    EXPECT_NE(status.Why(), "");
    EXPECT_EQ(status.Why().find("secret"), std::string::npos) << status.Why();
  }
  EXPECT_EQ(server.Connections(), 1u);
}

TEST_F(Session, StalledSendEndsAfterItsLimitOrWhenCancelled) {
  Script stall{{{Point::Media, Reaction::Stall}}};
  stall.receiveBuffer = 65536;
  IngestServer server({stall});
  const Octets frame(1000000);
  const test::Lateness lateness;
  for (const bool cancel : {false, true}) {
    RtmpSession::Limits().stalledSend = cancel ? seconds(60) : seconds(1);
    RtmpSession::Limits().cancelledSend = milliseconds(200);
    ASSERT_TRUE(Open(session, server.Url()));
    const auto start = std::chrono::steady_clock::now();
    std::atomic<int> sent{0};
    std::thread sending([&] {
      while (Send(session, frame, 0)) ++sent;
    });
    if (cancel) {
      // Nothing has moved for a while: the send that is under way stands still.
      for (int before = -1; before != sent; std::this_thread::sleep_for(seconds(1))) before = sent;
      session.Cancel();
    }
    sending.join();
    EXPECT_FALSE(session.Connected());
    session.Disconnect();
    session.Resume();
    EXPECT_LT(std::chrono::steady_clock::now() - start, Soon + lateness.Slack());
  }
}

// Every other test scales them, and docs/reliability.md promises them.
TEST_F(Session, LimitsAreThoseThatTheDocumentsPromise) {
  const SessionLimits limits;
  EXPECT_EQ(limits.attempt, seconds(6));
  EXPECT_EQ(limits.answer, seconds(5));
  EXPECT_EQ(limits.stalledSend, seconds(5));
  EXPECT_EQ(limits.drain, seconds(5));
  EXPECT_EQ(limits.cancelledSend, seconds(1));
  EXPECT_LT(limits.close, seconds(2));
}

// Run with the leak sanitizer, too.
TEST_F(Session, AResetAtAnyByteOfTheSetUpFailsTheAttemptAlone) {
  constexpr std::size_t Handshake = 1 + 2 * 1536;
  for (std::size_t cut = 1;; cut += cut < Handshake ? 512 : 1) {
    Script script;
    script.cut = cut;
    IngestServer server({script});
    const Status status = Open(session, server.Url());
    ASSERT_TRUE(!status || session.Connected()) << cut;
    session.Disconnect();
    if (cut > Handshake && status) break;  // beyond all that the server says
    ASSERT_FALSE(status) << cut;
    ASSERT_NE(status.Why(), "") << cut;
    ASSERT_LT(cut, 2 * Handshake);
  }
}

TEST_F(Session, EndOfStreamIsNoticedWithoutSending) {
  IngestServer server;
  ASSERT_TRUE(Open(session, server.Url()));
  static_cast<void>(session.Listen());
  EXPECT_TRUE(session.Connected());
  server.Close(0);
  EXPECT_TRUE(test::Eventually(
      [&] { return static_cast<void>(session.Listen()), !session.IsConnected(); }));
  EXPECT_FALSE(session.Connected());
  EXPECT_FALSE(Send(session, {1}, 0));
}

int toldToTheHost = 0;

TEST_F(Session, TheLogOfLibrtmpStaysTheHosts) {
  RTMP_LogSetCallback([](int, const char*, va_list) { ++toldToTheHost; });
  for (const RTMP_LogLevel level : {RTMP_LOGERROR, RTMP_LOGDEBUG, RTMP_LOGCRIT}) {
    RTMP_LogSetLevel(level);
    IngestServer server;
    ASSERT_TRUE(Open(session, server.Url()));
    EXPECT_EQ(RTMP_LogGetLevel(), level);
    toldToTheHost = 0;
    RTMP_Log(RTMP_LOGCRIT, "from the host");
    EXPECT_EQ(toldToTheHost, 1);
    server.Reset(0);
    while (Send(session, Octets(1000), 0)) {
    }
    // Who has asked for more gets it; who has not is not told what is explained anyway.
    EXPECT_EQ(toldToTheHost > 1, level == RTMP_LOGDEBUG);
    session.Disconnect();
    EXPECT_EQ(RTMP_LogGetLevel(), level);
  }
  RTMP_LogSetLevel(RTMP_LOGERROR);
  RTMP_LogSetCallback([](int, const char*, va_list) {});
}

volatile sig_atomic_t brokenPipes = 0;

TEST_F(Session, BrokenConnectionRaisesNoSignal) {
  struct sigaction counting = {};
  struct sigaction before = {};
  counting.sa_handler = [](int) { brokenPipes = brokenPipes + 1; };
  sigaction(SIGPIPE, &counting, &before);
  IngestServer server;
  ASSERT_TRUE(Open(session, server.Url()));
  server.Reset(0);
  ASSERT_TRUE(server.WaitForEnd(0));
  while (Send(session, Octets(1000), 0)) {
  }
  session.Disconnect();
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
  sigset_t mask;
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGPIPE), 0);
  EXPECT_EQ(brokenPipes, 0);
  sigaction(SIGPIPE, &before, nullptr);
}

struct Trust {
  const char* what;
  test::Certificate certificate;
  const char* versions;
  const char* host;  ///< that is connected to
  bool trusted;      ///< by the file that RTMP_CA_FILE names
  bool verify;
  bool accepted;
  const char* spoken = "TLS1.3";
};

class SessionTrust : public Session, public testing::WithParamInterface<Trust> {};

TEST_P(SessionTrust, DecidesWhetherTheStreamNameIsSent) {
  const Trust& trust = GetParam();
  TlsServer tls(trust.certificate, trust.versions);
  TlsServer other;
  setenv("RTMP_CA_FILE", (trust.trusted ? tls : other).TrustFile().c_str(), 1);
  if (!trust.verify) setenv("RTMP_TLS_VERIFY", "0", 1);
  IngestServer server({Script{}}, Secured(tls));
  const std::string url = "rtmps://" + std::string(trust.host) + ":" +
                          std::to_string(server.Port()) + "/live/secret-name";
  const Status status = Open(session, url);
  EXPECT_EQ(static_cast<bool>(status), trust.accepted) << status.Why();
  EXPECT_EQ(status.Why().find("secret-name"), std::string::npos);
  session.Disconnect();
  ASSERT_TRUE(server.WaitForEnd(0));
  if (trust.accepted) {
    const std::string name = trust.host == std::string("localhost") ? trust.host : "";
    EXPECT_THAT(tls.Handshakes(), testing::ElementsAre(std::string(trust.spoken) + " " + name));
    EXPECT_EQ(server.Get(0).commands.size(), 7u);
  } else {
    EXPECT_NE(status.Why(), "");
    EXPECT_EQ(server.Get(0).bytes, 0u);
  }
}

const test::Certificate Issued = {"localhost", true, false, true};
constexpr char Normal[] = "NORMAL";
constexpr char Only12[] = "NORMAL:-VERS-ALL:+VERS-TLS1.2";
constexpr char Only11[] = "NORMAL:-VERS-ALL:+VERS-TLS1.1";

INSTANTIATE_TEST_SUITE_P(
    Servers, SessionTrust,
    testing::Values(
        Trust{"KnownName", {"localhost", false}, Normal, "localhost", true, true, true},
        Trust{"KnownAddress", {"other.example"}, Normal, "127.0.0.1", true, true, true},
        Trust{"OfKnownAuthority", Issued, Normal, "localhost", true, true, true},
        Trust{"OfUnknownAuthority", Issued, Normal, "localhost", false, true, false},
        Trust{"SelfSigned", {}, Normal, "localhost", false, true, false},
        Trust{"Expired", {"localhost", true, true}, Normal, "localhost", true, true, false},
        Trust{"WrongName", {"other.example", false}, Normal, "localhost", true, true, false},
        Trust{"WrongAddress", {"localhost", false}, Normal, "127.0.0.1", true, true, false},
        Trust{"CheckTurnedOff", {"other.example"}, Normal, "localhost", false, false, true},
        Trust{"Older", {}, Only12, "localhost", true, true, true, "TLS1.2"},
        Trust{"TooOld", {}, Only11, "localhost", true, true, false}),
    [](const auto& server) { return std::string(server.param.what); });

}  // namespace
}  // namespace nimbo::plugin
