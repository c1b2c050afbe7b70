#include <filesystem>
#include <system_error>

#include "host/base/PluginLoader.h"
#include "host/cli/commands/Subcommand.h"

namespace nimbo::cli {

namespace {

namespace fs = std::filesystem;

constexpr char DefaultPlugin[] = "libpluginrtmp.so";

/// The plug-in beside the program (a build tree), else where an installation puts it.
Result<std::string> FindDefaultPlugin() {
  std::error_code error;
  const auto program = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const char* folder : {"", NIMBO_PLUGIN_FOLDER}) {
    const auto path = program / folder / DefaultPlugin;
    if (fs::exists(path, error)) return path.lexically_normal().string();
  }
  return Status::Failed(std::string(DefaultPlugin) + " is neither in " + program.string() +
                        " nor in " + (program / NIMBO_PLUGIN_FOLDER).lexically_normal().string() +
                        "; name it with --plugin");
}

}  // namespace

Status LoadPlugins(const std::vector<std::string>& paths) {
  if (paths.empty()) {
    auto path = FindDefaultPlugin();
    return path ? LoadPlugins({*path}) : path.Failure();
  }
  for (const auto& path : paths) {
    if (!base::PluginLoader::Global().Load(path)) return Status::Failed();  // which was told
  }
  return {};
}

}  // namespace nimbo::cli
