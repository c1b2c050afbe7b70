#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "nimbo/base/api.h"

/// What can be read from H.264 (ISO/IEC 14496-10) without decoding it.

namespace nimbo::capture {

/// Bytes of somebody else.
using ByteSpan = std::span<const unsigned char>;

/// NAL unit types, table 7-1.
enum class NalType : unsigned char {
  Slice = 1,
  PartitionA = 2,
  PartitionC = 4,
  IdrSlice = 5,
  Sei = 6,
  Sps = 7,
  Pps = 8,
  Delimiter = 9,
  FirstReservedInFront = 14,
  LastReservedInFront = 18,
};

/// A NAL unit, or its beginning, inside a buffer of the caller: from its header byte on.
struct NalUnit {
  ByteSpan bytes;  ///< one at least

  NalType Type() const noexcept { return static_cast<NalType>(bytes[0] & 0x1F); }
  /// A whole coded slice.
  bool IsSlice() const noexcept { return Type() == NalType::Slice || Type() == NalType::IdrSlice; }
  bool IsPartition() const noexcept {
    return Type() >= NalType::PartitionA && Type() <= NalType::PartitionC;
  }
  /// True for a slice that tells, within what is there of it, that it starts a picture: its first
  /// macroblock is that of number 0.
  bool StartsPicture() const noexcept;
  /// True for a slice whose header tells, within what is there of it, that it is predicted from
  /// both sides.
  NIMBO_API bool IsBidirectional() const;
};

constexpr std::size_t StartCodeSize = 3;  ///< 00 00 01

/// [any] The position of the next start code at or behind `from`; the number of bytes when there is
/// none.
NIMBO_API std::size_t FindStartCode(ByteSpan bytes, std::size_t from);
/// [any] `bytes` without the zero bytes at its end: a NAL unit does not end in one, so they belong
/// to the byte stream (B.1).
NIMBO_API ByteSpan WithoutTrailingZeros(ByteSpan bytes);
/// [any] The NAL units of an Annex B buffer, in order.
NIMBO_API std::vector<NalUnit> SplitAnnexB(ByteSpan bytes);

/// Reads the bits of a NAL unit's payload, passing over emulation prevention bytes (7.3.1). What is
/// read behind the end is zero, and Failed() from then on.
class NIMBO_API BitReader {
 public:
  explicit BitReader(ByteSpan payload) : _payload(payload) {}

  bool Failed() const { return _failed; }
  unsigned int Bit();
  bool Flag() { return Bit() != 0; }
  std::uint32_t Bits(int count);
  /// ue(v) of 9.1, an Exp-Golomb code. One that is longer than any allowed value's counts as
  /// failed.
  std::uint32_t Unsigned();
  /// se(v) of 9.1.1.
  std::int32_t Signed();

 private:
  bool NextByte();

  ByteSpan _payload;
  std::size_t _position = 0;
  unsigned int _current = 0;
  int _bits = 0;   ///< of the current byte that were not read yet
  int _zeros = 0;  ///< zero bytes in a row before the next byte
  bool _failed = false;
};

}  // namespace nimbo::capture
