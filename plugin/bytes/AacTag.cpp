#include "plugin/bytes/AacTag.h"

#include <cassert>

#include "plugin/bytes/FlvTag.h"

namespace nimbo::plugin {

namespace {

constexpr unsigned ObjectTypeShift = 11;
constexpr unsigned FrequencyIndexShift = 7;
constexpr unsigned ChannelConfigurationShift = 3;

/// Audio object types (ISO/IEC 14496-3, table 1.17).
unsigned ObjectType(int profile) {
  constexpr int Ssr = 2;
  return profile >= 0 && profile <= Ssr ? static_cast<unsigned>(profile) + 1 : 0;
}

/// Sampling frequency indices (ISO/IEC 14496-3, table 1.18).
unsigned FrequencyIndex(int rate) {
  constexpr int Rates[] = {96000, 88200, 64000, 48000, 44100, 32000,
                           24000, 22050, 16000, 12000, 11025};
  unsigned index = 0;
  for (const int known : Rates) {
    if (rate == known) return index;
    ++index;
  }
  return 0;
}

unsigned ChannelConfiguration(int channels) {
  return channels == 1 || channels == 2 ? static_cast<unsigned>(channels) : 0;
}

/// The first byte of every AAC tag. Players take the true rate and channels from the
/// AudioSpecificConfig, so these are the constants that the format demands for AAC.
constexpr unsigned SoundFlags() {
  constexpr unsigned Rate44kHz = 3;
  constexpr unsigned Samples16Bit = 1;
  constexpr unsigned Stereo = 1;
  return static_cast<unsigned>(SoundFormat::Aac) << 4 | Rate44kHz << 2 | Samples16Bit << 1 | Stereo;
}

}  // namespace

std::uint16_t AudioSpecificConfig(const AacFormat& format) {
  return static_cast<std::uint16_t>(ObjectType(format.profile) << ObjectTypeShift |
                                    FrequencyIndex(format.rate) << FrequencyIndexShift |
                                    ChannelConfiguration(format.channels)
                                        << ChannelConfigurationShift);
}

std::size_t WriteAacSequenceHeader(unsigned char* out, const AacFormat& format) {
  ByteWriter writer(out);
  writer.u8(SoundFlags());
  writer.u8(static_cast<unsigned>(AacPacketType::SequenceHeader));
  writer.u16(AudioSpecificConfig(format));
  assert(writer.Written() == AacSequenceHeaderSize);
  return writer.Written();
}

std::size_t WriteAacFrameHeader(unsigned char* out) {
  ByteWriter writer(out);
  writer.u8(SoundFlags());
  writer.u8(static_cast<unsigned>(AacPacketType::Raw));
  assert(writer.Written() == AacFrameHeaderSize);
  return writer.Written();
}

}  // namespace nimbo::plugin
