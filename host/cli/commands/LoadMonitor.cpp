#include "host/cli/commands/LoadMonitor.h"

#include "host/base/PluginLoader.h"

namespace nimbo::cli {

Result<std::unique_ptr<monitor::Monitor>> LoadMonitor(const monitor::Options& options) {
  auto open = base::PluginLoader::ModuleFunction(monitor::ModuleName, monitor::ModuleFunction);
  if (!open) return open.Failure();
  Result<std::unique_ptr<monitor::Monitor>> opened = Status::Failed();
  reinterpret_cast<monitor::OpenFunction*> (*open)(options, opened);
  return opened;
}

}  // namespace nimbo::cli
