#include <memory>

#include "host/base/ClassRegistry.h"
#include "host/cli/commands/Inventory.h"
#include "host/cli/commands/Subcommand.h"
#include "nimbo/base/ostream.h"

namespace nimbo::cli {

namespace {

struct InspectOptions {
  std::string name;
  bool json = false;
};

int Run(const InspectOptions& options) {
  if (options.name.empty()) {
    base::cout << (options.json ? InventoryJson() + "\n" : InventoryText());
    return Succeeded;
  }
  auto* cl = base::IClass::Find(options.name.c_str(), false);
  if (!cl) {
    return ExitCodeOf(Status::Failed("there is no class \"" + options.name + "\"" +
                                     base::IClass::Globle().Suggest(options.name)));
  }
  const ClassView view(*cl, options.name);
  base::cout << (options.json ? view.Json() + "\n" : view.Text());
  return Succeeded;
}

}  // namespace

void AddInspect(CLI::App& program, const Choose& chosen) {
  const auto options = std::make_shared<InspectOptions>();
  auto* inspect = program.add_subcommand(
      "inspect", "Show plug-ins, classes, capture sources and commands, or one class");
  inspect->add_option("CLASS", options->name,
                      "A class, by its name or by keywords of it joined by \"-\"; without it\n"
                      "everything is listed");
  inspect->add_flag("--json", options->json, "One JSON document instead of columns");
  inspect->footer(
      "Defaults are read from a fresh object, which is destroyed again.\n"
      "Exit codes: 0 shown, 1 there is no such class, 2 wrong usage.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host inspect\n"
      "  nimbo-host inspect rtmp-client\n"
      "  nimbo-host inspect --json shm-source");
  inspect->final_callback(
      [options, chosen] { chosen([options](ControlLoop&) { return Run(*options); }); });
}

}  // namespace nimbo::cli
