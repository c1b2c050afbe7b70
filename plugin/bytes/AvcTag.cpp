#include "plugin/bytes/AvcTag.h"

#include <cassert>

#include "plugin/bytes/FlvTag.h"

namespace nimbo::plugin {

namespace {

/// ISO/IEC 14496-10, table 7-1.
enum NalType : unsigned { NoNal = 0, NonIdrSlice = 1, IdrSlice = 5 };
constexpr unsigned NalTypeMask = 0x1F;
/// The shortest rest in which a start code and a NAL header are looked for.
constexpr std::size_t ShortestScan = 5;

/// Length of the start code at `at`, of which at least four bytes can be read; 0 when there is
/// none.
std::size_t StartCodeLength(const unsigned char* at) {
  if (at[0] != 0 || at[1] != 0) return 0;
  if (at[2] == 1) return 3;
  return at[2] == 0 && at[3] == 1 ? 4 : 0;
}

void WriteTagStart(ByteWriter& writer, FrameType frame, AvcPacketType type) {
  constexpr std::size_t CompositionTime = 0;  // no reordering: presented as decoded
  writer.u8(static_cast<unsigned>(frame) << 4 | static_cast<unsigned>(CodecId::Avc));
  writer.u8(static_cast<unsigned>(type));
  writer.u24(CompositionTime);
}

}  // namespace

Bytes FindFirstSlice(Bytes accessUnit) {
  const unsigned char* at = accessUnit.data;
  std::size_t left = accessUnit.size;
  unsigned type = NoNal;
  while (type != NonIdrSlice && type != IdrSlice && left > ShortestScan) {
    if (const std::size_t code = StartCodeLength(at)) {
      at += code;
      left -= code;
      type = *at & NalTypeMask;
    } else {
      ++at;
      --left;
    }
  }
  return {at, left};
}

std::size_t WriteAvcSequenceHeader(unsigned char* out, Bytes sps, Bytes pps) {
  assert(sps.size >= MinSpsSize && sps.size <= MaxParameterSetSize);
  assert(pps.size <= MaxParameterSetSize);
  constexpr unsigned ConfigurationVersion = 1;
  constexpr unsigned FourByteLengths = 0xFC | 3;  // six reserved 1 bits, lengthSizeMinusOne
  constexpr unsigned OneSps = 0xE0 | 1;           // three reserved 1 bits, the number of SPS
  constexpr unsigned OnePps = 1;

  ByteWriter writer(out);
  WriteTagStart(writer, FrameType::Key, AvcPacketType::SequenceHeader);
  writer.u8(ConfigurationVersion);
  writer.u8(sps.data[1]);  // AVCProfileIndication
  writer.u8(sps.data[2]);  // profile_compatibility
  writer.u8(sps.data[3]);  // AVCLevelIndication
  writer.u8(FourByteLengths);
  writer.u8(OneSps);
  writer.u16(sps.size);
  writer.bytes(sps);
  writer.u8(OnePps);
  writer.u16(pps.size);
  writer.bytes(pps);
  assert(writer.Written() == AvcSequenceHeaderSize(sps.size, pps.size));
  return writer.Written();
}

std::size_t WriteAvcFrameHeader(unsigned char* out, bool key, std::size_t payloadSize) {
  ByteWriter writer(out);
  WriteTagStart(writer, key ? FrameType::Key : FrameType::Inter, AvcPacketType::Nalu);
  writer.u32(payloadSize);
  assert(writer.Written() == AvcFrameHeaderSize);
  return writer.Written();
}

}  // namespace nimbo::plugin
