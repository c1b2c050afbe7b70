#pragma once

#include <functional>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/cli/terminal/ControlLoop.h"
#include "host/publication/Publication.h"

namespace nimbo::cli {

/// What `publish` was asked for.
struct PublishSettings {
  publication::PublishOptions what;
  double duration = 0;  ///< seconds; 0 without limit
  /// The addresses as they are asked for now, of which there are as many as before. Null where
  /// they stand in the command line alone.
  std::function<Result<std::vector<std::string>>()> readAddresses;
  bool wait = false;  ///< for a server that is away at the start
  bool json = false;
  bool quiet = false;   ///< no status line
  std::string monitor;  ///< the port of its page; empty: there is none
  std::string picture;  ///< address of the playlist that it plays; may be empty
};

/// Publishes through the client path, an element for each address, until the end of the input or
/// the duration, or a signal. Fails when something was not published. [control]
Status RunPublish(const PublishSettings& settings, ControlLoop& loop);

}  // namespace nimbo::cli
