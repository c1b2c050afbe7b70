#pragma once

#include <optional>
#include <vector>

#include "nimbo/stream/media.h"
#include "plugin/bytes/LiveTag.h"

namespace nimbo::plugin::live {

/// What the media of a packet tells of the packet and its stream, as it goes on the wire.
///
/// Besides the parameters that every media has, this plug-in reads these, all of which may be
/// missing:
/// - "config" (`unsigned char*`), "iconfig" (its length): the decoder configuration record of the
///   stream, as ISO base media files hold it: an AVCDecoderConfigurationRecord, an
///   AudioSpecificConfig, an HEVCDecoderConfigurationRecord and so on; of Opus the identification
///   header (RFC 7845, 5.1), of FLAC its signature and the stream's information. Without it H.264
///   is described by "sps" and "pps", AAC by "profile", "channel" and "rate".
/// - "cto": microseconds from a packet's decode time to its presentation; 0 as usual. Where
/// pictures
///   are reordered a source has a media for each such distance, alike in all else.
struct StreamFormat {
  LiveCodec codec = LiveCodec::Avc;
  std::vector<unsigned char> config;  ///< empty: the codec needs none
  int adtsLength = 0;                 ///< bytes in front of each frame
  int composition = 0;                ///< microseconds
  int width = 0;                      ///< 0, here and below: unknown
  int height = 0;
  int rate = 0;
  int channels = 0;
};

/// The codec of that name; none when nothing here can carry it.
std::optional<LiveCodec> CodecOf(const char* name);

/// What `media`, of the codec `codec`, tells. None when it does not describe the stream.
std::optional<StreamFormat> ReadFormat(stream::IMedia& media, LiveCodec codec);

}  // namespace nimbo::plugin::live
