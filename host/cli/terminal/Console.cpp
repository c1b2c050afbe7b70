#include "host/cli/terminal/Console.h"

#include <unistd.h>

#include <cstdio>

#include "nimbo/base/ostream.h"

namespace nimbo::cli {

bool Complain(const std::string& text) {
  // What was printed before explains it and comes first.
  std::fflush(stdout);
  const bool coloured = isatty(STDERR_FILENO) != 0;
  const auto line = (coloured ? "\033[31m" : "") + text + (coloured ? "\n\033[0m" : "\n");
  std::fwrite(line.data(), 1, line.size(), stderr);
  return false;
}

void Say(const std::string& text) { base::cout << text + "\n"; }

}  // namespace nimbo::cli
