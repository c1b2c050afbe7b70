#pragma once

#include "log/Line.h"

namespace nimbo::plugin::rtmp {

/// What the two publishing classes do differently in the operations that they share.
struct Profile {
  const char* file;       ///< the class's own source: log lines of shared operations name it
  const char* sendName;   ///< what the class calls the sending of one message
  bool detailed;          ///< tells of buffer growth, sequence gaps, sequence headers and sessions
  bool clearsBuffers;     ///< zeroes the whole send buffer before each message is built in it
  bool bracketsEachCall;  ///< switches the floating-point unit around each librtmp step itself
  bool refusesShortFrames;  ///< a video payload of fewer than five bytes is a failure
  bool usesLargeChunks;     ///< announces a larger chunk size once the stream is set up

  /// The place of a line of a shared operation: the class's file, the operation's own name and its
  /// line in the unit that implements it.
  constexpr log::Site At(const char* function, int line = __builtin_LINE()) const {
    return {file, line, function};
  }
};

}  // namespace nimbo::plugin::rtmp
