#include "host/monitor/History.h"

#include <gmock/gmock.h>

#include "host/monitor/Text.h"

namespace nimbo::monitor {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr Time Begin{std::chrono::seconds(1000)};

publication::ClientFigures Sent(std::uint64_t bytes) {
  publication::ClientFigures figures;
  figures.bytes = bytes;
  figures.connected = true;
  return figures;
}

TEST(History, KeepsTheNewestAndCountsAllMessages) {
  History history({"a", "b"}, Begin);
  for (std::size_t i = 0; i < History::MaxSamples + 5; ++i) history.Add(Begin, {Sent(i), Sent(1)});
  for (std::size_t i = 0; i < History::MaxEvents + 5; ++i) {
    history.Tell(Begin, 1, "lost", i % 2 == 0 ? "lost" : "lost again");
    history.Tell(Begin, 1, "lost", "");
  }
  EXPECT_EQ(history.Samples().size(), History::MaxSamples);
  EXPECT_EQ(history.Samples().front().clients[0].bytes, 5U);
  EXPECT_EQ(history.Latest()[0].bytes, History::MaxSamples + 4);
  EXPECT_EQ(history.Events().size(), History::MaxEvents);
  EXPECT_EQ(history.Events().back().message, "lost");
  EXPECT_EQ(history.Messages().at({1, "lost"}), 2 * (History::MaxEvents + 5));
}

TEST(History, TellsAPageOnlyWhatIsNew) {
  History history({"rtmp://server/live/\"a\""}, Begin);
  history.Add(Begin, {Sent(7)});
  history.Tell(Begin + milliseconds(500), 0, "rtmp_connected", "rtmp_connected");
  const std::string sample =
      R"({"time":1000.0,"clients":[{"connected":true,"video":0,"audio":0,"bytes":7,)"
      R"("quality":0,"reconnections":0,"lag":0.0,"acknowledged":0}]})";
  const std::string event = R"({"time":1000.5,"client":0,"message":"rtmp_connected"})";
  const std::string head =
      R"({"start":1000.0,"next":2,"picture":"p","clients":["rtmp://server/live/\"a\""],"samples":[)";
  EXPECT_EQ(StatusJson(history, 0, "p"), head + sample + R"(],"events":[)" + event + "]}");
  EXPECT_EQ(StatusJson(history, 1, "p"), head + R"(],"events":[)" + event + "]}");
  EXPECT_EQ(StatusJson(history, 2, "p"), head + R"(],"events":[]})");
}

TEST(History, IsToldToPrometheusWithItsLabelsEscaped) {
  History history({"a\"\\\n\xff"}, Begin);
  EXPECT_THAT(MetricsText(history), HasSubstr("nimbo_publish_bytes_total{client=\"0\",url="));
  history.Add(Begin, {Sent(7)});
  history.Tell(Begin, 0, "lost", "lost");
  const std::string text = MetricsText(history);
  EXPECT_THAT(text, HasSubstr("# HELP nimbo_publish_bytes_total Bytes of the packets delivered to "
                              "the client.\n# TYPE nimbo_publish_bytes_total counter\n"
                              R"(nimbo_publish_bytes_total{client="0",url="a\"\\\n�"} 7)"
                              "\n"));
  EXPECT_THAT(text, HasSubstr(R"(url="a\"\\\n�",message="lost"} 1)"));
}

}  // namespace
}  // namespace nimbo::monitor
