#include "host/monitor/Server.h"
#include "nimbo/base/api.h"

/// [control] See Monitor.h.
extern "C" NIMBO_API nimbo::monitor::Monitor* OpenMonitor(const nimbo::monitor::Options& options,
                                                          std::string& error) {
  return nimbo::monitor::Server::Open(options, error).release();
}
