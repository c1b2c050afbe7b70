#include "tests/support/FaultySockets.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>

namespace nimbo::test {
namespace {

std::atomic<int> s_port{0};
std::atomic<std::uint32_t> s_random{0};
std::atomic<int> s_calls{0};

/// The same numbers in every run, for whichever threads ask.
std::uint32_t Random() {
  constexpr std::uint32_t Step = 0x9E3779B9;
  std::uint32_t value = s_random.fetch_add(Step) + Step;
  value = (value ^ (value >> 16)) * 0x85EBCA6B;
  return value ^ (value >> 13);
}

bool IsMet(int socket) {
  const int port = s_port.load();
  sockaddr_in peer = {};
  socklen_t size = sizeof peer;
  if (port == 0 || getpeername(socket, reinterpret_cast<sockaddr*>(&peer), &size) != 0)
    return false;
  return ntohs(peer.sin_port) == port;
}

/// Whether this call on a socket that is met is interrupted.
bool Interrupted() {
  constexpr std::uint32_t Share = 4;
  ++s_calls;
  if (Random() % Share != 0) return false;
  errno = EINTR;
  return true;
}

std::size_t Some(std::size_t size) { return size < 2 ? size : 1 + Random() % size; }

template <class Call>
Call Real(const char* name) {
  return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

}  // namespace

FaultySockets::FaultySockets(int port, unsigned seed) {
  s_random = seed;
  s_calls = 0;
  s_port = port;
}

FaultySockets::~FaultySockets() { s_port = 0; }

int FaultySockets::Calls() { return s_calls; }

}  // namespace nimbo::test

// In front of the system's, for the program and all its libraries.
extern "C" {

ssize_t recv(int socket, void* data, std::size_t size, int flags) {
  static const auto real = nimbo::test::Real<decltype(&recv)>("recv");
  if (nimbo::test::IsMet(socket)) {
    if (nimbo::test::Interrupted()) return -1;
    size = std::min<std::size_t>(size, 1);
  }
  return real(socket, data, size, flags);
}

ssize_t send(int socket, const void* data, std::size_t size, int flags) {
  static const auto real = nimbo::test::Real<decltype(&send)>("send");
  if (nimbo::test::IsMet(socket)) {
    if (nimbo::test::Interrupted()) return -1;
    size = nimbo::test::Some(size);
  }
  return real(socket, data, size, flags);
}

ssize_t sendmsg(int socket, const msghdr* message, int flags) {
  static const auto real = nimbo::test::Real<decltype(&sendmsg)>("sendmsg");
  if (!nimbo::test::IsMet(socket)) return real(socket, message, flags);
  if (nimbo::test::Interrupted()) return -1;
  msghdr first = *message;
  while (first.msg_iovlen > 1 && first.msg_iov->iov_len == 0) {
    ++first.msg_iov;
    --first.msg_iovlen;
  }
  iovec part = *first.msg_iov;
  part.iov_len = nimbo::test::Some(part.iov_len);
  first.msg_iov = &part;
  first.msg_iovlen = 1;
  return real(socket, &first, flags);
}
}
