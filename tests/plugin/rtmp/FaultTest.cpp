#include <algorithm>
#include <cstdlib>
#include <random>
#include <tuple>

#include "plugin/session/RtmpSession.h"
#include "tests/plugin/rtmp/Publisher.h"
#include "tests/support/Lateness.h"
#include "tests/support/TlsServer.h"

// Every way to publish against everything that a server or the network can do. Deadlines are a
// third of the real ones unless RTMP_REAL_DEADLINES is set. What was measured and told is recorded
// in each case's properties, of which tools/reliability makes a table.

namespace nimbo::test {
namespace {

using plugin::RtmpSession;
using plugin::SessionLimits;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;
using Who = std::tuple<Publisher::Kind, bool>;  ///< and whether over TLS

constexpr milliseconds ReconnectPause{1000};  // of the pusher
constexpr std::size_t SmallFrame = 100;
constexpr std::size_t LargeFrame = 50000;

class FaultCase : public PluginTest {
 protected:
  FaultCase(const char* fault, const Who& who) : _who(who) {
    RecordProperty("fault", fault);
    RecordProperty("who", NameOf(std::get<0>(who)));
    const int scale = std::getenv("RTMP_REAL_DEADLINES") ? 1 : 3;
    const SessionLimits real;
    RtmpSession::Limits() = {real.attempt / scale,     real.answer / scale,
                             real.stalledSend / scale, real.cancelledSend / scale,
                             real.close / scale,       real.drain / scale};
    setenv("RTMP_CA_FILE", tls.TrustFile().c_str(), 1);
    if (Secured()) options.secure = tls.Securer();
  }
  ~FaultCase() override {
    publisher.reset();
    Messages();
    unsetenv("RTMP_CA_FILE");
    RtmpSession::Limits() = SessionLimits();
  }

  bool Secured() const { return std::get<1>(_who); }
  bool IsClient() const { return std::get<0>(_who) != Publisher::Kind::Pusher; }
  std::string Scheme(const std::string& plain) const {
    return Secured() ? "rtmps" + plain.substr(4) : plain;
  }
  void Make(const std::string& url) {
    // Frames come several times as fast as a camera's, on machines that do other things, too.
    publisher = Publisher::New(std::get<0>(_who), url, "RingSink:size=512");
  }

  /// Records how long `action` took, which is no longer than the session's own `limit`. What the
  /// machine was late meanwhile, several threads in turn, is not the session's fault.
  template <class Action>
  void Time(const char* what, milliseconds limit, Action action) {
    const Lateness lateness;
    const auto start = Clock::now();
    action();
    const auto took = std::chrono::duration_cast<milliseconds>(Clock::now() - start);
    const milliseconds slack = lateness.Slack();
    EXPECT_LE(took.count(), (limit + slack).count())
        << what << ", of which slack " << slack.count();
    RecordProperty(what, static_cast<int>(took.count()));
  }
  void CloseInTime() {
    Time("close", RtmpSession::Limits().close, [this] { publisher->Close(); });
  }
  /// Records the last explanation since the console was cleared.
  void RecordTold() {
    std::string told;
    for (const ConsoleLine& line : console.Lines()) {
      if (line.colour == '3' && (line.function == "ConnectServer" || line.function == "Explain"))
        told = line.text;
    }
    RecordProperty("told", told);
  }
  /// The longest until a publisher has a connection again, whatever it is doing.
  static milliseconds Back() { return RtmpSession::Limits().attempt + ReconnectPause; }
  /// The messages that came up since the last call hold these, in their order.
  void ExpectMessages(std::vector<std::string> expected) {
    const std::vector<std::string> messages = Messages();
    if (!IsClient()) expected.clear();  // a service sends none
    auto next = expected.begin();
    for (const std::string& message : messages) {
      if (next != expected.end() && message == *next) ++next;
    }
    EXPECT_EQ(next, expected.end()) << (next == expected.end() ? "" : *next);
  }
  bool WaitForMedia(IngestServer& server, std::size_t connection, std::size_t count = 12) {
    return Eventually([&] {
      return server.Connections() > connection && server.Get(connection).mediaCount >= count;
    });
  }
  /// Opens the publisher, whose media arrive at once.
  bool Publish(IngestServer& server, std::size_t count = 12) {
    if (!publisher->Open()) return false;
    publisher->StartFeeding(SmallFrame);
    return WaitForMedia(server, 0, count);
  }
  /// The connection began with both sequence headers, and no frame is missing from the third on: a
  /// pusher whose ring has run ahead meanwhile goes on with its oldest entry. With `lapped` it may
  /// happen again.
  static void ExpectWhole(const Record& record, bool lapped = false) {
    EXPECT_EQ(record.error, "");
    for (const std::uint8_t type : {AudioMessage, VideoMessage}) {
      const std::vector<Message> sent = record.OfType(type);
      ASSERT_GE(sent.size(), 4u);
      EXPECT_EQ(sent[0].body.at(1), 0);
      for (std::size_t i = 3; i < sent.size(); ++i) {
        const std::uint32_t step = sent[i].time - sent[i - 1].time;
        EXPECT_TRUE(step == 20 || (lapped && step > 20)) << step << " ms at " << sent[i].time;
      }
    }
  }

  TlsServer tls;
  IngestServer::Options options;
  std::unique_ptr<Publisher> publisher;

 private:
  const Who _who;
};

/// What everyone does about one of several faults.
template <class Fault>
class Facing : public FaultCase, public testing::WithParamInterface<std::tuple<Fault, Who>> {
 protected:
  Facing() : FaultCase(std::get<0>(this->GetParam()).name, std::get<1>(this->GetParam())) {}
  const Fault& fault = std::get<0>(this->GetParam());
};

// ---- while connecting ---------------------------------------------------------------------------

struct SetupFault {
  const char* name;
  Script script;
  enum { Scripted, NobodyListens, SynsSwallowed } server = Scripted;

  /// The server leaves the publisher to its time limits.
  bool Stalls() const {
    const bool stalls = std::any_of(script.rules.begin(), script.rules.end(), [](const Rule& rule) {
      return rule.reaction == Reaction::Stall;
    });
    return stalls || script.trickle.count() > 0 || server == SynsSwallowed;
  }
};

class Connecting : public Facing<SetupFault> {
 protected:
  std::string FaultyUrl() {
    if (fault.server == SetupFault::NobodyListens) return Scheme(unused.Url());
    if (fault.server == SetupFault::SynsSwallowed) return Scheme(full.Url());
    faulty = std::make_unique<IngestServer>(std::vector<Script>{fault.script}, options);
    return faulty->Url();
  }
  /// Attempts that have failed since the console was cleared.
  std::size_t Failures() {
    return console.Count("RTMP_Connect(_rtmp, __null) == 0") +
           console.Count("RTMP_ConnectStream(_rtmp, 0) == 0") + console.Count("!_rtmp.Connect");
  }

  UnusedPort unused;
  FullListener full;
  std::unique_ptr<IngestServer> faulty;
};

TEST_P(Connecting, EndsInTimeAndIsMadeGoodLater) {
  IngestServer healthy({Script{}}, options);
  const std::string url = FaultyUrl();
  Make(url);
  console.Clear();
  Time("open", fault.Stalls() ? RtmpSession::Limits().attempt : milliseconds(0),
       [&] { EXPECT_FALSE(publisher->Open()); });
  RecordTold();
  EXPECT_EQ(Failures(), 1u);
  EXPECT_FALSE(publisher->Connected());
  ExpectMessages({"rtmp_disconnected"});

  publisher->SetUrl(healthy.Url());
  ASSERT_TRUE(Publish(healthy));
  publisher->SetUrl(url);
  console.Clear();
  healthy.Reset(0);
  ASSERT_TRUE(Eventually([&] { return Failures() > 0; }));
  publisher->SetUrl(healthy.Url());
  Time("back", Back(), [&] { ASSERT_TRUE(WaitForMedia(healthy, 1)); });
  // A pusher's ring may have run ahead of it while it tried in vain.
  ExpectWhole(healthy.Get(1), !IsClient());
  ExpectMessages({"rtmp_connected", "rtmp_send_data_fail", "rtmp_reconnect_success"});
  EXPECT_TRUE(publisher->Connected());

  publisher->SetUrl(url);
  console.Clear();
  healthy.Reset(1);
  ASSERT_TRUE(
      Eventually([&] { return console.Count("push ") + console.Count(" is not sent") > 0; }));
  std::this_thread::sleep_for(milliseconds(100));
  CloseInTime();
  EXPECT_FALSE(publisher->Connected());
}

Script When(Point point, Reaction reaction) { return Script{{{point, reaction}}}; }
Script Trickle() {
  Script script;
  script.trickle = std::getenv("RTMP_REAL_DEADLINES") ? milliseconds(1000) : milliseconds(100);
  return script;
}

const Who Everyone[] = {
    {Publisher::Kind::Pusher, false},      {Publisher::Kind::Pusher, true},
    {Publisher::Kind::Client, false},      {Publisher::Kind::Client, true},
    {Publisher::Kind::Live, false},        {Publisher::Kind::ClientInPlace, false},
    {Publisher::Kind::ClientInPlace, true}};

/// The fault's name and who meets it, in letters and digits alone.
const auto nameOf = [](const auto& info) {
  std::string name;
  bool upper = true;
  for (const char c : std::string(std::get<0>(info.param).name)) {
    if (std::isalnum(c)) name += upper ? static_cast<char>(std::toupper(c)) : c;
    upper = !std::isalnum(c);
  }
  const auto& [kind, secured] = std::get<1>(info.param);
  return name + NameOf(kind) + (secured ? "Tls" : "");
};

INSTANTIATE_TEST_SUITE_P(
    Fault, Connecting,
    testing::Combine(
        testing::Values(
            SetupFault{"nobody listens", {}, SetupFault::NobodyListens},
            SetupFault{"SYNs are swallowed", {}, SetupFault::SynsSwallowed},
            SetupFault{"stall after accept", When(Point::Accepted, Reaction::Stall)},
            SetupFault{"close after accept", When(Point::Accepted, Reaction::Close)},
            SetupFault{"stall in RTMP handshake", When(Point::Hello, Reaction::Stall)},
            SetupFault{"reset in RTMP handshake", When(Point::Hello, Reaction::Reset)},
            SetupFault{"stall at connect", When(Point::Connect, Reaction::Stall)},
            SetupFault{"connect refused", When(Point::Connect, Reaction::Refuse)},
            SetupFault{"reset behind connect", When(Point::Connected, Reaction::Reset)},
            SetupFault{"stall at createStream", When(Point::CreateStream, Reaction::Stall)},
            SetupFault{"stall at publish", When(Point::Publish, Reaction::Stall)},
            SetupFault{"publish refused (BadName)", When(Point::Publish, Reaction::Refuse)},
            SetupFault{"answers trickle", Trickle()}),
        testing::ValuesIn(Everyone, Everyone + 5)),
    nameOf);

// ---- hostile answers ----------------------------------------------------------------------------

Bytes Garbage() {
  static std::mt19937 random{1};  // NOLINT: the same in every run
  Bytes piece(4096);
  for (auto& byte : piece) byte = static_cast<unsigned char>(random());
  return piece;
}

/// The start of a message of 16 MB that goes on and on.
Bytes Oversized() {
  Bytes piece = {0x03, 0, 0, 0, 0xFF, 0xFF, 0xFF, 20, 0, 0, 0, 0};
  piece.resize(4096);
  return piece;
}

Bytes Text(const std::string& text) { return Bytes(text.begin(), text.end()); }
Bytes Control(std::uint8_t type, const Bytes& body) { return EncodeMessage(2, type, 0, body); }
/// A command message whose body goes on with `rest` behind name, number and null.
Bytes Says(const char* name, const Bytes& rest) {
  return EncodeMessage(3, CommandMessage, 0, EncodeCommand(name, 1, rest));
}
Bytes Repeated(const Bytes& piece, int times) {
  Bytes all;
  while (times-- > 0) Append(all, piece);
  return all;
}

struct Attack {
  const char* name;
  Point at;
  Bytes say;
};

/// What is said in place of the answer to each command.
std::vector<Attack> Attacks() {
  constexpr std::uint8_t SetChunkSize = 1;
  constexpr unsigned char Object = 3;
  std::vector<Attack> attacks = {
      {"random bytes after accept", Point::Accepted, Garbage()},
      {"a web server", Point::Accepted, Text("HTTP/1.1 400 Bad Request\r\n\r\n")},
      {"a TLS server", Point::Accepted, {0x15, 3, 1, 0, 2, 2, 10}},
      {"random bytes for a greeting", Point::Hello, Garbage()},
      {"an error without information", Point::Connect, Says("_error", {})},
      {"an error with a null", Point::Connect, Says("_error", {5})},
      {"an error with a text", Point::Connect, Says("_error", {2, 0, 2, 'n', 'o'})},
      {"an error without a description", Point::Connect,
       Says("_error", {Object, 0, 4, 'c', 'o', 'd', 'e', 2, 0, 1, 'x', 0, 0, 9})},
      {"a stream that is no number", Point::CreateStream,
       EncodeMessage(3, CommandMessage, 0, EncodeCommand("_result", 4, {2, 0, 1, '1'}))},
  };
  Bytes channels;
  for (unsigned char id = 3; id < 40; ++id)
    Append(channels, {id, 0, 0, 0, 0, 0, 1, 9, 0, 0, 0, 0, 7});
  const std::pair<const char*, Bytes> anywhere[] = {
      {"chunk size 0", Control(SetChunkSize, {0, 0, 0, 0})},
      {"a negative chunk size", Control(SetChunkSize, {0xFF, 0xFF, 0xFF, 0xFE})},
      {"a chunk without a first header", {0xC7, 1, 2, 3}},
      {"many chunk streams", channels},
      {"an object without an end", Says("_result", {Object, 0, 1, 'a', 5})},
      {"endless nesting", Says("_result", Repeated({Object, 0, 1, 'a'}, 5000))},
      {"a text longer than its message", Says("_result", {2, 0xFF, 0xFF, 'a'})},
      {"a message of 16 MB", Oversized()},
      {"a flood of pings", Repeated(Control(UserControlMessage, {0, 6, 0, 0, 0, 1}), 100000)},
  };
  const std::pair<const char*, Point> points[] = {{" at connect", Point::Connect},
                                                  {" at createStream", Point::CreateStream},
                                                  {" at publish", Point::Publish}};
  static std::vector<std::string> names;  // that outlive the list
  names.reserve(std::size(anywhere) * std::size(points));
  for (const auto& [what, say] : anywhere) {
    for (const auto& [where, at] : points) {
      names.push_back(std::string(what) + where);
      attacks.push_back({names.back().c_str(), at, say});
    }
  }
  return attacks;
}

void PrintTo(const Attack& attack, std::ostream* out) { *out << attack.name; }

using Attacked = Facing<Attack>;

TEST_P(Attacked, FailsInTimeAndPublishesToTheNextServer) {
  Rule rule = {fault.at, Reaction::Say};
  rule.say = fault.say;
  IngestServer hostile({Script{{rule}}}, options);
  IngestServer healthy({Script{}}, options);
  Make(hostile.Url());
  console.Clear();
  Time("open", RtmpSession::Limits().attempt, [&] { EXPECT_FALSE(publisher->Open()); });
  RecordTold();
  EXPECT_FALSE(publisher->Connected());
  publisher->SetUrl(healthy.Url());
  ASSERT_TRUE(Publish(healthy));
  CloseInTime();
}

INSTANTIATE_TEST_SUITE_P(Fault, Attacked,
                         testing::Combine(testing::ValuesIn(Attacks()),
                                          testing::ValuesIn(Everyone)),
                         nameOf);

// ---- slow servers -------------------------------------------------------------------------------

struct SlowServer {
  const char* name;
  std::size_t rate;
  std::size_t frame;  ///< each some times what is taken while it is made
};

using Slow = Facing<SlowServer>;

TEST_P(Slow, IsNeverLeftAndGetsTheGoodbye) {
  // Not scaled: how often the kernel lets a slow server's window open does not scale either.
  const SessionLimits& limits = RtmpSession::Limits() = SessionLimits();
  Script slow;
  slow.rate = fault.rate;
  slow.receiveBuffer = 16384;
  IngestServer server({slow}, options);
  Make(server.Url());
  ASSERT_TRUE(publisher->Open());
  publisher->StartFeeding(fault.frame);
  // Longer than a server that takes nothing is given.
  std::this_thread::sleep_for(std::getenv("RTMP_REAL_DEADLINES") ? seconds(60) : seconds(12));
  EXPECT_EQ(server.Connections(), 1u);
  EXPECT_TRUE(publisher->Connected());
  console.Clear();
  // The send that is under way ends by itself, then the goodbye follows.
  Time("close", 2 * limits.drain + limits.close, [&] { publisher->Close(); });
  EXPECT_EQ(console.Count("push ") + console.Count(" is not sent"), 0u);
  ASSERT_TRUE(server.WaitForEnd(0));
  const Record record = server.Get(0);
  EXPECT_EQ(record.error, "");
  EXPECT_EQ(record.CommandNames().back(), "deleteStream");
  EXPECT_EQ(record.OfType(UserControlMessage).size(), IsClient() ? 0u : 1u);
}

INSTANTIATE_TEST_SUITE_P(Fault, Slow,
                         testing::Combine(testing::Values(SlowServer{"10 kB a second", 10000, 2000},
                                                          SlowServer{"20 kB a second", 20000, 2000},
                                                          SlowServer{"40 kB a second", 40000,
                                                                     2000}),
                                          testing::ValuesIn(Everyone)),
                         nameOf);

// ---- while publishing ---------------------------------------------------------------------------

struct SendFault {
  const char* name;
  Reaction reaction;
  std::size_t beyond = 0;
  milliseconds stall{0};
};

/// Bytes behind a message that end in the next chunk header, and in the next message.
constexpr std::size_t InHeader = 5;
constexpr std::size_t InMessage = 72;

using Publishing = Facing<SendFault>;

TEST_P(Publishing, GoesOnWithANewConnection) {
  const bool stalls = fault.reaction == Reaction::Stall;
  Script faulty{{{Point::Media, fault.reaction, 8, fault.beyond, fault.stall}}};
  if (stalls) faulty.receiveBuffer = 65536;
  IngestServer server({faulty, {}, faulty}, options);
  Make(server.Url());
  console.Clear();
  ASSERT_TRUE(Publish(server, 8));
  if (stalls) publisher->StartFeeding(LargeFrame);
  // A stall is noticed within a tenth of its limit.
  const milliseconds limit = RtmpSession::Limits().stalledSend;
  Time("back", stalls ? limit + limit / 10 : milliseconds(0),
       [&] { ASSERT_TRUE(WaitForMedia(server, 1)); });
  EXPECT_EQ(console.Count("the server has taken nothing for "), stalls ? 1u : 0u);
  ExpectWhole(server.Get(1), stalls && !IsClient());
  EXPECT_TRUE(publisher->Connected());
  ExpectMessages({"rtmp_connected", "rtmp_send_data_fail", "rtmp_reconnect_success"});
  EXPECT_EQ(server.Connections(), 2u);

  // While the third connection is stalled, or is being lost, the publisher is closed; or a later
  // one, on a machine that keeps the server from reading for as long as a stall takes.
  publisher->StartFeeding(SmallFrame);
  server.Reset(1);
  ASSERT_TRUE(Eventually([&] {
    const std::size_t last = server.Connections() - 1;
    return last >= 2 && server.Get(last).mediaCount >= 8;
  }));
  if (stalls) publisher->StartFeeding(LargeFrame);
  std::this_thread::sleep_for(milliseconds(300));
  Time("close", RtmpSession::Limits().cancelledSend * 6 / 5 + RtmpSession::Limits().close,
       [&] { publisher->Close(); });
}

INSTANTIATE_TEST_SUITE_P(
    Fault, Publishing,
    testing::Combine(
        testing::Values(SendFault{"close between messages", Reaction::Close},
                        SendFault{"close in a chunk header", Reaction::Close, InHeader},
                        SendFault{"close in a message", Reaction::Close, InMessage},
                        SendFault{"reset between messages", Reaction::Reset},
                        SendFault{"reset in a chunk header", Reaction::Reset, InHeader},
                        SendFault{"reset in a message", Reaction::Reset, InMessage},
                        SendFault{"zero window between messages", Reaction::Stall},
                        SendFault{"zero window in a chunk header", Reaction::Stall, InHeader},
                        SendFault{"zero window in a message", Reaction::Stall, InMessage},
                        SendFault{"zero window for 10 s", Reaction::Stall, 0, seconds(10)}),
        testing::ValuesIn(Everyone)),
    nameOf);

// ---- what servers say meanwhile -----------------------------------------------------------------

struct Speech {
  const char* name;
  Bytes (*piece)();
};

Bytes Chatter() {
  Bytes piece;
  for (int i = 0; i < 100; ++i) {
    Append(piece, EncodeMessage(2, UserControlMessage, 0, {0, 6, 0, 0, 0, 1}));  // ping
    Append(piece, EncodeMessage(2, AcknowledgementMessage, 0, {0, 0, 0, 1}));
  }
  return piece;
}

using Listening = Facing<Speech>;

TEST_P(Listening, DoesNotDisturbPublishing) {
  constexpr int Pieces = 1000;  // some megabytes: far more than all windows between the two hold
  IngestServer server({Script{}}, options);
  Make(server.Url());
  ASSERT_TRUE(Publish(server));
  for (int i = 0; i < Pieces; ++i) server.Send(0, fault.piece());
  const std::size_t sent = server.Get(0).mediaCount;
  ASSERT_TRUE(WaitForMedia(server, 0, sent + 20));
  EXPECT_EQ(server.Connections(), 1u);
  CloseInTime();
  ASSERT_TRUE(server.WaitForEnd(0));
  // The goodbye arrives although more was said than anybody had read.
  const Record record = server.Get(0);
  EXPECT_EQ(record.CommandNames().back(), "deleteStream");
  ExpectWhole(record, !IsClient());
}

using Dismissed = Facing<Speech>;

TEST_P(Dismissed, MakesANewConnection) {
  IngestServer server({Script{}}, options);
  Make(server.Url());
  ASSERT_TRUE(Publish(server));
  console.Clear();
  server.Send(0, fault.piece());
  Time("back", milliseconds(0), [&] { ASSERT_TRUE(WaitForMedia(server, 1)); });
  RecordTold();
  EXPECT_EQ(console.Count("the server ended the stream"), 1u);
  EXPECT_EQ(console.Count("IsConnected"), 0u);
  ExpectWhole(server.Get(1), !IsClient());
}

Bytes Status(const char* level, const char* code) {
  return EncodeMessage(3, CommandMessage, 1,
                       EncodeCommand("onStatus", 0, EncodeInformation(level, code)));
}

INSTANTIATE_TEST_SUITE_P(
    Fault, Dismissed,
    testing::Combine(
        testing::Values(
            Speech{"an unpublish", [] { return Status("status", "NetStream.Unpublish.Success"); }},
            Speech{"a late BadName", [] { return Status("error", "NetStream.Publish.BadName"); }},
            Speech{"an unknown error", [] { return Status("error", "NetStream.Unheard.Of"); }},
            Speech{"an end of the stream",
                   [] {
                     return Control(UserControlMessage, {0, 1, 0, 0, 0, 1});
                   }}),
        testing::ValuesIn(Everyone)),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    Fault, Listening,
    testing::Combine(testing::Values(Speech{"days of acknowledgements and pings", Chatter},
                                     Speech{"garbage", Garbage},
                                     Speech{"an oversized message", Oversized}),
                     testing::ValuesIn(Everyone)),
    nameOf);

}  // namespace
}  // namespace nimbo::test
