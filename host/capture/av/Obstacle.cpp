#include "host/capture/av/Obstacle.h"

#include <algorithm>

#include "host/capture/Adts.h"

namespace nimbo::capture::av {

namespace {

/// The lengths of an SPS that an AVCDecoderConfigurationRecord can hold.
constexpr std::size_t ShortestSps = 4;
constexpr std::size_t LongestSet = 65535;

std::string Codec(const AVCodecParameters& parameters, const char* wanted) {
  return std::string("it is ") + avcodec_get_name(parameters.codec_id) + ", not " + wanted;
}

/// An AudioSpecificConfig of two bytes or more, ISO/IEC 14496-3, 1.6.2.1: five bits of object type,
/// four of rate index, four of channels, then one each for short frames, a core coder and an
/// extension.
constexpr int ObjectLowComplexity = 2;
constexpr unsigned SpecialFraming = 0x7;

}  // namespace

ParameterSets CollectSets(const AVCodecParameters& parameters,
                          const std::vector<const AVPacket*>& beginning) {
  ParameterSets sets;
  if (parameters.extradata_size > 0) {
    sets.AddAll({parameters.extradata, static_cast<std::size_t>(parameters.extradata_size)});
  }
  for (const AVPacket* packet : beginning) {
    sets.AddAll(BytesOf(*packet));
  }
  return sets;
}

std::string VideoObstacle(const AVCodecParameters& parameters,
                          const std::vector<const AVPacket*>& beginning,
                          const ParameterSets& sets) {
  if (parameters.codec_id != AV_CODEC_ID_H264) return Codec(parameters, "h264");
  if (sets.Sps().size() > 1 || sets.Pps().size() > 1) return "it has several parameter sets";
  if (sets.Sps().empty() || sets.Pps().empty()) return "it has no parameter sets";
  const std::size_t sps = sets.Sps().front().size();
  if (sps < ShortestSps || sps > LongestSet || sets.Pps().front().size() > LongestSet) {
    return "its parameter sets have an unusable length";
  }
  for (const AVPacket* packet : beginning) {
    const char* why = nullptr;
    const auto units = SplitAnnexB(BytesOf(*packet));
    if (!DescribablePicture(units, why)) return why;
    if (packet->pts != AV_NOPTS_VALUE && packet->pts != packet->dts) {
      return "its pictures are reordered";
    }
  }
  return parameters.video_delay > 0 ? "its pictures are reordered" : "";
}

std::string AudioObstacle(const AVCodecParameters& parameters,
                          const std::vector<const AVPacket*>& beginning) {
  if (parameters.codec_id != AV_CODEC_ID_AAC) return Codec(parameters, "aac");
  const int channels = parameters.ch_layout.nb_channels;
  if (channels != 1 && channels != 2) return "it has " + std::to_string(channels) + " channels";
  const int rate = parameters.sample_rate;
  if (AacRateIndex(rate) < 0) return "its rate is " + std::to_string(rate) + " Hz";
  if (parameters.profile != AacLowComplexity) return "it is no AAC LC";
  if (parameters.extradata_size >= 2) {
    const unsigned config =
        static_cast<unsigned>(parameters.extradata[0] << 8) | parameters.extradata[1];
    if (config >> 11 != ObjectLowComplexity) return "it is no AAC LC";
    if (((config >> 7) & 0xF) != static_cast<unsigned>(AacRateIndex(rate)) ||
        ((config >> 3) & 0xF) != static_cast<unsigned>(channels) ||
        (config & SpecialFraming) != 0) {
      return "its configuration is unusual";
    }
    return "";
  }
  const auto header = beginning.empty() ? std::nullopt : ParseAdts(BytesOf(*beginning.front()));
  if (!header) return "it does not tell its configuration";
  if (header->rate != rate || header->channels != channels || header->rawBlocks != 1) {
    return "its framing is unusual";
  }
  return "";
}

}  // namespace nimbo::capture::av
