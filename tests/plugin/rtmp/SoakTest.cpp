#include <malloc.h>

#include <cstdlib>
#include <filesystem>

#include "tests/plugin/rtmp/Publisher.h"

// Seven weeks of stream time with a lost connection every other hour or so, in seconds: time stamps
// leap. RTMP_SOAK_ROUNDS sets the number of lost connections.

namespace nimbo::test {
namespace {

std::size_t Entries(const char* folder) {
  const std::filesystem::directory_iterator list(folder);
  return static_cast<std::size_t>(std::distance(begin(list), end(list)));
}

/// What a process holds. The heap is unknown (0) under the sanitizers, whose leak check stands in.
struct Holdings {
  std::size_t descriptors = Entries("/proc/self/fd");
  std::size_t threads = Entries("/proc/self/task");
  std::size_t heap = mallinfo2().uordblks + mallinfo2().hblkhd;
};

class Soak : public PluginTest, public testing::WithParamInterface<Publisher::Kind> {};

TEST_P(Soak, ReconnectionsLeaveNothingBehindHoweverLongTheStream) {
  const char* const asked = std::getenv("RTMP_SOAK_ROUNDS");
  const std::size_t rounds = asked ? std::stoul(asked) : 100;
  const std::size_t settled = rounds / 5;
  const std::int64_t step = (std::int64_t{1} << 32) / static_cast<std::int64_t>(rounds - 5);

  IngestServer server({{{{Point::Media, Reaction::Reset, 8}}}});
  const auto publisher = Publisher::New(GetParam(), server.Url());
  publisher->time = (1 << 24) - step;
  publisher->sequence = ~std::uint32_t{0} - static_cast<std::uint32_t>(3 * rounds);
  std::atomic<bool> stop{false};
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&] {
      while (!stop) {
        const std::string status = publisher->Get("rtmp_sts");
        EXPECT_TRUE(status == "true" || status == "false") << status;
        EXPECT_GE(std::stoi(publisher->Get("rtmp_quality")), 0);
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    });
  }
  ASSERT_TRUE(publisher->Open());
  Holdings before;
  for (std::size_t round = 0; round < rounds; ++round) {
    publisher->StartFeeding(100, std::chrono::milliseconds(1));
    ASSERT_TRUE(server.WaitForPublish(round + 1));
    publisher->StopFeeding();
    const Record record = server.Get(round);
    EXPECT_EQ(record.error, "");
    for (const Message& message : record.Media()) {
      if (message.body.at(1) == 0) continue;  // sequence headers carry no time
      // Of the time before the leap, or of a few leaps ago: a ring holds some frames. With the live
      // client every connection's times begin at 0.
      const bool own = GetParam() == Publisher::Kind::Live;
      const auto age =
          static_cast<std::uint32_t>(own ? message.time : publisher->time - message.time);
      EXPECT_LE(age, 30 * step);
      EXPECT_TRUE(own || age > 0);
    }
    publisher->time += step;
    server.Forget(round);
    Messages();
    if (round == settled) before = Holdings();
  }
  const Holdings after;
  EXPECT_LE(after.descriptors, before.descriptors + 2);
  EXPECT_LE(after.threads, before.threads + 2);
  EXPECT_LE(after.heap, before.heap + 50000);
  RecordProperty("rounds", static_cast<int>(rounds));
  RecordProperty("descriptors", static_cast<int>(after.descriptors - before.descriptors));
  RecordProperty("threads", static_cast<int>(after.threads - before.threads));
  RecordProperty("heap", static_cast<int>(after.heap - before.heap));
  publisher->Close();
  stop = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_FALSE(publisher->Connected());
}

INSTANTIATE_TEST_SUITE_P(Publishers, Soak,
                         testing::Values(Publisher::Kind::Pusher, Publisher::Kind::Client,
                                         Publisher::Kind::ClientInPlace, Publisher::Kind::Live),
                         [](const auto& kind) { return std::string(NameOf(kind.param)); });

}  // namespace
}  // namespace nimbo::test
