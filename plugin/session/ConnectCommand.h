#pragma once

#include <librtmp/rtmp.h>

#include "common/Status.h"
#include "plugin/session/SessionOptions.h"

namespace nimbo::plugin {

/// Sends the command "connect" (RTMP 1.0, 7.2.1.1) for the address that `session` was set up with,
/// and has librtmp remember it, so that it knows the answer. The bytes are those of librtmp's own,
/// with the offer of `options`, if any, behind them in the command object.
Status SendConnectCommand(RTMP& session, const SessionOptions& options);

}  // namespace nimbo::plugin
