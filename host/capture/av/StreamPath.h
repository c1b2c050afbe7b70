#pragma once

#include <string>

#include "host/capture/av/H264Units.h"
#include "host/capture/av/Libav.h"
#include "host/capture/av/StreamOutput.h"

namespace nimbo::capture::av {

/// The way of one stream from the demuxer to packets of the framework. Times are nanoseconds on the
/// demuxer's time line. After a false result `error` says what is wrong and the stream has ended.
class StreamPath {
 public:
  virtual ~StreamPath() = default;

  /// Takes a packet of the demuxer.
  virtual bool Push(AVPacket& packet, std::string& error) = 0;
  /// What follows does not continue what came before.
  virtual bool Break(std::string&) { return true; }
  /// Nothing follows.
  virtual bool Finish(std::string&) { return true; }

  StreamOutput& Output() noexcept { return _output; }

 protected:
  StreamOutput _output;
};

/// H.264 that the wire format can describe, as it is. A stream that passed the probe and gets B
/// pictures, slices or further parameter sets later on ends there, with a line that names
/// transcode=true: transcoding the rest would not help, since publishers send the parameter sets
/// once and players would decode it with those of the beginning.
class H264Pass final : public StreamPath {
 public:
  /// `sets` are the one SPS and the one PPS of the stream, known from its beginning.
  H264Pass(int width, int height, const ParameterSets& sets);
  bool Push(AVPacket& packet, std::string& error) override;

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
  bool Push(AVPacket& packet, std::string& error) override;

 private:
  int _rate;
  int _channels;
  bool _framed;
};

}  // namespace nimbo::capture::av
