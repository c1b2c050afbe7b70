#include "tests/support/Transport.h"

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace nimbo::test {

Transport::~Transport() { close(_descriptor); }

ssize_t Transport::Read(unsigned char* bytes, std::size_t size) {
  return recv(_descriptor, bytes, size, 0);
}

ssize_t Transport::WriteSome(const unsigned char* bytes, std::size_t size) {
  return send(_descriptor, bytes, size, MSG_NOSIGNAL);
}

bool Transport::Write(const Bytes& bytes) {
  const std::lock_guard<std::mutex> lock(_writing);
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t wrote = WriteSome(bytes.data() + done, bytes.size() - done);
    if (wrote <= 0) return false;
    done += static_cast<std::size_t>(wrote);
  }
  return true;
}

void Transport::Close() {
  {  // A write that hangs is ended by the shutdown, not waited for.
    const std::unique_lock<std::mutex> lock(_writing, std::try_to_lock);
    if (lock) SayGoodbye();
  }
  shutdown(_descriptor, SHUT_RDWR);
}

void Transport::Reset() {
  // Connecting to an unspecified address breaks a TCP connection with a reset and, unlike a close
  // with a zero linger time, leaves the descriptor to those who still use it. As a bare system
  // call, since the thread sanitizer takes a connect() for the birth of the descriptor.
  sockaddr unspecified{};
  unspecified.sa_family = AF_UNSPEC;
  syscall(SYS_connect, _descriptor, &unspecified, sizeof unspecified);
}

}  // namespace nimbo::test
