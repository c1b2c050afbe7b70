#pragma once

#include <vector>

#include "host/capture/CaptureSource.h"
#include "host/capture/av/H264Units.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::test {

using Packets = std::vector<Held<stream::Packet>>;

/// Reads until the source ends, at most `count` packets.
Packets ReadPackets(capture::CaptureSource& source, std::size_t count = 1000000);
/// Those of one codec.
std::vector<stream::Packet*> OfCodec(const Packets& packets, const char* codec);

/// The bytes of a media parameter ("sps" with its length "isps").
Bytes MediaBytes(stream::IMedia& media, const char* bytes, const char* length);
int MediaInt(stream::IMedia& media, const char* name);

/// How many pictures, or frames of sound, libav's decoder for `codec` makes of the packets without
/// an error; -1 when there is one. HEVC is given to it as players have it: configuration record and
/// lengths, no parameter sets inside. `width` and `height` (or rate and channels) are those of the
/// last.
struct Decoded {
  int frames = 0;
  int width = 0;
  int height = 0;
  int rate = 0;
  int channels = 0;
};
Decoded Decode(const char* codec, const std::vector<stream::Packet*>& packets);

/// Expects every packet to be one picture of one slice with the parameter sets of its media in
/// front of each key frame, sequence numbers in a row and time stamps that never decrease.
void ExpectDescribableVideo(const std::vector<stream::Packet*>& packets);

}  // namespace nimbo::test
