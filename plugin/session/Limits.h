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
  /// A server that acknowledges nothing although something waits.
  Duration stalledSend{5000};
  /// The same for a send that was cancelled.
  Duration cancelledSend{1000};
  /// The same for the goodbye, and for a server that has taken it and does not close: with the time
  /// that it takes to notice, two seconds.
  Duration close{1700};
  /// A cancelled send, and the goodbye, of which the server keeps taking bytes.
  Duration drain{5000};

  /// A write that nobody watches.
  Duration Backstop() const { return stalledSend * 12; }
};

}  // namespace nimbo::plugin
