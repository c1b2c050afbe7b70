#include "host/monitor/Server.h"
#include "nimbo/base/api.h"

/// [control] See Monitor.h.
extern "C" NIMBO_API nimbo::monitor::OpenFunction OpenMonitor;

void OpenMonitor(const nimbo::monitor::Options& options,
                 nimbo::Result<std::unique_ptr<nimbo::monitor::Monitor>>& opened) {
  opened = nimbo::monitor::Server::Open(options);
}
