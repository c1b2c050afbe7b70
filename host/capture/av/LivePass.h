#pragma once

#include <map>

#include "host/capture/Adts.h"
#include "host/capture/av/H264Units.h"
#include "host/capture/av/StreamPath.h"
#include "host/stream/Media.h"

namespace nimbo::capture::av {

/// Streams as they are, for a client that carries everything: besides what every media has, theirs
/// tell the decoder configuration record ("config", "iconfig") and, where pictures are reordered,
/// how much later than it is decoded a packet is presented ("cto", microseconds).
class LivePass : public StreamPath {
 protected:
  /// Fills a fresh media with all but the presentation time.
  virtual Held<stream::Media> Describe() const = 0;
  /// The description changed: the packets from now on have another media.
  void Renew() { _media.clear(); }
  /// Appends the packet; it is presented so many microseconds behind its decode time.
  void Append(ByteSpan bytes, const AVPacket& packet, int offset);

 private:
  std::map<int, Held<stream::Media>> _media;  ///< by that time
};

/// H.264 with any pictures, slices and parameter sets.
class H264LivePass final : public LivePass {
 public:
  /// `beginning` are the first packets.
  H264LivePass(const AVCodecParameters& parameters, const std::vector<const AVPacket*>& beginning);
  Status Push(AVPacket& packet) override;

 private:
  /// Keeps the parameter sets, each in the place of the one with its number. True when one is new.
  bool Take(ByteSpan annexB);
  Held<stream::Media> Describe() const override;

  using Sets = std::map<std::uint32_t, Bytes>;  ///< by number
  Sets _sps;
  Sets _pps;
};

/// AAC of any kind.
class AacLivePass final : public LivePass {
 public:
  AacLivePass(const AVCodecParameters& parameters, const std::vector<const AVPacket*>& beginning);
  Status Push(AVPacket& packet) override;

 private:
  void Read(const AdtsHeader& header);
  Held<stream::Media> Describe() const override;

  Bytes _config;     ///< an AudioSpecificConfig
  int _adts = 0;     ///< bytes of header in front of each frame
  int _profile = 0;  ///< as an ADTS header tells it
  int _rate = 0;     ///< Hz
  int _channels = 0;
  bool _framed = false;  ///< the packets have ADTS headers
};

/// Why not even these can pass a stream on; empty when they can.
std::string LiveVideoObstacle(const AVCodecParameters& parameters,
                              const std::vector<const AVPacket*>& beginning,
                              const ParameterSets& sets);
std::string LiveAudioObstacle(const AVCodecParameters& parameters,
                              const std::vector<const AVPacket*>& beginning);

}  // namespace nimbo::capture::av
