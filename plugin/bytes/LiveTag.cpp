#include "plugin/bytes/LiveTag.h"

#include <algorithm>
#include <cassert>

#include "plugin/bytes/AacTag.h"
#include "plugin/bytes/FlvTag.h"

namespace nimbo::plugin {

namespace {

constexpr std::size_t FourCcSize = 4;

/// Enhanced RTMP v1, "Defining Additional Video Codecs": a bit in front of the frame type says that
/// a packet type stands in the place of the codec's number, and a FourCC behind it.
constexpr unsigned ExVideoHeader = 0x80;
/// Enhanced RTMP v2, "Enhanced Audio": the sound format that says the same of sound.
constexpr unsigned ExAudioHeader = 9;
/// The same for both kinds, but for the last.
enum class ExPacketType : unsigned char { SequenceStart = 0, CodedFrames = 1, CodedFramesX = 3 };

void WriteVideoStart(ByteWriter& writer, LiveCodec codec, FrameType frame, unsigned type) {
  const unsigned high = static_cast<unsigned>(frame) << 4;
  if (codec == LiveCodec::Avc) {
    writer.u8(high | static_cast<unsigned>(CodecId::Avc));
    writer.u8(type);
  } else {
    writer.u8(ExVideoHeader | high | type);
    writer.bytes({reinterpret_cast<const unsigned char*>(FourCcOf(codec)), FourCcSize});
  }
}

std::size_t WriteSoundStart(unsigned char* out, LiveCodec codec, ExPacketType type) {
  if (codec == LiveCodec::Aac) {
    WriteAacFrameHeader(out);
    out[1] = static_cast<unsigned char>(type);
    return AacFrameHeaderSize;
  }
  ByteWriter writer(out);
  writer.u8(ExAudioHeader << 4 | static_cast<unsigned>(type));
  writer.bytes({reinterpret_cast<const unsigned char*>(FourCcOf(codec)), FourCcSize});
  return writer.Written();
}

}  // namespace

const char* FourCcOf(LiveCodec codec) {
  switch (codec) {
    case LiveCodec::Avc:
      return "avc1";
    case LiveCodec::Hevc:
      return "hvc1";
    case LiveCodec::Av1:
      return "av01";
    case LiveCodec::Aac:
      return "mp4a";
    case LiveCodec::Opus:
      return "Opus";
    case LiveCodec::Flac:
      return "fLaC";
    case LiveCodec::Ac3:
      return "ac-3";
    default:
      return "ec-3";
  }
}

std::uint32_t CodecNumber(LiveCodec codec) {
  if (codec == LiveCodec::Avc) return static_cast<std::uint32_t>(CodecId::Avc);
  if (codec == LiveCodec::Aac) return static_cast<std::uint32_t>(SoundFormat::Aac);
  std::uint32_t number = 0;
  for (const char* letter = FourCcOf(codec); *letter; ++letter) {
    number = number << 8 | static_cast<unsigned char>(*letter);
  }
  return number;
}

std::size_t WriteSequenceStart(unsigned char* out, LiveCodec codec) {
  if (!IsVideo(codec)) return WriteSoundStart(out, codec, ExPacketType::SequenceStart);
  ByteWriter writer(out);
  WriteVideoStart(writer, codec, FrameType::Key,
                  static_cast<unsigned>(ExPacketType::SequenceStart));
  if (codec == LiveCodec::Avc) writer.u24(0);
  return writer.Written();
}

std::size_t WritePictureHeader(unsigned char* out, LiveCodec codec, bool key,
                               std::int64_t composition) {
  ByteWriter writer(out);
  const std::int64_t held =
      std::clamp<std::int64_t>(composition, LeastComposition, MostComposition);
  // Of the codecs with a FourCC only HEVC has a composition time, which is left out where it is 0.
  const bool timed = codec == LiveCodec::Avc || (codec == LiveCodec::Hevc && held != 0);
  const bool left = codec == LiveCodec::Hevc && !timed;
  const ExPacketType type = left ? ExPacketType::CodedFramesX : ExPacketType::CodedFrames;
  WriteVideoStart(writer, codec, key ? FrameType::Key : FrameType::Inter,
                  static_cast<unsigned>(type));
  if (timed) writer.u24(static_cast<std::size_t>(held) & 0xFFFFFF);
  assert(writer.Written() <= MaxLiveHeader);
  return writer.Written();
}

std::size_t WriteSoundHeader(unsigned char* out, LiveCodec codec) {
  return WriteSoundStart(out, codec, ExPacketType::CodedFrames);
}

}  // namespace nimbo::plugin
