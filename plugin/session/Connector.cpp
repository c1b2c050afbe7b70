#include "plugin/session/Connector.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>

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

std::string ErrorText(int error) { return std::generic_category().message(error); }

}  // namespace

void Connector::SetOptions(int socket, milliseconds answer, milliseconds stalledSend) {
  // What is sent after the kernel has given the server up fails at once; after the send time-out,
  // which stands behind it, it would wait again.
  const int on = 1;
  const auto userTimeout = static_cast<unsigned int>(stalledSend.count());
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, on);
  SetOption(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, userTimeout);
  SetOption(socket, SOL_SOCKET, SO_RCVTIMEO, ToTimeval(answer));
  SetOption(socket, SOL_SOCKET, SO_SNDTIMEO, ToTimeval(stalledSend));
}

void Connector::AcknowledgeNow(int socket) {
  const int error = errno;  // of whoever is in the middle of something
  SetOption(socket, IPPROTO_TCP, TCP_QUICKACK, int{1});
  errno = error;
}

Connector::Result Connector::Connect(const std::string& host, unsigned port, milliseconds answer,
                                     milliseconds stalledSend, const std::function<void()>& started,
                                     const Watch& watch) {
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
    return {-1, "no address for \"" + host +
                    "\": " + (failed == EAI_SYSTEM ? ErrorText(errno) : gai_strerror(failed))};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(found, freeaddrinfo);
  started();

  std::string problem = "no usable address for \"" + host + "\"";
  for (const addrinfo* address = addresses.get(); address; address = address->ai_next) {
    const int socket =
        ::socket(address->ai_family, address->ai_socktype | SOCK_CLOEXEC, address->ai_protocol);
    if (socket < 0) {
      problem = ErrorText(errno);
      continue;
    }
    SetOptions(socket, answer, stalledSend);
    // Where there is another address to try, one that swallows everything must leave time for it.
    constexpr int Share = 3;
    if (address->ai_next) SetOption(socket, SOL_SOCKET, SO_SNDTIMEO, ToTimeval(answer / Share));
    if (!watch(socket)) {
      close(socket);
      return {-1, "cancelled"};
    }
    // The send time-out bounds a blocking connect too (it ends with EINPROGRESS), and a shutdown by
    // whoever watches the socket ends it at once.
    int result;
    do {
      result = connect(socket, address->ai_addr, address->ai_addrlen);
    } while (result < 0 && errno == EINTR);
    if (result == 0) {
      SetOption(socket, SOL_SOCKET, SO_SNDTIMEO, ToTimeval(stalledSend));
      return {socket, {}};
    }
    problem = errno == EINPROGRESS || errno == ETIMEDOUT
                  ? "no answer from \"" + host + "\" port " + service
                  : "cannot connect to \"" + host + "\" port " + service + ": " + ErrorText(errno);
    close(socket);
  }
  return {-1, problem};
}

}  // namespace nimbo::plugin
