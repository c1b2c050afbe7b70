#pragma once

#include <memory>
#include <string>

#include "host/monitor/Monitor.h"

namespace nimbo::cli {

/// Opens the monitor, with the module that it is in. Null, with the reason in `error`, when it is
/// not there or cannot serve. [control]
std::unique_ptr<monitor::Monitor> LoadMonitor(const monitor::Options& options, std::string& error);

}  // namespace nimbo::cli
