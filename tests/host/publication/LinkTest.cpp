#include "host/publication/Link.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>

#include "common/FileDescriptor.h"
#include "tests/support/Eventually.h"
#include "tests/support/IngestServer.h"

namespace nimbo::publication {
namespace {

using namespace std::chrono_literals;

TEST(AgeMeterTest, TellsSinceWhenMoreIsWrittenThanAcknowledged) {
  const AgeMeter::Time start{};
  AgeMeter meter;
  meter.Add(start, 0, 0);
  EXPECT_EQ(meter.Age(), 0ns);
  meter.Add(start + 1s, 0, 1000);
  EXPECT_EQ(meter.Age(), 1s);
  meter.Add(start + 2s, 500, 2000);
  EXPECT_EQ(meter.Age(), 1500ms) << "half of the first second has come";
  meter.Add(start + 3s, 1250, 2000);
  EXPECT_EQ(meter.Age(), 1750ms);
  meter.Add(start + 4s, 2000, 2000);
  EXPECT_EQ(meter.Age(), 0ns);
}

TEST(LinkTest, FollowsTheConnectionsOfItsClientAndAddsThemUp) {
  std::vector<Connection> free(3);
  free[0].port = 1935, free[0].inode = 1, free[0].acknowledged = 10, free[0].outstanding = 5;
  free[1].port = 443, free[1].inode = 2, free[1].acknowledged = 20;
  free[2].port = 1935, free[2].inode = 3, free[2].acknowledged = 30;
  Link one, other;
  auto left = free;
  one.Follow(left, 1935, {});
  other.Follow(left, 1935, {});
  EXPECT_EQ(one.Acknowledged(), 10U);
  EXPECT_EQ(one.Outstanding(), 5U);
  EXPECT_EQ(other.Acknowledged(), 30U);
  left = {free[1], free[2]};
  one.Follow(left, 80, {});
  other.Follow(left, 1935, {});
  EXPECT_FALSE(one.Stands());
  EXPECT_EQ(one.Acknowledged(), 10U) << "what has ended still counts";
  EXPECT_EQ(other.Acknowledged(), 30U) << "it keeps its own";
  left = {free[1]};
  one.Follow(left, 443, {});
  EXPECT_EQ(one.Acknowledged(), 30U);
}

TEST(OwnConnectionsTest, TellWhatTheOtherEndHasTaken) {
  int port = 0;
  const FileDescriptor listener(test::BoundSocket(false, port));
  ASSERT_EQ(listen(listener.Get(), 1), 0);
  sockaddr_storage address = {};
  socklen_t size = sizeof address;
  getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size);
  const FileDescriptor client(socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_EQ(connect(client.Get(), reinterpret_cast<sockaddr*>(&address), size), 0);
  const auto mine = [port] {
    auto all = OwnConnections();
    const auto found = std::ranges::find(all, static_cast<unsigned short>(port), &Connection::port);
    return found == all.end() ? Connection() : *found;
  };
  ASSERT_EQ(mine().descriptor, client.Get());
  ASSERT_EQ(send(client.Get(), "12345", 5, 0), 5);
  EXPECT_TRUE(test::Eventually([&] { return mine().outstanding == 0; }));
  EXPECT_GE(mine().acknowledged, 5U);
  EXPECT_LE(mine().acknowledged, 6U) << "systems may count the one of the connection itself";
}

TEST(PortOfTest, IsWhatTheAddressSaysOrThatOfItsScheme) {
  EXPECT_EQ(PortOf("rtmp://server:1936/live/x:80"), 1936);
  EXPECT_EQ(PortOf("rtmp://server/live/x"), 1935);
  EXPECT_EQ(PortOf("rtmps://server/live/x"), 443);
  EXPECT_EQ(PortOf("rtmp://[::1]/live/x"), 1935);
  EXPECT_EQ(PortOf("rtmp://[::1]:1937/live/x"), 1937);
}

}  // namespace
}  // namespace nimbo::publication
