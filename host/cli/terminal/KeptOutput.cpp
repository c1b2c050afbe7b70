#include "host/cli/terminal/KeptOutput.h"

#include <fcntl.h>

#include <cstdio>

#include "common/WriteAll.h"

namespace nimbo::cli {

KeptOutput::KeptOutput() {
  std::fflush(stdout);
  _out.Reset(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

KeptOutput::~KeptOutput() {
  std::fflush(stdout);
  dup2(_out.Get(), STDOUT_FILENO);
}

bool KeptOutput::Write(const std::string& text) { return WriteAll(_out.Get(), text); }

}  // namespace nimbo::cli
