#pragma once

#include <memory>

#include "host/monitor/Monitor.h"

namespace nimbo::cli {

/// Opens the monitor, with the module that it is in. Fails when that is not there or cannot serve.
/// [control]
Result<std::unique_ptr<monitor::Monitor>> LoadMonitor(const monitor::Options& options);

}  // namespace nimbo::cli
