#pragma once

#include <cstddef>
#include <cstdint>

#include "plugin/bytes/Bytes.h"

/// The fields in front of what a media message carries: FLV tag bodies (Adobe Flash Video File
/// Format 10.1, annex E.4) for H.264 and AAC, Enhanced RTMP v1 and v2 for all others. Pure
/// functions over memory that the caller owns.
namespace nimbo::plugin {

enum class LiveCodec : unsigned char { Avc, Hevc, Av1, Aac, Opus, Flac, Ac3, Eac3 };

constexpr bool IsVideo(LiveCodec codec) { return codec <= LiveCodec::Av1; }
/// Whether messages of the codec name it by a FourCC, which servers know since Enhanced RTMP alone.
constexpr bool IsEnhanced(LiveCodec codec) {
  return codec != LiveCodec::Avc && codec != LiveCodec::Aac;
}
/// The codec's name in Enhanced RTMP: four letters.
const char* FourCcOf(LiveCodec codec);
/// What the metadata calls the codec by: its number in FLV, or its FourCC as one.
std::uint32_t CodecNumber(LiveCodec codec);

/// The most bytes that the functions below write.
constexpr std::size_t MaxLiveHeader = 8;

/// Composition times that the field can hold, in ms.
constexpr std::int32_t LeastComposition = -0x800000;
constexpr std::int32_t MostComposition = 0x7FFFFF;

/// In front of a decoder configuration record. Returns the bytes written.
std::size_t WriteSequenceStart(unsigned char* out, LiveCodec codec);
/// In front of a picture that is presented `composition` ms behind its decode time, which is kept
/// within what the field can hold. Returns the bytes written.
std::size_t WritePictureHeader(unsigned char* out, LiveCodec codec, bool key,
                               std::int64_t composition);
/// In front of a frame of sound. Returns the bytes written.
std::size_t WriteSoundHeader(unsigned char* out, LiveCodec codec);

}  // namespace nimbo::plugin
