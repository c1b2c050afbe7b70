#include "host/cli/commands/LoadMonitor.h"

#include "host/base/PluginLoader.h"

namespace nimbo::cli {

std::unique_ptr<monitor::Monitor> LoadMonitor(const monitor::Options& options, std::string& error) {
  void* open =
      base::PluginLoader::ModuleFunction(monitor::ModuleName, monitor::ModuleFunction, error);
  if (!open) return nullptr;
  return std::unique_ptr<monitor::Monitor>(
      reinterpret_cast<monitor::OpenFunction*>(open)(options, error));
}

}  // namespace nimbo::cli
