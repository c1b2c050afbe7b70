#include "host/monitor/Server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <thread>

#include "common/FileDescriptor.h"
#include "tests/host/monitor/Visitor.h"

namespace nimbo::monitor {
namespace {

using test::Connected;
using test::Exchange;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::string Request(const std::string& path, const std::string& headers = "Host: localhost\r\n") {
  return "GET " + path + " HTTP/1.1\r\n" + headers + "Connection: close\r\n\r\n";
}

std::unique_ptr<Monitor> Opened(const std::string& client = "rtmp://server/live/a") {
  auto opened = Server::Open({0, "", {client}});
  EXPECT_TRUE(opened) << opened.Why();
  return std::move(*opened);
}

TEST(Server, AnswersWhileFiguresAndMessagesComeIn) {
  const auto server = Opened();
  std::atomic<bool> end = false;
  std::thread publication([&] {
    while (!end) {
      server->Add({ClientFigures()});
      server->Tell(0, "rtmp_connected", "rtmp_connected");
    }
  });
  for (const char* path : {"/status.json", "/metrics", "/", "/status.json?since=1"}) {
    EXPECT_THAT(Exchange(server->Address(), Request(path)), StartsWith("HTTP/1.1 200 OK\r\n"));
  }
  end = true;
  publication.join();
}

TEST(Server, RefusesWhatIsNotForIt) {
  const std::string huge(100000, 'a');
  const struct {
    std::string request;
    const char* answer;  ///< how it begins
  } cases[] = {
      {Request("/", "Host: elsewhere.example\r\n"), "HTTP/1.1 403"},
      {Request("/", "Host: localhost.elsewhere.example\r\n"), "HTTP/1.1 403"},
      {Request("/", "Host: 127.0.0.1:1@elsewhere.example\r\n"), "HTTP/1.1 403"},
      {Request("/", "Host: 127.0.0.1:1x\r\n"), "HTTP/1.1 403"},
      {Request("/", "Host: localhost:1\r\n"), "HTTP/1.1 200"},
      {Request("/", ""), "HTTP/1.1 4"},
      {Request("/metrics", "Host: localhost\r\nOrigin: http://elsewhere.example\r\n"),
       "HTTP/1.1 403"},
      {Request("/metrics", "Host: localhost\r\nOrigin: null\r\n"), "HTTP/1.1 403"},
      {Request("/metrics", "Host: localhost\r\nOrigin: http://localhost:8089\r\n"), "HTTP/1.1 200"},
      {Request("/../../../../../../etc/passwd"), "HTTP/1.1 404"},
      {Request("/%2e%2e/%2e%2e/%2e%2e/%2e%2e/etc/passwd"), "HTTP/1.1 404"},
      {Request("//etc/passwd"), "HTTP/1.1 404"},
      {Request("/status.json/"), "HTTP/1.1 404"},
      {Request("/status.json%00/../../etc/passwd"), "HTTP/1.1 "},
      {Request("/<script>alert(1)</script>"), "HTTP/1.1 404"},
      {Request("/status.json?since=-1"), "HTTP/1.1 200"},
      {Request("/status.json?since=99999999999999999999999999"), "HTTP/1.1 200"},
      {Request("/" + huge), "HTTP/1.1 4"},
      {Request("/", "Host: localhost\r\nX: " + huge + "\r\n"), "HTTP/1.1 4"},
      {"HEAD / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n", "HTTP/1.1 200"},
      {"DELETE / HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n", "HTTP/1.1 405"},
      {"POST / HTTP/1.1\r\nHost: localhost\r\nContent-Length: -1\r\n\r\n", "HTTP/1.1 4"},
  };
  const auto server = Opened();
  for (const auto& [request, answer] : cases) {
    const std::string got = Exchange(server->Address(), request);
    EXPECT_THAT(got, StartsWith(answer)) << request.substr(0, 100);
    EXPECT_THAT(got, Not(HasSubstr("root:"))) << request.substr(0, 100);
    EXPECT_THAT(got, Not(HasSubstr("<script>alert"))) << request.substr(0, 100);
    EXPECT_THAT(got, Not(HasSubstr("Access-Control-Allow-Origin"))) << request.substr(0, 100);
  }
}

TEST(Server, TellsNamesWithMarkupAsDataAlone) {
  const auto server = Opened("rtmp://server/live/</script><img src=x onerror=alert(1)>\"\n#");
  server->Add({ClientFigures()});
  server->Tell(0, "<b>\n", "<b>\n");
  const std::string status = Exchange(server->Address(), Request("/status.json"));
  EXPECT_THAT(status, HasSubstr("Content-Type: application/json\r\n"));
  EXPECT_THAT(status, HasSubstr("X-Content-Type-Options: nosniff\r\n"));
  EXPECT_THAT(status, HasSubstr(R"(onerror=alert(1)>\"\n#")"));
  const std::string metrics = Exchange(server->Address(), Request("/metrics"));
  EXPECT_THAT(metrics, HasSubstr("Content-Type: text/plain"));
  EXPECT_THAT(metrics, HasSubstr(R"(onerror=alert(1)>\"\n#"})"));
  // The page itself is the same whatever is published; its script enters what it is told as text.
  EXPECT_THAT(Exchange(server->Address(), Request("/")), Not(HasSubstr("onerror")));
}

std::size_t OpenDescriptors() {
  const std::filesystem::directory_iterator list("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(list), end(list)));
}

TEST(Server, HoldsFewOfAThousandVisitorsWhoHoldIt) {
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  const auto server = Opened();
  const std::size_t before = OpenDescriptors();
  {
    std::vector<FileDescriptor> visitors;
    for (int i = 0; i < 1000; ++i) {
      // Some ask byte by byte, some ask and never read, some say nothing.
      const std::string words = i % 3 == 0 ? "GET /st" : i % 3 == 1 ? Request("/") : "";
      visitors.push_back(Connected(server->Address()));
      send(visitors.back().Get(), words.data(), words.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_LE(OpenDescriptors(), before + visitors.size() + 32 + 1);
  }
  EXPECT_THAT(Exchange(server->Address(), Request("/metrics")), StartsWith("HTTP/1.1 200"));
}

}  // namespace
}  // namespace nimbo::monitor
