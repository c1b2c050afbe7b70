#pragma once

#include "log/Line.h"

namespace nimbo::plugin::rtmp {

/// Where the lines of the operations that both publishing classes share come from: the class's own
/// source, the place there at which it registers the operation, and the operation's name in it.
struct Places {
  log::Site connectServer;
  log::Site setRtmpPacketSize;
  log::Site sendRtmpPacket;
  log::Site sendH264;
  log::Site sendAac;
  log::Site sendBufferCreate;
  log::Site sendBufferRealloc;
  log::Site sendBufferCheck;
};

/// What the two publishing classes do differently in the operations that they share.
struct Profile {
  Places places;
  bool detailed;          ///< tells of buffer growth, sequence gaps, sequence headers and sessions
  bool clearsBuffers;     ///< zeroes the whole send buffer before each message is built in it
  bool bracketsEachCall;  ///< switches the floating-point unit around each librtmp step itself
  bool refusesShortFrames;  ///< a video payload of fewer than five bytes is a failure
  bool usesLargeChunks;     ///< announces a larger chunk size once the stream is set up
};

}  // namespace nimbo::plugin::rtmp
