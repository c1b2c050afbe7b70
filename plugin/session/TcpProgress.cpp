#include "plugin/session/TcpProgress.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstddef>

namespace nimbo::plugin {

TcpProgress TcpProgress::Of(int socket) {
  TcpProgress progress;
  int queued = 0;
  if (ioctl(socket, SIOCOUTQ, &queued) != 0) queued = 0;
  progress.waiting = queued > 0;
  tcp_info info = {};
  socklen_t size = sizeof info;
  constexpr socklen_t Needed = offsetof(tcp_info, tcpi_bytes_acked) + sizeof info.tcpi_bytes_acked;
  const bool told = getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) == 0 && size >= Needed;
  // A kernel before 4.1 does not count. What is queued changes with what is acknowledged while a
  // write waits, and that is when it matters.
  progress.acknowledged = told ? info.tcpi_bytes_acked : static_cast<std::uint64_t>(queued);
  return progress;
}

}  // namespace nimbo::plugin
