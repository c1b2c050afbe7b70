#pragma once

#include "common/Status.h"
#include "host/capture/Adts.h"
#include "host/capture/av/Libav.h"
#include "host/capture/av/StreamOutput.h"

namespace nimbo::capture::av {

/// Encodes sound as AAC LC with an ADTS header in front of each frame.
class AacEncoder {
 public:
  /// `rate` must be one that has an index, `channels` 1 or 2; `bitRate` is that of all channels in
  /// bits per second. Fails when libav refuses them.
  Status Open(int rate, int channels, std::int64_t bitRate);
  /// A new description of the stream.
  Held<stream::IMedia> NewMedia() const;

  /// Room for AacFrameSamples samples: planes of float.
  AVFrame* NewFrame() const;
  /// Encodes the frame, whose first sample was taken at `time`, and appends what comes out to
  /// `output`; null for the rest at the end.
  Status Encode(AVFrame* frame, std::int64_t time, StreamOutput& output);

  int Rate() const noexcept { return _codec->sample_rate; }
  int Channels() const noexcept { return _codec->ch_layout.nb_channels; }

 private:
  CodecPtr _codec;
  PacketPtr _packet;
};

/// Appends a raw AAC LC frame behind a header of its own. False when it is too long for one.
bool AppendAac(StreamOutput& output, ByteSpan frame, int rate, int channels, std::int64_t time);

}  // namespace nimbo::capture::av
