#include "plugin/session/Connector.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <memory>

#include "plugin/session/Text.h"

namespace nimbo::plugin {

namespace {

using std::chrono::milliseconds;

timeval ToTimeval(milliseconds time) {
  constexpr int PerSecond = 1000;
  timeval value = {};
  value.tv_sec = static_cast<decltype(value.tv_sec)>(time.count() / PerSecond);
  value.tv_usec = static_cast<decltype(value.tv_usec)>(time.count() % PerSecond * PerSecond);
  return value;
}

template <class V>
void SetOption(int socket, int level, int option, const V& value) {
  setsockopt(socket, level, option, &value, sizeof value);
}

}  // namespace

void Connector::SetOptions(int socket, milliseconds answer, milliseconds backstop) {
  // TCP_USER_TIMEOUT is left alone: it adds up the times in which a slow reader's window was
  // closed, and would end connections that move all the time. The watcher judges by progress.
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, int{1});
  SetOption(socket, SOL_SOCKET, SO_RCVTIMEO, ToTimeval(answer));
  SetOption(socket, SOL_SOCKET, SO_SNDTIMEO, ToTimeval(backstop));
}

void Connector::BoundUnsent(int socket, std::size_t bytes) {
  SetOption(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, static_cast<unsigned int>(bytes));
}

void Connector::AcknowledgeNow(int socket) {
  const int error = errno;  // of whoever is in the middle of something
  SetOption(socket, IPPROTO_TCP, TCP_QUICKACK, int{1});
  errno = error;
}

Status Connector::Connect(const std::string& host, unsigned port, milliseconds answer,
                          const std::function<void()>& started, const Watch& watch,
                          FileDescriptor& socket) {
  addrinfo hints = {};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(port);
  int failed = EAI_NONAME;
  // An address needs no look-up, and may be of a family that no interface but loopback has; so may
  // those of a name, at last.
  for (const int flags : {AI_NUMERICHOST, AI_ADDRCONFIG, 0}) {
    hints.ai_flags = flags;
    failed = getaddrinfo(host.c_str(), service.c_str(), &hints, &found);
    if (failed != EAI_NONAME && failed != EAI_ADDRFAMILY) break;
  }
  if (failed) {
    return Status::Failed("no address for \"" + Printable(host) + "\": " +
                          (failed == EAI_SYSTEM ? ErrorText(errno) : gai_strerror(failed)));
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(found, freeaddrinfo);
  started();

  Status status = Status::Failed("no usable address for \"" + host + "\"");
  for (const addrinfo* address = addresses.get(); address; address = address->ai_next) {
    socket.Reset(
        ::socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC, address->ai_protocol));
    if (!socket) {
      status = Status::Failed("no connection can be made: " + ErrorText(errno));
      continue;
    }
    // The send time-out bounds a blocking connect too (it ends with EINPROGRESS), and a shutdown by
    // whoever watches the socket ends it at once. Where there is another address to try, one that
    // swallows everything must leave time for it.
    constexpr int Share = 3;
    SetOptions(socket.Get(), answer, address->ai_next ? answer / Share : answer);
    status = watch(socket.Get());
    if (!status) break;
    int result;
    do {
      result = connect(socket.Get(), address->ai_addr, address->ai_addrlen);
    } while (result < 0 && errno == EINTR);
    if (result == 0) return {};
    status = Status::Failed(errno == EINPROGRESS || errno == EALREADY || errno == ETIMEDOUT
                                ? "no answer from \"" + host + "\" port " + service
                                : "cannot connect to \"" + host + "\" port " + service + ": " +
                                      ErrorText(errno));
  }
  socket.Reset();
  return status;
}

}  // namespace nimbo::plugin
