#include "host/publication/Link.h"

#include <dirent.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string_view>

#include "common/FileDescriptor.h"

namespace nimbo::publication {

namespace {

/// The sockets of this process: their inodes, and the descriptors that lead to them. The links tell
/// without touching what another thread may be closing.
std::map<std::uint64_t, int> OwnSockets() {
  std::map<std::uint64_t, int> sockets;
  const std::string links = "/proc/self/fd/";
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(links.c_str()), closedir);
  while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
    constexpr std::string_view Socket = "socket:[";
    char target[64];
    const ssize_t size = readlink((links + entry->d_name).c_str(), target, sizeof target - 1);
    if (size < 0) continue;
    target[size] = '\0';
    if (!std::string_view(target).starts_with(Socket)) continue;
    sockets.emplace(std::strtoull(target + Socket.size(), nullptr, 10), std::atoi(entry->d_name));
  }
  return sockets;
}

void Describe(const tcp_info& info, Connection& connection) {
  connection.acknowledged = info.tcpi_bytes_acked;
  connection.retransmits = info.tcpi_total_retrans;
  connection.roundTrip = std::chrono::microseconds(info.tcpi_rtt);
}

// ---- sock_diag(7) -------------------------------------------------------------------------------

// Of <netinet/tcp.h>, which does not go together with the kernel's own header.
constexpr unsigned TcpEstablished = 1;
constexpr unsigned TcpCloseWait = 8;

struct Question {
  nlmsghdr header;
  inet_diag_req_v2 about;
};

/// The message as a connection; false when it describes none of `own`.
bool Read(const nlmsghdr& message, const std::map<std::uint64_t, int>& own,
          Connection& connection) {
  const auto& said = *static_cast<const inet_diag_msg*>(NLMSG_DATA(&message));
  const auto found = own.find(said.idiag_inode);
  if (found == own.end()) return false;
  connection.descriptor = found->second;
  connection.inode = said.idiag_inode;
  connection.port = ntohs(said.id.idiag_dport);
  connection.outstanding = said.idiag_wqueue;
  const auto* part = reinterpret_cast<const rtattr*>(&said + 1);
  auto left = static_cast<int>(NLMSG_PAYLOAD(&message, sizeof said));
  for (; RTA_OK(part, left); part = RTA_NEXT(part, left)) {
    if (part->rta_type != INET_DIAG_INFO) continue;
    // Kernels tell more of it, and less, than this one knows.
    tcp_info info = {};
    std::memcpy(&info, RTA_DATA(part), std::min(sizeof info, std::size_t{RTA_PAYLOAD(part)}));
    Describe(info, connection);
  }
  return true;
}

/// Adds the connections of `own` that belong to `family`; false when the kernel does not answer.
bool Ask(int netlink, unsigned char family, const std::map<std::uint64_t, int>& own,
         std::vector<Connection>& connections) {
  Question question = {};
  question.header.nlmsg_len = sizeof question;
  question.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  question.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  question.about.sdiag_family = family;
  question.about.sdiag_protocol = IPPROTO_TCP;
  question.about.idiag_ext = 1U << (INET_DIAG_INFO - 1);
  question.about.idiag_states = 1U << TcpEstablished | 1U << TcpCloseWait;
  if (send(netlink, &question, sizeof question, 0) < 0) return false;
  alignas(nlmsghdr) char answer[32768];
  for (;;) {
    const ssize_t size = recv(netlink, answer, sizeof answer, 0);
    if (size <= 0) return false;
    auto left = static_cast<std::size_t>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(answer);
    for (; NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
      if (message->nlmsg_type == NLMSG_DONE) return true;
      if (message->nlmsg_type != SOCK_DIAG_BY_FAMILY) return false;
      Connection connection;
      if (Read(*message, own, connection)) connections.push_back(connection);
    }
  }
}

// ---- kernels without it -------------------------------------------------------------------------

bool AskSocket(int descriptor, Connection& connection) {
  sockaddr_storage peer = {};
  socklen_t size = sizeof peer;
  if (getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0) return false;
  tcp_info info = {};
  int outstanding = 0;
  size = sizeof info;
  if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0 ||
      ioctl(descriptor, SIOCOUTQ, &outstanding) != 0) {
    return false;
  }
  connection.port = peer.ss_family == AF_INET6
                        ? ntohs(reinterpret_cast<const sockaddr_in6&>(peer).sin6_port)
                        : ntohs(reinterpret_cast<const sockaddr_in&>(peer).sin_port);
  connection.outstanding = static_cast<std::uint64_t>(std::max(outstanding, 0));
  Describe(info, connection);
  return true;
}

}  // namespace

std::vector<Connection> OwnConnections() {
  const std::map<std::uint64_t, int> own = OwnSockets();
  std::vector<Connection> connections;
  const FileDescriptor netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (netlink && Ask(netlink.Get(), AF_INET, own, connections) &&
      Ask(netlink.Get(), AF_INET6, own, connections)) {
    return connections;
  }
  connections.clear();
  for (const auto& [inode, descriptor] : own) {
    Connection connection;
    connection.descriptor = descriptor;
    connection.inode = inode;
    if (AskSocket(descriptor, connection)) connections.push_back(connection);
  }
  return connections;
}

void AgeMeter::Add(Time time, std::uint64_t acknowledged, std::uint64_t written) {
  _written.emplace_back(time, written);
  while (_written.size() > 1 && _written[1].second <= acknowledged) _written.pop_front();
  _age = std::chrono::nanoseconds(0);
  if (written <= acknowledged) return;
  const auto& [since, before] = _written.front();
  if (_written.size() == 1 || before > acknowledged) {
    _age = time - since;
    return;
  }
  // Between two Adds, writing is taken to be steady.
  const auto& [until, after] = _written[1];
  const double part =
      static_cast<double>(acknowledged - before) / static_cast<double>(after - before);
  _age = time - (since + std::chrono::duration_cast<Time::duration>((until - since) * part));
}

void Link::Follow(std::vector<Connection>& free, unsigned short port, AgeMeter::Time now) {
  auto found = std::ranges::find(free, _now.inode, &Connection::inode);
  if (found == free.end()) {
    _before.acknowledged += _now.acknowledged;
    _before.retransmits += _now.retransmits;
    _now = Connection();
    _age = AgeMeter();
    found = std::ranges::find(free, port, &Connection::port);
  }
  if (found == free.end()) return;
  _now = *found;
  free.erase(found);
  _age.Add(now, _now.acknowledged, _now.acknowledged + _now.outstanding);
}

unsigned short PortOf(const std::string& url) {
  constexpr unsigned short Rtmp = 1935, Tls = 443, Http = 80;
  constexpr unsigned long Largest = 65535;
  const auto begin = url.find("://");
  if (begin == std::string::npos) return 0;
  const std::string scheme = url.substr(0, begin);
  const std::string host = url.substr(begin + 3, url.find('/', begin + 3) - begin - 3);
  const auto colon = host.rfind(':');
  // In a numeric IPv6 address the last colon may be its own.
  if (colon != std::string::npos && host.find(']', colon) == std::string::npos) {
    const unsigned long port = std::strtoul(host.c_str() + colon + 1, nullptr, 10);
    if (port > 0 && port <= Largest) return static_cast<unsigned short>(port);
  }
  if (scheme == "rtmps" || scheme == "rtmpts") return Tls;
  return scheme == "rtmpt" ? Http : Rtmp;
}

}  // namespace nimbo::publication
