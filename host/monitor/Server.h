#pragma once

#include <microhttpd.h>

#include <memory>
#include <string>
#include <vector>

#include "host/monitor/History.h"
#include "host/monitor/Monitor.h"
#include "sync/Mutex.h"

namespace nimbo::monitor {

/// Serves the page, /status.json and /metrics to this machine alone, on a thread of its own. Only a
/// browser that calls it by a name of this machine is answered, so that no other site's page can
/// have its own name lead here.
class Server : public Monitor {
 public:
  /// Fails when the port cannot be listened at.
  static Result<std::unique_ptr<Monitor>> Open(const Options& options);

  std::string Address() const override;
  void Add(std::vector<ClientFigures> clients) override EXCLUDES(_mutex);
  void Tell(std::size_t client, const std::string& message, const std::string& told) override
      EXCLUDES(_mutex);

 private:
  struct StopDaemon {
    void operator()(MHD_Daemon* daemon) const { MHD_stop_daemon(daemon); }
  };

  Server(const Options& options, unsigned short port);
  /// [serving]
  MHD_Result Answer(MHD_Connection* connection, const std::string& path, const std::string& method)
      EXCLUDES(_mutex);

  const std::string _picture;
  const unsigned short _port;
  sync::Mutex _mutex;
  History _history GUARDED_BY(_mutex);
  std::unique_ptr<MHD_Daemon, StopDaemon> _daemon;  ///< the last member: its thread uses the others
};

}  // namespace nimbo::monitor
