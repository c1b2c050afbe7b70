#pragma once

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>

namespace nimbo {

/// Writes the whole of `text`, in one write where the descriptor takes it, and waits where it has
/// no room. False, with the reason in `errno`, when the rest cannot be written.
inline bool WriteAll(int descriptor, std::string_view text) noexcept {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd room = {descriptor, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

}  // namespace nimbo
