#include "host/monitor/Server.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <thread>

#include "common/FileDescriptor.h"

namespace nimbo::monitor {
namespace {

/// The answer to one request.
std::string Get(const std::string& address, const std::string& path) {
  const FileDescriptor connection(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in server = {};
  server.sin_family = AF_INET;
  server.sin_port = htons(static_cast<unsigned short>(std::stoi(address.substr(17))));
  server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const std::string request =
      "GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
  std::string answer;
  if (connect(connection.Get(), reinterpret_cast<sockaddr*>(&server), sizeof server) != 0 ||
      send(connection.Get(), request.data(), request.size(), MSG_NOSIGNAL) < 0) {
    return answer;
  }
  std::array<char, 4096> part{};
  for (ssize_t size = 0; (size = recv(connection.Get(), part.data(), part.size(), 0)) > 0;) {
    answer.append(part.data(), static_cast<std::size_t>(size));
  }
  return answer;
}

TEST(Server, AnswersWhileFiguresAndMessagesComeIn) {
  auto opened = Server::Open({0, "", {"rtmp://server/live/a"}});
  ASSERT_TRUE(opened) << opened.Why();
  Monitor* const server = opened->get();
  std::atomic<bool> end = false;
  std::thread publication([&] {
    while (!end) {
      server->Add({ClientFigures()});
      server->Tell(0, "rtmp_connected");
    }
  });
  for (const char* path : {"/status.json", "/metrics", "/", "/status.json?since=1"}) {
    EXPECT_THAT(Get(server->Address(), path), testing::StartsWith("HTTP/1.1 200 OK\r\n"));
  }
  end = true;
  publication.join();
}

}  // namespace
}  // namespace nimbo::monitor
