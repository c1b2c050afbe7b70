#include <filesystem>
#include <system_error>

#include "host/base/PluginLoader.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/terminal/Console.h"

namespace nimbo::cli {

namespace {

namespace fs = std::filesystem;

constexpr char DefaultPlugin[] = "libpluginrtmp.so";

/// The plug-in beside the program (a build tree), else where an installation puts it.
std::string FindDefaultPlugin() {
  std::error_code error;
  const auto program = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const char* folder : {"", NIMBO_PLUGIN_FOLDER}) {
    const auto path = program / folder / DefaultPlugin;
    if (fs::exists(path, error)) return path.lexically_normal().string();
  }
  Complain(std::string(DefaultPlugin) + " is neither in " + program.string() + " nor in " +
           (program / NIMBO_PLUGIN_FOLDER).lexically_normal().string() + "; name it with --plugin");
  return {};
}

}  // namespace

bool LoadPlugins(const std::vector<std::string>& paths) {
  auto& loader = base::PluginLoader::Globle();
  if (paths.empty()) {
    const auto path = FindDefaultPlugin();
    return !path.empty() && loader.Load(path);
  }
  for (const auto& path : paths)
    if (!loader.Load(path)) return false;
  return true;
}

}  // namespace nimbo::cli
