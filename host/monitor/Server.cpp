#include "host/monitor/Server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string_view>

#include "common/FileDescriptor.h"
#include "host/monitor/Resources.h"
#include "host/monitor/Text.h"

namespace nimbo::monitor {

namespace {

constexpr char PlainType[] = "text/plain; charset=utf-8";
/// Without a channel of its own the thread would not be told to end while it holds as many visitors
/// as it may.
constexpr unsigned Mode = MHD_USE_AUTO_INTERNAL_THREAD | MHD_USE_ITC;
constexpr int Backlog = 16;
constexpr unsigned MaxConnections = 32;
constexpr unsigned IdleSeconds = 15;

/// What every answer says. The page takes nothing from elsewhere but the picture.
constexpr std::array<const char*, 2> Headers[] = {
    {"Cache-Control", "no-store"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Content-Security-Policy",
     "default-src 'self'; img-src 'self' data:; connect-src 'self' http: https:; "
     "media-src 'self' blob: http: https:; "
     "frame-ancestors 'none'; base-uri 'none'; form-action 'none'"}};

MHD_Result Send(MHD_Connection* connection, unsigned status, const char* type,
                std::string_view text) {
  const std::unique_ptr<MHD_Response, void (*)(MHD_Response*)> response(
      MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()),
                                      MHD_RESPMEM_MUST_COPY),
      MHD_destroy_response);
  if (!response) return MHD_NO;
  MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, type);
  for (const auto& [name, value] : Headers) MHD_add_response_header(response.get(), name, value);
  if (status == MHD_HTTP_METHOD_NOT_ALLOWED) {
    MHD_add_response_header(response.get(), MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  }
  return MHD_queue_response(connection, status, response.get());
}

/// True for this machine's own names, with any port: a tunnel may come from another one.
bool OwnHost(std::string_view host) {
  for (const std::string_view name : {"localhost", "127.0.0.1"}) {
    if (host.substr(0, name.size()) != name) continue;
    const auto rest = host.substr(name.size());
    if (rest.empty()) return true;
    return rest.size() > 1 && rest.front() == ':' &&
           std::all_of(rest.begin() + 1, rest.end(),
                       [](unsigned char digit) { return std::isdigit(digit) != 0; });
  }
  return false;
}

/// Whether a request was sent by a page of this machine's own, or by no page.
bool OwnOrigin(std::string_view origin) {
  constexpr std::string_view Scheme = "http://";
  return origin.empty() ||
         (origin.substr(0, Scheme.size()) == Scheme && OwnHost(origin.substr(Scheme.size())));
}

const char* Value(MHD_Connection* connection, MHD_ValueKind kind, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, kind, name);
  return value ? value : "";
}

/// A socket that listens on the loopback interface; `port` becomes the one that it has.
FileDescriptor Listen(unsigned short& port) {
  FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* any = reinterpret_cast<sockaddr*>(&address);
  if (!listener || setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      bind(listener.Get(), any, size) != 0 || listen(listener.Get(), Backlog) != 0 ||
      getsockname(listener.Get(), any, &size) != 0) {
    return {};
  }
  port = ntohs(address.sin_port);
  return listener;
}

}  // namespace

Result<std::unique_ptr<Monitor>> Server::Open(const Options& options) {
  unsigned short port = options.port;
  auto listener = Listen(port);
  if (!listener) {
    const std::string reason = std::strerror(errno);
    return Status::Failed("127.0.0.1:" + std::to_string(port) + ": " + reason);
  }
  std::unique_ptr<Server> server(new Server(options, port));
  const auto answer = [](void* self, MHD_Connection* connection, const char* path,
                         const char* method, const char*, const char*, std::size_t*,
                         void**) -> MHD_Result {
    try {
      return static_cast<Server*>(self)->Answer(connection, path, method);
    } catch (const std::exception&) {  // no memory: this connection ends
      return MHD_NO;
    }
  };
  server->_daemon.reset(
      MHD_start_daemon(Mode, 0, nullptr, nullptr, answer, server.get(), MHD_OPTION_LISTEN_SOCKET,
                       listener.Get(), MHD_OPTION_CONNECTION_LIMIT, MaxConnections,
                       MHD_OPTION_CONNECTION_TIMEOUT, IdleSeconds, MHD_OPTION_END));
  if (!server->_daemon) return Status::Failed("the server does not start");
  static_cast<void>(listener.Release());  // the daemon closes it
  return std::unique_ptr<Monitor>(std::move(server));
}

Server::Server(const Options& options, unsigned short port)
    : _picture(options.picture),
      _port(port),
      _history(options.clients, std::chrono::system_clock::now()) {}

std::string Server::Address() const { return "http://127.0.0.1:" + std::to_string(_port) + "/"; }

void Server::Add(std::vector<ClientFigures> clients) {
  const sync::Lock lock(_mutex);
  _history.Add(std::chrono::system_clock::now(), std::move(clients));
}

void Server::Tell(std::size_t client, const std::string& message, const std::string& told) {
  const sync::Lock lock(_mutex);
  _history.Tell(std::chrono::system_clock::now(), client, message, told);
}

MHD_Result Server::Answer(MHD_Connection* connection, const std::string& path,
                          const std::string& method) {
  if (!OwnHost(Value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_HOST)) ||
      !OwnOrigin(Value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_ORIGIN))) {
    return Send(connection, MHD_HTTP_FORBIDDEN, PlainType,
                "This page is served to localhost and 127.0.0.1 alone.\n");
  }
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
    return Send(connection, MHD_HTTP_METHOD_NOT_ALLOWED, PlainType, "GET and HEAD alone.\n");
  }
  if (path == "/status.json") {
    const auto since =
        std::strtoull(Value(connection, MHD_GET_ARGUMENT_KIND, "since"), nullptr, 10);
    const sync::Lock lock(_mutex);
    return Send(connection, MHD_HTTP_OK, "application/json", StatusJson(_history, since, _picture));
  }
  if (path == "/metrics") {
    const sync::Lock lock(_mutex);
    return Send(connection, MHD_HTTP_OK, MetricsType, MetricsText(_history));
  }
  if (const Resource* resource = FindResource(path)) {
    return Send(connection, MHD_HTTP_OK, resource->type, resource->text);
  }
  return Send(connection, MHD_HTTP_NOT_FOUND, PlainType, "There is no such page.\n");
}

}  // namespace nimbo::monitor
