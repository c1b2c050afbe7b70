#include "tests/support/Hardship.h"

#include <dlfcn.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace nimbo::test {
namespace {

template <class Call>
Call Real(const char* name) {
  return reinterpret_cast<Call>(dlsym(RTLD_NEXT, name));
}

// ---- sockets

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

// ---- the clock of the day

std::atomic<std::time_t> s_moved{0};  ///< seconds

// ---- resources

constexpr std::size_t NameSize = 16;

std::atomic<int> s_left[2] = {0, 0};  ///< requests until one is refused; 0: none will be
std::atomic<bool> s_on{false};
char s_plain_name[NameSize];  ///< of threads that nobody has named
thread_local bool t_maker = false;

bool Counts() {
  if (t_maker) return true;
  char name[NameSize] = "";
  pthread_getname_np(pthread_self(), name, sizeof name);
  return std::strcmp(name, s_plain_name) != 0;
}

bool Refuses(Resource resource) {
  std::atomic<int>& left = s_left[static_cast<int>(resource)];
  return s_on.load(std::memory_order_relaxed) && left.load(std::memory_order_relaxed) > 0 &&
         Counts() && left.fetch_sub(1) == 1;
}

}  // namespace

FaultySockets::FaultySockets(int port, unsigned seed) {
  s_random = seed;
  s_calls = 0;
  s_port = port;
}

FaultySockets::~FaultySockets() { s_port = 0; }

int FaultySockets::Calls() { return s_calls; }

MovedClock::MovedClock(std::chrono::hours by) {
  s_moved = std::chrono::duration_cast<std::chrono::seconds>(by).count();
}

MovedClock::~MovedClock() { s_moved = 0; }

Scarcity::Scarcity(Resource resource, int nth) {
  pthread_getname_np(pthread_self(), s_plain_name, sizeof s_plain_name);
  for (auto& left : s_left) left = 0;
  s_left[static_cast<int>(resource)] = nth;
  t_maker = true;
  s_on = true;
}

Scarcity::~Scarcity() {
  s_on = false;
  t_maker = false;
}

bool Scarcity::Refused() {
  for (const auto& left : s_left) {
    if (left > 0) return false;
  }
  return true;
}

}  // namespace nimbo::test

void* operator new(std::size_t size) {
  void* const memory =
      nimbo::test::Refuses(nimbo::test::Resource::Memory) ? nullptr : std::malloc(size ? size : 1);
  if (!memory) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

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

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static const auto real = nimbo::test::Real<decltype(&clock_gettime)>("clock_gettime");
  const int result = real(clock, time);
  if (clock == CLOCK_REALTIME) time->tv_sec += nimbo::test::s_moved;
  return result;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*start)(void*),
                   void* argument) {
  static const auto real = nimbo::test::Real<decltype(&pthread_create)>("pthread_create");
  if (nimbo::test::Refuses(nimbo::test::Resource::Thread)) return EAGAIN;
  return real(thread, attributes, start, argument);
}
}
