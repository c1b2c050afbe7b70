#pragma once

#include "host/capture/av/H264Units.h"
#include "host/capture/av/StreamPath.h"

namespace nimbo::capture::av {

/// H.264 that the wire format can describe, as it is. A stream that passed the probe and gets B
/// pictures, slices or further parameter sets later on ends there, with a line that names
/// transcode=true: transcoding the rest would not help, since publishers send the parameter sets
/// once and players would decode it with those of the beginning.
class H264Pass final : public StreamPath {
 public:
  /// `sets` are the one SPS and the one PPS of the stream, known from its beginning.
  H264Pass(int width, int height, const ParameterSets& sets);
  Status Push(AVPacket& packet) override;

 private:
  void UseSets(const Bytes& sps, const Bytes& pps);

  int _width;
  int _height;
  Bytes _sps;
  Bytes _pps;
  Bytes _header;  ///< both sets in Annex B form
};

/// AAC LC that the wire format can describe, as it is, with an ADTS header in front.
class AacPass final : public StreamPath {
 public:
  /// `framed` says that the packets have ADTS headers already.
  AacPass(int rate, int channels, bool framed);
  Status Push(AVPacket& packet) override;

 private:
  int _rate;
  int _channels;
  bool _framed;
};

}  // namespace nimbo::capture::av
