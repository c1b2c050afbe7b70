#pragma once

#include <CLI/CLI.hpp>

#include "host/publication/Publication.h"

namespace nimbo::cli {

/// Adds what `publish` takes about its input, the input of its sound, and how they are encoded.
/// `what` must stay alive until the command line has been parsed.
void AddSourceOptions(CLI::App& app, publication::PublishOptions& what);

}  // namespace nimbo::cli
