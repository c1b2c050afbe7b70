#pragma once

#include <chrono>

namespace nimbo::plugin {

/// How long a session lets things take. Tests scale them down.
struct SessionLimits {
  using Duration = std::chrono::milliseconds;
  /// A connection attempt as a whole, from the first packet to the accepted publish; the name
  /// look-up is not counted.
  Duration attempt{6000};
  /// One answer of the server during it.
  Duration answer{5000};
  /// A server that takes nothing any more.
  Duration stalledSend{5000};
  /// A send that is under way when it is cancelled.
  Duration cancelledSend{1000};
  /// The goodbye, and the wait until the server has taken all that was sent.
  Duration close{2000};
};

}  // namespace nimbo::plugin
