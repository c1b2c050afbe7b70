#include "plugin/live/StreamFormat.h"

#include "base/reflect/Names.h"
#include "plugin/bytes/AacTag.h"
#include "plugin/bytes/AvcTag.h"

namespace nimbo::plugin::live {

namespace {

constexpr struct {
  const char* name;
  LiveCodec codec;
} Codecs[] = {{"h264", LiveCodec::Avc}, {"aac", LiveCodec::Aac},   {"hevc", LiveCodec::Hevc},
              {"av1", LiveCodec::Av1},  {"opus", LiveCodec::Opus}, {"flac", LiveCodec::Flac},
              {"ac3", LiveCodec::Ac3},  {"eac3", LiveCodec::Eac3}};

/// Bytes in a media; none where it has none of that name.
Bytes ReadBytes(stream::IMedia& media, const char* name, const char* lengthName) {
  unsigned char* data = nullptr;
  unsigned int size = 0;
  if (!media.Get(name, data) || !data || !media.GetIntT(lengthName, size)) return {};
  return {data, size};
}

/// A record is a sequence header without the tag's fields in front.
bool MakeAvcConfig(stream::IMedia& media, std::vector<unsigned char>& config) {
  constexpr std::size_t TagFields = 5;
  const Bytes sps = ReadBytes(media, "sps", "isps");
  const Bytes pps = ReadBytes(media, "pps", "ipps");
  if (sps.size < MinSpsSize || sps.size > MaxParameterSetSize) return false;
  if (!pps.data || pps.size > MaxParameterSetSize) return false;
  std::vector<unsigned char> header(AvcSequenceHeaderSize(sps.size, pps.size));
  WriteAvcSequenceHeader(header.data(), sps, pps);
  config.assign(header.begin() + TagFields, header.end());
  return true;
}

bool MakeAacConfig(stream::IMedia& media, std::vector<unsigned char>& config) {
  AacFormat format;
  if (!media.GetIntT("profile", format.profile) || !media.GetIntT("channel", format.channels) ||
      !media.GetIntT("rate", format.rate)) {
    return false;
  }
  const unsigned both = AudioSpecificConfig(format);
  constexpr unsigned LowByte = 0xFF;
  config = {static_cast<unsigned char>(both >> 8), static_cast<unsigned char>(both & LowByte)};
  return true;
}

}  // namespace

std::optional<LiveCodec> CodecOf(const char* name) {
  const std::uint32_t id = base::Hash(name);
  for (const auto& known : Codecs) {
    if (base::Hash(known.name) == id) return known.codec;
  }
  return std::nullopt;
}

std::optional<StreamFormat> ReadFormat(stream::IMedia& media, LiveCodec codec) {
  StreamFormat format;
  format.codec = codec;
  media.GetIntT("adtslen", format.adtsLength);
  media.GetIntT("cto", format.composition);
  media.GetIntT("w", format.width);
  media.GetIntT("h", format.height);
  media.GetIntT("rate", format.rate);
  media.GetIntT("channel", format.channels);
  const Bytes config = ReadBytes(media, "config", "iconfig");
  if (config.size > 0 && config.size <= MaxParameterSetSize) {
    format.config.assign(config.data, config.data + config.size);
    return format;
  }
  bool described = codec == LiveCodec::Ac3 || codec == LiveCodec::Eac3;  // every frame tells all
  if (codec == LiveCodec::Avc) described = MakeAvcConfig(media, format.config);
  if (codec == LiveCodec::Aac) described = MakeAacConfig(media, format.config);
  if (!described) return std::nullopt;
  return format;
}

}  // namespace nimbo::plugin::live
