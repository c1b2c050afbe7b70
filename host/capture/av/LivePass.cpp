#include "host/capture/av/LivePass.h"

#include <algorithm>
#include <string_view>

#include "host/capture/Monotonic.h"
#include "host/capture/Sps.h"

namespace nimbo::capture::av {

namespace {

/// The lengths of a set that a configuration record can hold.
constexpr std::size_t ShortestSps = 4;
constexpr std::size_t LongestSet = 65535;

/// Codecs that are passed on where Enhanced RTMP may be spoken, by the names that they have in a
/// media.
constexpr struct {
  AVCodecID id;
  const char* name;
} EnhancedCodecs[] = {{AV_CODEC_ID_HEVC, "hevc"}, {AV_CODEC_ID_AV1, "av1"},
                      {AV_CODEC_ID_OPUS, "opus"}, {AV_CODEC_ID_FLAC, "flac"},
                      {AV_CODEC_ID_AC3, "ac3"},   {AV_CODEC_ID_EAC3, "eac3"}};

const char* EnhancedName(AVCodecID id) {
  const auto* known =
      std::ranges::find_if(EnhancedCodecs, [id](const auto& one) { return one.id == id; });
  return known == std::end(EnhancedCodecs) ? nullptr : known->name;
}

/// Bytes in front of what a NAL unit holds (ISO/IEC 23008-2, 7.3.1.2).
constexpr std::size_t HevcHeader = 2;
/// The places of both codecs' parameter sets in their records.
enum : std::size_t { H264Sps, H264Pps };
enum : std::size_t { HevcVps, HevcSpsKind, HevcPps };

ByteSpan Extradata(const AVCodecParameters& parameters) {
  return {parameters.extradata, static_cast<std::size_t>(std::max(0, parameters.extradata_size))};
}

void AppendSets(Bytes& to, const std::map<std::uint32_t, Bytes>& sets) {
  for (const auto& [number, set] : sets) {
    to.push_back(static_cast<unsigned char>(set.size() >> 8));
    to.push_back(static_cast<unsigned char>(set.size()));
    to.insert(to.end(), set.begin(), set.end());
  }
}

void SetConfig(stream::Media& media, const Bytes& config) {
  media.SetBytes("config", config.data(), config.size());
  media.SetUnsigned("iconfig", static_cast<unsigned int>(config.size()));
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

/// What a sequence parameter set of HEVC tells (ISO/IEC 23008-2, 7.3.2.2).
struct HevcSps {
  Bytes profile;  ///< profile, tier, level: as in a configuration record
  std::uint32_t layers = 1;
  bool nested = false;
  std::uint32_t number = 0;
  std::uint32_t chroma = 0;     ///< chroma_format_idc
  std::uint32_t lumaDepth = 0;  ///< bits behind 8
  std::uint32_t colourDepth = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

std::optional<HevcSps> ParseHevcSps(ByteSpan unit) {
  constexpr std::uint32_t MostLayers = 7;
  constexpr std::size_t ProfileSize = 12;
  constexpr std::uint32_t MostNumber = 15;
  constexpr std::uint32_t FourFourFour = 3;
  constexpr std::uint32_t LargestSide = 16888;
  constexpr int SubProfileBits = 88;
  HevcSps sps;
  BitReader bits(unit.subspan(HevcHeader));
  bits.Bits(4);  // its video parameter set
  const std::uint32_t below = bits.Bits(3);
  if (below >= MostLayers) return std::nullopt;
  sps.layers = below + 1;
  sps.nested = bits.Flag();
  for (std::size_t i = 0; i < ProfileSize; ++i) {
    sps.profile.push_back(static_cast<unsigned char>(bits.Bits(8)));
  }
  // 7.3.3: which of the layers below have a profile, and a level, of their own.
  const std::uint32_t present = below > 0 ? bits.Bits(16) : 0;
  for (std::uint32_t i = 0; i < below; ++i) {
    const std::uint32_t own = present >> (14 - 2 * i) & 3;
    const int size = ((own & 2) != 0 ? SubProfileBits : 0) + ((own & 1) != 0 ? 8 : 0);
    for (int read = 0; read < size; read += 8) bits.Bits(8);
  }
  sps.number = bits.Unsigned();
  sps.chroma = bits.Unsigned();
  if (sps.chroma == FourFourFour) bits.Bit();
  sps.width = bits.Unsigned();
  sps.height = bits.Unsigned();
  if (bits.Flag()) {
    const std::uint32_t x = sps.chroma == 1 || sps.chroma == 2 ? 2 : 1;
    const std::uint32_t y = sps.chroma == 1 ? 2 : 1;
    const std::uint64_t sides = std::uint64_t{bits.Unsigned()} + bits.Unsigned();
    const std::uint64_t lines = std::uint64_t{bits.Unsigned()} + bits.Unsigned();
    if (sides * x >= sps.width || lines * y >= sps.height) return std::nullopt;
    sps.width -= static_cast<std::uint32_t>(sides * x);
    sps.height -= static_cast<std::uint32_t>(lines * y);
  }
  sps.lumaDepth = bits.Unsigned();
  sps.colourDepth = bits.Unsigned();
  const bool usable = !bits.Failed() && sps.number <= MostNumber && sps.chroma <= FourFourFour &&
                      sps.lumaDepth <= 8 && sps.colourDepth <= 8 && sps.width <= LargestSide &&
                      sps.height <= LargestSide;
  return usable ? std::optional(sps) : std::nullopt;
}

/// The configuration that is announced for a stream whose packets are taken as they are. None where
/// it is needed and missing.
std::optional<Bytes> PlainConfig(const AVCodecParameters& parameters) {
  const ByteSpan told = Extradata(parameters);
  const auto begins = [told](std::string_view start) {
    return told.size() > start.size() && std::equal(start.begin(), start.end(), told.begin());
  };
  constexpr unsigned char Av1Record = 0x81;  // marker and version; a byte stream has none
  constexpr std::size_t FlacInfo = 34;
  // RFC 9639, 8.1: the signature, and the header of the last block, which describes the stream.
  constexpr unsigned char FlacStart[] = {'f', 'L', 'a', 'C', 0x80, 0, 0, FlacInfo};
  Bytes config(told.begin(), told.end());
  switch (parameters.codec_id) {
    case AV_CODEC_ID_AV1:
      return !told.empty() && told[0] == Av1Record ? std::optional(config) : std::nullopt;
    case AV_CODEC_ID_OPUS:
      return begins("OpusHead") ? std::optional(config) : std::nullopt;
    case AV_CODEC_ID_FLAC:
      config.insert(config.begin(), std::begin(FlacStart), std::end(FlacStart));
      return told.size() == FlacInfo ? std::optional(config) : std::nullopt;
    default:
      return Bytes();
  }
}

std::string SetsObstacle(const AVCodecParameters& parameters,
                         const std::vector<const AVPacket*>& beginning) {
  const bool complete = parameters.codec_id == AV_CODEC_ID_H264
                            ? H264LivePass(parameters, beginning).Output().Media() != nullptr
                            : HevcLivePass(parameters, beginning).Output().Media() != nullptr;
  if (!complete) return "it has no usable parameter sets";
  const bool timed = std::ranges::all_of(
      beginning, [](const AVPacket* packet) { return packet->pts != AV_NOPTS_VALUE; });
  return timed || parameters.video_delay == 0 ? "" : "it does not tell when pictures are shown";
}

std::string AacObstacle(const AVCodecParameters& parameters,
                        const std::vector<const AVPacket*>& beginning) {
  if (parameters.extradata_size > 0) return "";
  const auto header = beginning.empty() ? std::nullopt : ParseAdts(BytesOf(*beginning.front()));
  if (!header) return "it does not tell its configuration";
  return IsAudioHeader(*header) ? "" : "its framing is unusual";
}

}  // namespace

std::string LiveObstacle(const AVCodecParameters& parameters,
                         const std::vector<const AVPacket*>& beginning, bool enhanced) {
  const AVCodecID codec = parameters.codec_id;
  if (codec == AV_CODEC_ID_AAC) return AacObstacle(parameters, beginning);
  const bool carried = codec == AV_CODEC_ID_H264 || (enhanced && EnhancedName(codec));
  if (!carried) {
    return std::string("it is ") + avcodec_get_name(codec) + ", not " +
           (parameters.codec_type == AVMEDIA_TYPE_VIDEO ? "h264" : "aac");
  }
  if (codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC) {
    return SetsObstacle(parameters, beginning);
  }
  return PlainConfig(parameters) ? "" : "it does not tell its configuration";
}

std::unique_ptr<StreamPath> NewLivePass(const AVCodecParameters& parameters,
                                        const std::vector<const AVPacket*>& beginning) {
  switch (parameters.codec_id) {
    case AV_CODEC_ID_H264:
      return std::make_unique<H264LivePass>(parameters, beginning);
    case AV_CODEC_ID_HEVC:
      return std::make_unique<HevcLivePass>(parameters, beginning);
    case AV_CODEC_ID_AAC:
      return std::make_unique<AacLivePass>(parameters, beginning);
    default:
      return std::make_unique<PlainLivePass>(parameters);
  }
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

// ---- pictures with parameter sets ---------------------------------------------------------------

void SetsLivePass::Begin(const AVCodecParameters& parameters,
                         const std::vector<const AVPacket*>& beginning) {
  const auto complete = [this] {
    return std::ranges::none_of(_sets, [](const Sets& sets) { return sets.empty(); });
  };
  Take(Extradata(parameters));
  for (const AVPacket* packet : beginning) {
    if (complete()) break;
    Take(BytesOf(*packet));
  }
  if (complete()) _output.SetMedia(Describe());
}

bool SetsLivePass::Take(ByteSpan annexB) {
  bool changed = false;
  for (const NalUnit& unit : SplitAnnexB(annexB)) {
    const auto place = PlaceOf(unit.bytes);
    if (!place || unit.bytes.size() > LongestSet) continue;
    Sets& sets = _sets[place->kind];
    if (!sets.contains(place->number) && sets.size() >= _kinds[place->kind].most) continue;
    Bytes& set = sets[place->number];
    if (std::ranges::equal(set, unit.bytes)) continue;
    set.assign(unit.bytes.begin(), unit.bytes.end());
    changed = true;
  }
  return changed;
}

std::optional<std::size_t> SetsLivePass::KindOf(unsigned char type) const {
  const auto kind = std::ranges::find(_kinds, type, &SetKind::type);
  if (kind == _kinds.end()) return std::nullopt;
  return static_cast<std::size_t>(kind - _kinds.begin());
}

Status SetsLivePass::Push(AVPacket& packet) {
  const ByteSpan bytes = BytesOf(packet);
  if (Take(bytes)) Renew();
  const std::int64_t later = packet.pts == AV_NOPTS_VALUE ? 0 : packet.pts - packet.dts;
  constexpr std::int64_t PerMicrosecond = 1000;
  constexpr std::int64_t Most = 60 * NsPerSecond;
  const std::int64_t offset = std::clamp(later, -Most, Most) / PerMicrosecond;
  Append(bytes, packet, static_cast<int>(offset));
  return {};
}

// ---- H.264 --------------------------------------------------------------------------------------

H264LivePass::H264LivePass(const AVCodecParameters& parameters,
                           const std::vector<const AVPacket*>& beginning)
    : SetsLivePass({{static_cast<unsigned char>(NalType::Sps), 31},
                    {static_cast<unsigned char>(NalType::Pps), 255}}) {
  Begin(parameters, beginning);
}

std::optional<SetsLivePass::Place> H264LivePass::PlaceOf(ByteSpan unit) const {
  const auto kind = KindOf(static_cast<unsigned char>(NalUnit{unit}.Type()));
  if (!kind || (*kind == H264Sps && unit.size() < ShortestSps)) return std::nullopt;
  // ISO/IEC 14496-10, 7.3.2.1.1 and 7.3.2.2.
  constexpr int ProfileAndLevel = 24;
  BitReader reader(unit.subspan(1));
  if (*kind == H264Sps) reader.Bits(ProfileAndLevel);
  return Place{*kind, reader.Unsigned()};
}

Held<stream::Media> H264LivePass::Describe() const {
  const Sets& every = _sets[H264Sps];
  const Bytes& sps = every.begin()->second;
  const Bytes& pps = _sets[H264Pps].begin()->second;
  const auto info = ParseSps(sps);
  Held<stream::Media> media =
      stream::NewH264Media(info ? info->width : 0, info ? info->height : 0, sps, pps);
  // ISO/IEC 14496-15, 5.3.3.1: version, profile and level, lengths of four bytes, the sets.
  constexpr unsigned char Version = 1;
  constexpr unsigned char FourByteLengths = 0xFC | 3;
  constexpr unsigned SpsReserved = 0xE0;
  Bytes config = {Version, sps[1],          sps[2],
                  sps[3],  FourByteLengths, static_cast<unsigned char>(SpsReserved | every.size())};
  AppendSets(config, every);
  config.push_back(static_cast<unsigned char>(_sets[H264Pps].size()));
  AppendSets(config, _sets[H264Pps]);
  AppendHighProfile(config, sps);
  SetConfig(*media, config);
  return media;
}

// ---- HEVC ---------------------------------------------------------------------------------------

HevcLivePass::HevcLivePass(const AVCodecParameters& parameters,
                           const std::vector<const AVPacket*>& beginning)
    : SetsLivePass({{32, 16}, {33, 16}, {34, 64}}) {  // ISO/IEC 23008-2, table 7-1
  Begin(parameters, beginning);
}

std::optional<SetsLivePass::Place> HevcLivePass::PlaceOf(ByteSpan unit) const {
  const bool baseLayer = unit.size() > HevcHeader && (unit[0] & 1) == 0 && unit[1] >> 3 == 0;
  const auto kind = KindOf(unit[0] >> 1 & 0x3F);
  if (!baseLayer || !kind) return std::nullopt;
  BitReader reader(unit.subspan(HevcHeader));
  if (*kind == HevcVps) return Place{*kind, reader.Bits(4)};
  if (*kind == HevcPps) return Place{*kind, reader.Unsigned()};
  const auto sps = ParseHevcSps(unit);
  return sps ? std::optional(Place{*kind, sps->number}) : std::nullopt;
}

Held<stream::Media> HevcLivePass::Describe() const {
  const auto sps = ParseHevcSps(_sets[HevcSpsKind].begin()->second);
  Held<stream::Media> media(new stream::Media("hevc"));
  media->SetInt("w", static_cast<int>(sps->width));
  media->SetInt("h", static_cast<int>(sps->height));
  // ISO/IEC 14496-15, 8.3.3.1: what is unknown of pictures a second and parallel decoding is 0.
  Bytes config = {1};
  config.insert(config.end(), sps->profile.begin(), sps->profile.end());
  constexpr unsigned FourByteLengths = 3;
  for (const unsigned byte :
       {0xF0U, 0U, 0xFCU, 0xFC | sps->chroma, 0xF8 | sps->lumaDepth, 0xF8 | sps->colourDepth, 0U,
        0U, sps->layers << 3 | (sps->nested ? 4U : 0U) | FourByteLengths,
        static_cast<unsigned>(_sets.size())}) {
    config.push_back(static_cast<unsigned char>(byte));
  }
  for (std::size_t kind = 0; kind < _sets.size(); ++kind) {
    constexpr unsigned char Types[] = {32, 33, 34};
    config.insert(config.end(), {Types[kind], 0, static_cast<unsigned char>(_sets[kind].size())});
    AppendSets(config, _sets[kind]);
  }
  SetConfig(*media, config);
  return media;
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
  const auto channels = static_cast<unsigned>(_channels == EightChannels ? 7 : _channels);
  const unsigned both = static_cast<unsigned>(_profile + 1) << 11 | index << 7 | channels << 3;
  _config = {static_cast<unsigned char>(both >> 8), static_cast<unsigned char>(both)};
}

Held<stream::Media> AacLivePass::Describe() const {
  Held<stream::Media> media = stream::NewAacMedia(_adts, _profile, _channels, _rate);
  SetConfig(*media, _config);
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

// ---- others -------------------------------------------------------------------------------------

PlainLivePass::PlainLivePass(const AVCodecParameters& parameters)
    : _parameters(avcodec_parameters_alloc()) {
  avcodec_parameters_copy(_parameters.get(), &parameters);
  _output.SetMedia(Describe());
}

Held<stream::Media> PlainLivePass::Describe() const {
  const AVCodecParameters& known = *_parameters;
  Held<stream::Media> media(new stream::Media(EnhancedName(known.codec_id)));
  if (known.codec_type == AVMEDIA_TYPE_VIDEO) {
    media->SetInt("w", known.width);
    media->SetInt("h", known.height);
  } else {
    media->SetInt("rate", known.sample_rate);
    media->SetInt("channel", known.ch_layout.nb_channels);
  }
  if (const auto config = PlainConfig(known); config && !config->empty()) {
    SetConfig(*media, *config);
  }
  return media;
}

Status PlainLivePass::Push(AVPacket& packet) {
  if (_parameters->codec_type == AVMEDIA_TYPE_AUDIO) packet.flags |= AV_PKT_FLAG_KEY;
  Append(BytesOf(packet), packet, 0);
  return {};
}

}  // namespace nimbo::capture::av
