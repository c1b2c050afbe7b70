#include "plugin/session/TcpProgress.h"

#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstring>

namespace nimbo::plugin {

TcpProgress TcpProgress::Of(int socket) {
  TcpProgress progress;
  int queued = 0;
  if (ioctl(socket, SIOCOUTQ, &queued) != 0) queued = 0;
  progress.waiting = queued > 0;
  progress.outstanding = static_cast<std::uint64_t>(queued);
  // The window lies behind what the headers of older systems declare; Linux tells it since 5.4.
  constexpr std::size_t WindowAt = 228;
  unsigned char told[WindowAt + sizeof(std::uint32_t)] = {};
  socklen_t size = sizeof told;
  constexpr socklen_t Needed =
      offsetof(tcp_info, tcpi_bytes_acked) + sizeof(tcp_info::tcpi_bytes_acked);
  const bool tells = getsockopt(socket, IPPROTO_TCP, TCP_INFO, told, &size) == 0 && size >= Needed;
  // A kernel before 4.1 does not count. What is queued changes with what is acknowledged while a
  // write waits, and that is when it matters.
  progress.acknowledged = static_cast<std::uint64_t>(queued);
  progress.promised = progress.acknowledged;
  if (!tells) return progress;
  std::uint32_t window = 0;
  std::memcpy(&progress.acknowledged, told + offsetof(tcp_info, tcpi_bytes_acked),
              sizeof progress.acknowledged);
  std::memcpy(&window, told + WindowAt, sizeof window);
  progress.promised = progress.acknowledged + window;
  return progress;
}

}  // namespace nimbo::plugin
