#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

#include "host/base/PluginLoader.h"
#include "host/cli/commands/Subcommand.h"

namespace nimbo::cli {

namespace {

namespace fs = std::filesystem;

/// The plug-ins that have a name.
constexpr struct {
  const char* name;
  const char* library;
} Named[] = {{"classic", "libpluginrtmp.so"}, {"live", "libpluginlive.so"}};

/// A plug-in beside the program (a build tree), else where an installation puts it.
Result<std::string> FindPlugin(const std::string& library) {
  std::error_code error;
  const auto program = fs::read_symlink("/proc/self/exe", error).parent_path();
  for (const char* folder : {"", NIMBO_PLUGIN_FOLDER}) {
    const auto path = program / folder / library;
    if (fs::exists(path, error)) return path.lexically_normal().string();
  }
  return Status::Failed(library + " is neither in " + program.string() + " nor in " +
                        (program / NIMBO_PLUGIN_FOLDER).lexically_normal().string() +
                        "; name it with --plugin");
}

}  // namespace

Status LoadPlugins(const std::vector<std::string>& paths) {
  if (paths.empty()) {
    // Commands that publish find the second one where it is installed.
    const bool both = static_cast<bool>(FindPlugin(Named[1].library));
    return LoadPlugins(both ? std::vector<std::string>{Named[0].name, Named[1].name}
                            : std::vector<std::string>{Named[0].name});
  }
  for (std::string path : paths) {
    const auto* named = std::find_if(std::begin(Named), std::end(Named),
                                     [&](const auto& one) { return path == one.name; });
    if (named != std::end(Named)) {
      auto found = FindPlugin(named->library);
      if (!found) return found.Failure();
      path = *found;
    }
    if (!base::PluginLoader::Global().Load(path)) return Status::Failed();  // which was told
  }
  return {};
}

}  // namespace nimbo::cli
