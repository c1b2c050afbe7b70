#include "host/cli/terminal/KeptOutput.h"

#include <fcntl.h>

#include <cstdio>

namespace nimbo::cli {

KeptOutput::KeptOutput()
    : _out(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
      _outlet(_out.Get(), base::Outlet::Gaps::Silent) {
  std::fflush(stdout);
  dup2(STDERR_FILENO, STDOUT_FILENO);
}

KeptOutput::~KeptOutput() {
  _outlet.Flush(base::LastPatience);
  std::fflush(stdout);
  dup2(_out.Get(), STDOUT_FILENO);
}

bool KeptOutput::Write(const std::string& text) { return _outlet.Write(text); }

}  // namespace nimbo::cli
