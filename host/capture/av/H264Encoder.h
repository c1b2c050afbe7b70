#pragma once

#include <atomic>
#include <cstdint>

#include "common/Status.h"
#include "host/capture/av/H264Units.h"
#include "host/capture/av/Libav.h"
#include "host/capture/av/StreamOutput.h"

namespace nimbo::capture::av {

/// Encodes pictures so that the wire format can describe them: one SPS, one PPS, one slice a
/// picture, no reordering; Annex B with the parameter sets in front of every key frame. Each
/// picture comes out as soon as it is put in.
class H264Encoder {
 public:
  struct Settings {
    int width = 0;   ///< pixels, even
    int height = 0;  ///< pixels, even
    AVRational frameRate = {0, 1};
    std::int64_t bitRate = 0;  ///< bits per second, kept constant over about a second
    int gop = 0;               ///< pictures from one key frame to the next
    const char* preset = "";   ///< libx264's name for its effort
    const char* profile = "";
  };

  /// Fails when there is no such encoder.
  Status Open(const Settings& settings);
  void Close();
  /// A new description of the stream.
  Held<stream::IMedia> NewMedia() const;

  /// A picture buffer in the encoder's format to draw into.
  AVFrame* NewFrame() const;
  /// Encodes a picture taken at `time`, which must be later than that of the picture before, and
  /// appends the packet to `output`. `key` asks for a key frame.
  Status Encode(AVFrame& frame, std::int64_t time, bool key, StreamOutput& output);
  /// [any] Bits a second that the next picture is encoded with.
  std::int64_t BitRate() const noexcept { return _bit_rate; }
  void SetBitRate(std::int64_t bitRate) noexcept { _bit_rate = bitRate; }

 private:
  /// What is wanted is kept over about a second, and at most so.
  void FollowBitRate();

  std::atomic<std::int64_t> _bit_rate{0};
  CodecPtr _codec;
  PacketPtr _packet;
  ParameterSets _sets;
  Bytes _header;  ///< both parameter sets in Annex B form
};

}  // namespace nimbo::capture::av
