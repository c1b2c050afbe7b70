#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "host/base/Outlet.h"
#include "host/cli/terminal/SignalWatch.h"
#include "tests/host/cli/HostProcess.h"
#include "tests/host/monitor/Visitor.h"
#include "tests/support/IngestServer.h"
#include "tests/support/Lateness.h"
#include "tests/support/StreamFile.h"

// What befalls the program while it publishes: readers of its output that stop or go, signals, and
// limits.

namespace nimbo {
namespace {

using test::HostProcess;
using test::IngestServer;
using test::Point;
using test::Reaction;
using test::Record;
using test::Script;
using Streams = HostProcess::Streams;

/// The connection that media come on: for the first picture of the film the session is made anew.
constexpr std::size_t First = 1;

class Program : public testing::Test {
 protected:
  std::vector<std::string> Publish(const std::string& url, std::vector<std::string> more = {}) {
    std::vector<std::string> words = {"publish", film.Path(), url, "--loop"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  static void ExpectGoodbye(IngestServer& server, std::size_t connection) {
    ASSERT_TRUE(server.WaitForEnd(connection));
    EXPECT_EQ(server.Get(connection).CommandNames().back(), "deleteStream");
  }

  /// Two seconds of pictures.
  const test::StreamFile film{test::VideoStream(50, 10, 500), ".h264"};
};

TEST_F(Program, TellsWhoeverEncodesWhatTheLinkHolds) {
  constexpr std::size_t Picture = 20'000, Pictures = 25, Link = 100'000;  // bytes, a second
  const test::StreamFile large{test::VideoStream(50, 10, Picture), ".h264"};
  Script slow;
  slow.receiveBuffer = 16 * 1024;
  slow.rate = Link;
  IngestServer server({slow});
  HostProcess host(Streams::Pipes, {"publish", "--plugin", ECHO_PLUGIN, "--plugin", RTMP_PLUGIN,
                                    large.Path(), server.Url(), "--loop", "--adapt"});
  constexpr char Asked[] = "bit_rate: ";
  ASSERT_TRUE(host.WaitFor(Asked) && host.WaitFor("\n"));
  const auto number = host.Output().find(Asked) + sizeof Asked - 1;
  EXPECT_LT(std::stoull(host.Output().substr(number)), Picture * Pictures * 8 / 2);
}

// ---- readers ------------------------------------------------------------------------------------

struct Reader {
  const char* name;
  Streams streams;
  void (*misbehave)(HostProcess& host);
};

class Unread : public Program,
               public testing::WithParamInterface<std::tuple<Reader, const char*>> {};

TEST_P(Unread, GoesOnPublishingAndEndsOnASignal) {
  const auto& [reader, option] = GetParam();
  IngestServer server;
  HostProcess host(reader.streams, Publish(server.Url(), *option ? std::vector<std::string>{option}
                                                                 : std::vector<std::string>{}));
  ASSERT_TRUE(server.WaitForMedia(First, 10));
  reader.misbehave(host);
  // Who delivers tells of a lost connection, of a new one, and of the headers on it.
  constexpr std::size_t Last = First + 3;
  for (std::size_t connection = First; connection < Last; ++connection) {
    ASSERT_TRUE(server.WaitForMedia(connection, 10));
    server.Reset(connection);
  }
  ASSERT_TRUE(server.WaitForMedia(Last, 30));
  host.Signal(SIGHUP);
  ExpectGoodbye(server, Last);
  EXPECT_EQ(host.WaitUnread(), 1);  // something was lost
}

INSTANTIATE_TEST_SUITE_P(
    Output, Unread,
    testing::Combine(testing::Values(Reader{"Stops", Streams::Pipes,
                                            [](HostProcess& host) { host.FillOutput(); }},
                                     Reader{"Goes", Streams::Pipes,
                                            [](HostProcess& host) { host.CloseOutput(); }},
                                     Reader{"IsAFullDisk", Streams::FullDisk,
                                            [](HostProcess& host) { host.FillOutput(); }}),
                     testing::Values("", "--json")),
    [](const auto& given) {
      return std::string(std::get<0>(given.param).name) + (*std::get<1>(given.param) ? "Json" : "");
    });

TEST_F(Program, ThatPrintsAndEndsWaitsForItsReaderUntilASignal) {
  HostProcess host(Streams::Pipes, {"shell"});
  ASSERT_TRUE(host.WaitForSignals());
  host.FillOutput();
  host.Write("help\nclasses\nhelp\n");
  host.Signal(SIGTERM);
  EXPECT_EQ(host.WaitUnread(), 1);
  // The same, read to its end.
  int code = 0;
  EXPECT_THAT(test::RunShell("help\nclasses\nhelp\n", code), testing::HasSubstr("help"));
}

// ---- signals ------------------------------------------------------------------------------------

struct Moment {
  const char* name;
  std::vector<Script> scripts;
  void (*await)(IngestServer& server, HostProcess& host);
  int code;  ///< of a program that ends by itself, at the first signal
  bool goodbye;
};

void PrintTo(const Moment& moment, std::ostream* out) { *out << moment.name; }

Script When(Point point, Reaction reaction) {
  Script script{{{point, reaction, 10}}};
  script.rules[0].count = point == Point::Media ? 10 : 1;
  script.receiveBuffer = 16384;
  return script;
}

const Moment Moments[] = {
    {"Opening",
     {When(Point::Hello, Reaction::Stall)},
     [](IngestServer& server, HostProcess&) {
       server.WaitFor(0, [](const Record& record) { return record.bytes > 0; });
     },
     1,
     false},
    {"Publishing",
     {Script{}},
     [](IngestServer& server, HostProcess&) { server.WaitForMedia(First, 10); },
     0,
     true},
    {"Reconnecting",
     {Script{}, When(Point::Media, Reaction::Close)},
     [](IngestServer& server, HostProcess& host) {
       server.WaitForMedia(First, 1);
       server.StopListening();
       host.WaitFor("rtmp_reconnect_fail");
     },
     1,
     false},
    {"Stalled",
     {Script{}, When(Point::Media, Reaction::Stall)},
     [](IngestServer& server, HostProcess&) { server.WaitForMedia(First, 10); },
     0,
     false},
};

class Signals : public Program, public testing::WithParamInterface<std::tuple<Moment, int>> {};

TEST_P(Signals, EndTheProgramWithAGoodbyeWhereThereIsSomebodyToSayItTo) {
  const auto& [moment, signal] = GetParam();
  IngestServer server(moment.scripts);
  HostProcess host(Streams::Pipes, Publish(server.Url()));
  moment.await(server, host);
  host.Signal(signal);
  const int code = host.Wait();
  EXPECT_EQ(code, moment.code) << host.Output();
  if (moment.goodbye) ExpectGoodbye(server, First);
}

INSTANTIATE_TEST_SUITE_P(While, Signals,
                         testing::Combine(testing::ValuesIn(Moments),
                                          testing::Values(SIGINT, SIGTERM, SIGHUP)),
                         [](const auto& given) {
                           const int signal = std::get<1>(given.param);
                           return std::string(std::get<0>(given.param).name) +
                                  (signal == SIGINT    ? "Interrupt"
                                   : signal == SIGTERM ? "Terminate"
                                                       : "HangUp");
                         });

TEST_F(Program, ASecondSignalDuringTheGoodbyeEndsItAtOnce) {
  // The first one finds the control thread in an attempt that takes 5 s.
  IngestServer server({When(Point::Hello, Reaction::Stall)});
  HostProcess host(Streams::Pipes, Publish(server.Url()));
  ASSERT_TRUE(server.WaitFor(0, [](const Record& record) { return record.bytes > 0; }));
  host.Signal(SIGHUP);
  ASSERT_TRUE(host.WaitForSignals());
  host.Signal(SIGTERM);
  EXPECT_EQ(host.Wait(), 128 + SIGTERM);
}

TEST_F(Program, IgnoresAHangUpThatWasIgnoredAtItsStart) {
  const auto before = ::signal(SIGHUP, SIG_IGN);  // as nohup does
  IngestServer server;
  HostProcess host(Streams::Pipes, Publish(server.Url()));
  ::signal(SIGHUP, before);
  ASSERT_TRUE(server.WaitForMedia(First, 10));
  host.Signal(SIGHUP);
  const std::size_t media = server.Get(First).mediaCount;
  EXPECT_TRUE(server.WaitForMedia(First, media + 20));
  host.Signal(SIGTERM);
  EXPECT_EQ(host.Wait(), 0) << host.Output();
}

using SignalWatchDeathTest = testing::Test;

TEST(SignalWatchDeathTest, EndsAProgramThatHangs) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const cli::SignalWatch watch(std::chrono::milliseconds(100));
        kill(getpid(), SIGTERM);
        std::this_thread::sleep_for(test::LongTime);
      },
      testing::ExitedWithCode(128 + SIGTERM), "has not ended in time");
}

// ---- limits -------------------------------------------------------------------------------------

TEST_F(Program, EndsInOrderWhereverItsDescriptorsAreUsedUp) {
  constexpr unsigned Least = 6;  // with which the libraries are loaded
  constexpr unsigned Most = 64;
  IngestServer server;
  unsigned limit = Least;
  for (int code = 1; code != 0; ++limit) {
    ASSERT_LT(limit, Most);
    HostProcess host(Streams::Pipes, {"publish", film.Path(), server.Url(), "--fast"}, limit);
    code = host.Wait();
    ASSERT_TRUE(code == 0 || code == 1) << limit << ": " << code << ", " << host.Output();
    EXPECT_TRUE(code == 0 || !host.Output().empty()) << limit;
  }
  EXPECT_GT(limit, Least + 3);
}

TEST_F(Program, EndsWithALineWhenAnExceptionHasEndedOneOfItsThreads) {
  IngestServer server;
  setenv("ECHO_FAILS", "1", 1);
  std::vector<std::string> words = Publish(server.Url());
  words.insert(words.begin(), {"--plugin", RTMP_PLUGIN, "--plugin", ECHO_PLUGIN});
  HostProcess host(Streams::Pipes, words);
  unsetenv("ECHO_FAILS");
  EXPECT_EQ(host.Wait(), 1);
  EXPECT_THAT(host.Output(), testing::HasSubstr("thread failing: an exception escaped: no good\n"));
  EXPECT_THAT(host.Output(), testing::HasSubstr("nimbo-host: a part of it has failed"));
  ExpectGoodbye(server, server.Connections() - 1);
}

// ---- the monitor --------------------------------------------------------------------------------

#ifdef NIMBO_MONITOR
TEST_F(Program, DoesNotNoticeWhoStormsItsMonitor) {
  IngestServer server;
  HostProcess host(Streams::Pipes, Publish(server.Url(), {"--monitor", "0"}));
  ASSERT_TRUE(host.WaitFor("monitor: "));
  ASSERT_TRUE(host.WaitFor("\n"));
  const std::size_t at = host.Output().find("http://");
  const std::string address = host.Output().substr(at, host.Output().find('\n', at) - at);
  ASSERT_TRUE(server.WaitForMedia(First, 10));
  // Frames that arrive in a while, and the longest time in which none did.
  constexpr std::chrono::milliseconds While{1500};
  const auto watch = [&] {
    using Clock = std::chrono::steady_clock;
    std::size_t media = server.Get(First).mediaCount;
    const std::size_t before = media;
    auto last = Clock::now();
    auto longest = Clock::duration::zero();
    for (const auto end = last + While; Clock::now() < end;) {
      if (!server.WaitForMedia(First, ++media)) break;
      longest = std::max(longest, Clock::now() - last);
      last = Clock::now();
    }
    return std::pair(static_cast<double>(media - before), longest);
  };
  const auto [quietFrames, quietGap] = watch();
  std::atomic<bool> end = false;
  const std::string request = "GET /status.json HTTP/1.1\r\nHost: localhost\r\n\r\n";
  std::vector<FileDescriptor> visitors;
  std::thread storm([&] {
    for (int i = 0; !end; ++i) {
      visitors.push_back(test::Connected(address));
      // Whole requests that are not read, halves of them, and nothing.
      const std::size_t size = i % 3 == 0 ? request.size() : i % 3 == 1 ? request.size() / 2 : 0;
      send(visitors.back().Get(), request.data(), size, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (visitors.size() == 500) visitors.clear();
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
  });
  const test::Lateness lateness;
  const auto [frames, gap] = watch();
  const std::chrono::milliseconds lost = lateness.Lost();
  end = true;
  storm.join();
  EXPECT_GT(frames, quietFrames * 3 / 4);
  // A picture is sent each 40 ms; what the machine is late is not the storm's doing.
  EXPECT_LT(gap, 5 * std::max<decltype(gap)>(quietGap, std::chrono::milliseconds(40)) + lost);
  EXPECT_EQ(server.Connections(), First + 1);
  // Nor does the end wait until they have been silent for too long.
  constexpr std::chrono::seconds Idle{15};
  const auto start = std::chrono::steady_clock::now();
  host.Signal(SIGTERM);
  EXPECT_EQ(host.Wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, Idle / 2);
}
#endif

}  // namespace
}  // namespace nimbo
