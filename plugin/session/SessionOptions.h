#pragma once

#include <string>
#include <vector>

namespace nimbo::plugin {

/// What a session says beyond what librtmp can say. Without any of it a connection's bytes are
/// those of librtmp.
struct SessionOptions {
  /// While publishing, pings are answered and what was received is acknowledged (RTMP 1.0, 5.4.3
  /// and 7.1.7), and a request to reconnect is told to the owner.
  bool answers = false;
  /// FourCCs of the codecs that the connect command offers (Enhanced RTMP v1 and v2, connect);
  /// none: it offers none.
  std::vector<std::string> codecs;
};

/// What a server asks for while it takes the stream.
struct ReconnectRequest {
  bool made = false;
  std::string url;  ///< of the application, in place of the one that was connected to; may be empty
};

}  // namespace nimbo::plugin
