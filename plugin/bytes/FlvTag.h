#pragma once

/// The constants of FLV audio and video tag bodies that this plug-in writes (Adobe Flash Video File
/// Format 10.1, annex E.4). The byte tables stand in docs/wire-format.md.
namespace nimbo::plugin {

/// High four bits of a video tag's first byte.
enum class FrameType : unsigned char { Key = 1, Inter = 2 };
/// Low four bits of a video tag's first byte.
enum class CodecId : unsigned char { Avc = 7 };
enum class AvcPacketType : unsigned char { SequenceHeader = 0, Nalu = 1 };

/// High four bits of an audio tag's first byte.
enum class SoundFormat : unsigned char { Aac = 10 };
enum class AacPacketType : unsigned char { SequenceHeader = 0, Raw = 1 };

}  // namespace nimbo::plugin
