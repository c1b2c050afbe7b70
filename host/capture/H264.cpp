#include "host/capture/H264.h"

#include <cstring>

namespace nimbo::capture {

bool NalUnit::StartsPicture() const noexcept {
  constexpr unsigned char FirstMacroblockIsZero = 0x80;  // ue(v) 0 is a single 1 bit
  const bool tells = IsSlice() || Type() == NalType::PartitionA;
  return tells && bytes.size() > 1 && (bytes[1] & FirstMacroblockIsZero) != 0;
}

bool NalUnit::IsBidirectional() const {
  // 7.3.3 and table 7-6: the slice types repeat after five.
  constexpr std::uint32_t SliceTypes = 5;
  constexpr std::uint32_t BidirectionalType = 1;
  if (!IsSlice() && Type() != NalType::PartitionA) return false;
  BitReader header(bytes.subspan(1));
  header.Unsigned();  // first_mb_in_slice
  return header.Unsigned() % SliceTypes == BidirectionalType;
}

std::size_t FindStartCode(ByteSpan bytes, std::size_t from) {
  // Looks for the 1, which is rarer in coded slices than the zeros in front of it.
  for (std::size_t one = from + 2; one < bytes.size(); ++one) {
    const void* found = std::memchr(bytes.data() + one, 1, bytes.size() - one);
    if (!found) break;
    one = static_cast<std::size_t>(static_cast<const unsigned char*>(found) - bytes.data());
    if (bytes[one - 1] == 0 && bytes[one - 2] == 0) return one - 2;
  }
  return bytes.size();
}

ByteSpan WithoutTrailingZeros(ByteSpan bytes) {
  std::size_t size = bytes.size();
  while (size > 0 && bytes[size - 1] == 0) --size;
  return bytes.first(size);
}

std::vector<NalUnit> SplitAnnexB(ByteSpan bytes) {
  std::vector<NalUnit> units;
  std::size_t code = FindStartCode(bytes, 0);
  while (code < bytes.size()) {
    const std::size_t begin = code + StartCodeSize;
    code = FindStartCode(bytes, begin);
    const ByteSpan unit = WithoutTrailingZeros(bytes.subspan(begin, code - begin));
    if (!unit.empty()) units.push_back({unit});
  }
  return units;
}

unsigned int BitReader::Bit() {
  if (_bits == 0 && !NextByte()) return 0;
  --_bits;
  return (_current >> _bits) & 1U;
}

std::uint32_t BitReader::Bits(int count) {
  std::uint32_t value = 0;
  for (; count > 0; --count) value = (value << 1) | Bit();
  return value;
}

std::uint32_t BitReader::Unsigned() {
  constexpr int LongestPrefix = 31;
  int zeros = 0;
  while (!_failed && Bit() == 0) {
    if (++zeros > LongestPrefix) _failed = true;
  }
  return _failed ? 0 : Bits(zeros) + (std::uint32_t{1} << zeros) - 1;
}

std::int32_t BitReader::Signed() {
  const std::uint32_t code = Unsigned();
  const auto magnitude = static_cast<std::int32_t>((code >> 1) + (code & 1U));
  return (code & 1U) != 0 ? magnitude : -magnitude;
}

bool BitReader::NextByte() {
  constexpr unsigned char EmulationPrevention = 3;
  if (_zeros >= 2 && _position < _payload.size() && _payload[_position] == EmulationPrevention) {
    ++_position;
    _zeros = 0;
  }
  if (_position >= _payload.size()) {
    _failed = true;
    return false;
  }
  _current = _payload[_position++];
  _zeros = _current == 0 ? _zeros + 1 : 0;
  _bits = 8;
  return true;
}

}  // namespace nimbo::capture
