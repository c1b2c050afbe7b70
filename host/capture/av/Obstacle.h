#pragma once

#include <string>
#include <vector>

#include "host/capture/av/H264Units.h"
#include "host/capture/av/Libav.h"

namespace nimbo::capture::av {

/// Why a stream has to be transcoded because the wire format cannot describe it as it is; empty
/// when it can be passed through. `beginning` are its first packets, times in nanoseconds.

/// `sets` are all parameter sets that stand in `parameters` or the packets.
std::string VideoObstacle(const AVCodecParameters& parameters,
                          const std::vector<const AVPacket*>& beginning, const ParameterSets& sets);
std::string AudioObstacle(const AVCodecParameters& parameters,
                          const std::vector<const AVPacket*>& beginning);

/// The parameter sets of a stream.
ParameterSets CollectSets(const AVCodecParameters& parameters,
                          const std::vector<const AVPacket*>& beginning);

}  // namespace nimbo::capture::av
