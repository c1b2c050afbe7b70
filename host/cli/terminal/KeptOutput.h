#pragma once

#include <string>

#include "common/FileDescriptor.h"
#include "host/base/Outlet.h"

namespace nimbo::cli {

/// Keeps standard output for what a program was asked for: while it lives, everything else that is
/// printed there goes to standard error. [control]
class KeptOutput {
 public:
  KeptOutput();
  KeptOutput(const KeptOutput&) = delete;
  KeptOutput& operator=(const KeptOutput&) = delete;
  ~KeptOutput();

  /// Writes a text to the standard output that is kept. False when its reader has gone.
  bool Write(const std::string& text);

 private:
  FileDescriptor _out;
  base::Outlet _outlet;
};

}  // namespace nimbo::cli
