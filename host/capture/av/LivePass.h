#pragma once

#include <map>
#include <memory>
#include <optional>
#include <vector>

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

/// Pictures in Annex B form, of any kind, with any slices and parameter sets. The configuration
/// record is made of those sets.
class SetsLivePass : public LivePass {
 public:
  Status Push(AVPacket& packet) override;

 protected:
  using Sets = std::map<std::uint32_t, Bytes>;  ///< by number

  /// Where the configuration record holds a parameter set.
  struct Place {
    std::size_t kind;
    std::uint32_t number;
  };
  /// A kind of parameter sets, and how many of them a record can hold.
  struct SetKind {
    unsigned char type;  ///< of their NAL units
    std::size_t most;
  };

  /// `kinds` are in the order of the record.
  explicit SetsLivePass(std::vector<SetKind> kinds) : _kinds(std::move(kinds)) {
    _sets.resize(_kinds.size());
  }
  /// Takes the sets that the beginning of the stream tells.
  void Begin(const AVCodecParameters& parameters, const std::vector<const AVPacket*>& beginning);
  /// None for a unit that is no parameter set, or an unusable one.
  virtual std::optional<Place> PlaceOf(ByteSpan unit) const = 0;
  /// The kind of a NAL unit of that type; none where it is no parameter set.
  std::optional<std::size_t> KindOf(unsigned char type) const;

  std::vector<Sets> _sets;  ///< by kind

 private:
  /// Keeps the parameter sets, each in the place of the one with its number. True when one is new.
  bool Take(ByteSpan annexB);

  std::vector<SetKind> _kinds;
};

class H264LivePass final : public SetsLivePass {
 public:
  H264LivePass(const AVCodecParameters& parameters, const std::vector<const AVPacket*>& beginning);

 private:
  std::optional<Place> PlaceOf(ByteSpan unit) const override;
  Held<stream::Media> Describe() const override;
};

class HevcLivePass final : public SetsLivePass {
 public:
  HevcLivePass(const AVCodecParameters& parameters, const std::vector<const AVPacket*>& beginning);

 private:
  std::optional<Place> PlaceOf(ByteSpan unit) const override;
  Held<stream::Media> Describe() const override;
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

/// Any other stream, whose packets and configuration are taken as they are.
class PlainLivePass final : public LivePass {
 public:
  explicit PlainLivePass(const AVCodecParameters& parameters);
  Status Push(AVPacket& packet) override;

 private:
  Held<stream::Media> Describe() const override;

  ParametersPtr _parameters;
};

/// Why not even these can pass a stream on; empty when they can. `enhanced` says whether codecs
/// that take Enhanced RTMP count.
std::string LiveObstacle(const AVCodecParameters& parameters,
                         const std::vector<const AVPacket*>& beginning, bool enhanced);
/// The way of a stream without such an obstacle. `beginning` are its first packets.
std::unique_ptr<StreamPath> NewLivePass(const AVCodecParameters& parameters,
                                        const std::vector<const AVPacket*>& beginning);

}  // namespace nimbo::capture::av
