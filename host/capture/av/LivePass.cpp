#include "host/capture/av/LivePass.h"

#include <algorithm>

#include "host/capture/Monotonic.h"
#include "host/capture/Sps.h"

namespace nimbo::capture::av {

namespace {

/// The lengths of a set that an AVCDecoderConfigurationRecord can hold, and how many of each kind.
constexpr std::size_t ShortestSps = 4;
constexpr std::size_t LongestSet = 65535;
constexpr std::size_t MostSps = 31;
constexpr std::size_t MostPps = 255;

/// The number of a parameter set (ISO/IEC 14496-10, 7.3.2.1.1 and 7.3.2.2).
std::uint32_t NumberOf(const NalUnit& unit) {
  constexpr int ProfileAndLevel = 24;
  BitReader reader(unit.bytes.subspan(1));
  if (unit.Type() == NalType::Sps) reader.Bits(ProfileAndLevel);
  return reader.Unsigned();
}

void AppendSets(Bytes& to, const std::map<std::uint32_t, Bytes>& sets) {
  for (const auto& [number, set] : sets) {
    to.push_back(static_cast<unsigned char>(set.size() >> 8));
    to.push_back(static_cast<unsigned char>(set.size()));
    to.insert(to.end(), set.begin(), set.end());
  }
}

/// What stands behind the sets of profiles that know more than eight bits and 4:2:0 (ISO/IEC
/// 14496-15, 5.3.3.1.2); nothing for the others.
void AppendHighProfile(Bytes& to, const Bytes& sps) {
  constexpr unsigned char Known[] = {100, 110, 122, 144};
  if (std::ranges::find(Known, sps[1]) == std::end(Known)) return;
  constexpr std::uint32_t FourFourFour = 3;
  constexpr unsigned Reserved6 = 0xFC;
  constexpr unsigned Reserved5 = 0xF8;
  BitReader reader(ByteSpan(sps).subspan(ShortestSps));
  reader.Unsigned();  // its number
  const std::uint32_t chroma = reader.Unsigned();
  if (chroma == FourFourFour) reader.Bit();
  const std::uint32_t luma = reader.Unsigned();
  const std::uint32_t colour = reader.Unsigned();
  if (reader.Failed()) return;
  for (const unsigned byte : {Reserved6 | (chroma & 3), Reserved5 | (luma & 7),
                              Reserved5 | (colour & 7), 0U /* no further sets */}) {
    to.push_back(static_cast<unsigned char>(byte));
  }
}

constexpr bool IsAudioHeader(const AdtsHeader& header) {
  return header.rawBlocks == 1 && header.channels > 0;
}

}  // namespace

std::string LiveVideoObstacle(const AVCodecParameters& parameters,
                              const std::vector<const AVPacket*>& beginning,
                              const ParameterSets& sets) {
  if (parameters.codec_id != AV_CODEC_ID_H264) {
    return std::string("it is ") + avcodec_get_name(parameters.codec_id) + ", not h264";
  }
  if (sets.Sps().empty() || sets.Pps().empty()) return "it has no parameter sets";
  for (const auto* kind : {&sets.Sps(), &sets.Pps()}) {
    for (const Bytes& set : *kind) {
      const bool sps = kind == &sets.Sps();
      if (set.size() > LongestSet || (sps && set.size() < ShortestSps)) {
        return "its parameter sets have an unusable length";
      }
    }
  }
  const bool timed = std::ranges::all_of(
      beginning, [](const AVPacket* packet) { return packet->pts != AV_NOPTS_VALUE; });
  return timed || parameters.video_delay == 0 ? "" : "it does not tell when pictures are shown";
}

std::string LiveAudioObstacle(const AVCodecParameters& parameters,
                              const std::vector<const AVPacket*>& beginning) {
  if (parameters.codec_id != AV_CODEC_ID_AAC) {
    return std::string("it is ") + avcodec_get_name(parameters.codec_id) + ", not aac";
  }
  if (parameters.extradata_size > 0) return "";
  const auto header = beginning.empty() ? std::nullopt : ParseAdts(BytesOf(*beginning.front()));
  if (!header) return "it does not tell its configuration";
  return IsAudioHeader(*header) ? "" : "its framing is unusual";
}

// ---- packets ------------------------------------------------------------------------------------

void LivePass::Append(ByteSpan bytes, const AVPacket& packet, int offset) {
  // Few in a stream, unless its times are irregular.
  constexpr std::size_t MostKept = 64;
  if (_media.size() > MostKept) _media.clear();
  auto& media = _media[offset];
  if (!media) {
    media = Describe();
    if (offset != 0) media->SetInt("cto", offset);
  }
  if (_output.Media() != media.get()) _output.SetMedia(Share<stream::IMedia>(*media));
  _output.Append({}, bytes, (packet.flags & AV_PKT_FLAG_KEY) != 0, packet.dts);
}

// ---- H.264 --------------------------------------------------------------------------------------

H264LivePass::H264LivePass(const AVCodecParameters& parameters,
                           const std::vector<const AVPacket*>& beginning) {
  if (parameters.extradata_size > 0) {
    Take({parameters.extradata, static_cast<std::size_t>(parameters.extradata_size)});
  }
  for (const AVPacket* packet : beginning) {
    if (!_sps.empty() && !_pps.empty()) break;
    Take(BytesOf(*packet));
  }
  _output.SetMedia(Describe());
}

bool H264LivePass::Take(ByteSpan annexB) {
  bool changed = false;
  for (const NalUnit& unit : SplitAnnexB(annexB)) {
    const bool sps = unit.Type() == NalType::Sps;
    if (!sps && unit.Type() != NalType::Pps) continue;
    if (unit.bytes.size() > LongestSet || (sps && unit.bytes.size() < ShortestSps)) continue;
    Sets& sets = sps ? _sps : _pps;
    const std::uint32_t number = NumberOf(unit);
    if (!sets.contains(number) && sets.size() >= (sps ? MostSps : MostPps)) continue;
    Bytes& set = sets[number];
    if (std::ranges::equal(set, unit.bytes)) continue;
    set.assign(unit.bytes.begin(), unit.bytes.end());
    changed = true;
  }
  return changed;
}

Held<stream::Media> H264LivePass::Describe() const {
  const Bytes& sps = _sps.begin()->second;
  const Bytes& pps = _pps.begin()->second;
  const auto info = ParseSps(sps);
  Held<stream::Media> media =
      stream::NewH264Media(info ? info->width : 0, info ? info->height : 0, sps, pps);
  // ISO/IEC 14496-15, 5.3.3.1: version, profile and level, lengths of four bytes, the sets.
  constexpr unsigned char Version = 1;
  constexpr unsigned char FourByteLengths = 0xFC | 3;
  constexpr unsigned SpsReserved = 0xE0;
  Bytes config = {Version, sps[1],          sps[2],
                  sps[3],  FourByteLengths, static_cast<unsigned char>(SpsReserved | _sps.size())};
  AppendSets(config, _sps);
  config.push_back(static_cast<unsigned char>(_pps.size()));
  AppendSets(config, _pps);
  AppendHighProfile(config, sps);
  media->SetBytes("config", config.data(), config.size());
  media->SetUnsigned("iconfig", static_cast<unsigned int>(config.size()));
  return media;
}

Status H264LivePass::Push(AVPacket& packet) {
  const ByteSpan bytes = BytesOf(packet);
  if (Take(bytes)) Renew();
  const std::int64_t later = packet.pts == AV_NOPTS_VALUE ? 0 : packet.pts - packet.dts;
  constexpr std::int64_t PerMicrosecond = 1000;
  constexpr std::int64_t Most = 60 * NsPerSecond;
  const std::int64_t offset = std::clamp(later, -Most, Most) / PerMicrosecond;
  Append(bytes, packet, static_cast<int>(offset));
  return {};
}

// ---- AAC ----------------------------------------------------------------------------------------

AacLivePass::AacLivePass(const AVCodecParameters& parameters,
                         const std::vector<const AVPacket*>& beginning)
    : _profile(AacLowComplexity),
      _rate(parameters.sample_rate),
      _channels(parameters.ch_layout.nb_channels),
      _framed(parameters.extradata_size == 0) {
  if (_framed) {
    Read(*ParseAdts(BytesOf(*beginning.front())));
  } else {
    _config.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
  }
  _output.SetMedia(Describe());
}

void AacLivePass::Read(const AdtsHeader& header) {
  _adts = header.length;
  _profile = header.profile;
  _rate = header.rate;
  _channels = header.channels;
  // ISO/IEC 14496-3, 1.6.2.1: object type, rate and channels, as the header has them.
  const auto index = static_cast<unsigned>(std::ranges::find(AacRates, _rate) - AacRates.begin());
  constexpr int EightChannels = 8;
  const unsigned channels = static_cast<unsigned>(_channels == EightChannels ? 7 : _channels);
  const unsigned both = static_cast<unsigned>(_profile + 1) << 11 | index << 7 | channels << 3;
  _config = {static_cast<unsigned char>(both >> 8), static_cast<unsigned char>(both)};
}

Held<stream::Media> AacLivePass::Describe() const {
  Held<stream::Media> media = stream::NewAacMedia(_adts, _profile, _channels, _rate);
  media->SetBytes("config", _config.data(), _config.size());
  media->SetUnsigned("iconfig", static_cast<unsigned int>(_config.size()));
  return media;
}

Status AacLivePass::Push(AVPacket& packet) {
  const ByteSpan bytes = BytesOf(packet);
  if (_framed) {
    const auto header = ParseAdts(bytes);
    if (!header || !IsAudioHeader(*header)) return {};  // damaged
    const bool same = header->length == _adts && header->profile == _profile &&
                      header->rate == _rate && header->channels == _channels;
    if (!same) {
      Read(*header);
      Renew();
    }
  }
  // Sound is not reordered.
  packet.flags |= AV_PKT_FLAG_KEY;
  Append(bytes, packet, 0);
  return {};
}

}  // namespace nimbo::capture::av
