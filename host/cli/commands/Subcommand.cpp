#include "host/cli/commands/Subcommand.h"

#include "host/base/Console.h"

namespace nimbo::cli {

int ExitCodeOf(const Status& status) {
  if (status) return Succeeded;
  if (!status.Why().empty()) Complain("nimbo-host: " + status.Why());
  return Failed;
}

}  // namespace nimbo::cli
