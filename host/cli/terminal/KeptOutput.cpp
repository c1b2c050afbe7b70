#include "host/cli/terminal/KeptOutput.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdio>

namespace nimbo::cli {

KeptOutput::KeptOutput() {
  std::fflush(stdout);
  _out = FileDescriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

KeptOutput::~KeptOutput() {
  std::fflush(stdout);
  dup2(_out.Get(), STDOUT_FILENO);
}

bool KeptOutput::Write(const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const auto size = write(_out.Get(), text.data() + done, text.size() - done);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) return false;
    done += static_cast<std::size_t>(size);
  }
  return true;
}

}  // namespace nimbo::cli
