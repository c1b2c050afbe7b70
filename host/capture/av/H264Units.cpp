#include "host/capture/av/H264Units.h"

#include <algorithm>
#include <cstring>

namespace nimbo::capture::av {

namespace {

constexpr std::size_t StartCodeLength = 3;
constexpr unsigned char LongStartCode[] = {0, 0, 0, 1};

/// The position of the next 00 00 01 at or behind `from`; `size` when there is none.
std::size_t FindStartCode(const unsigned char* data, std::size_t size, std::size_t from) {
  // Looks for the 1, which is rarer in coded slices than the zeros in front of it.
  for (std::size_t one = from + 2; one < size; ++one) {
    const void* found = std::memchr(data + one, 1, size - one);
    if (!found) break;
    one = static_cast<std::size_t>(static_cast<const unsigned char*>(found) - data);
    if (data[one - 1] == 0 && data[one - 2] == 0) return one - 2;
  }
  return size;
}

/// Unsigned Exp-Golomb numbers at the start of a slice header, where no emulation prevention byte
/// can stand for any picture of a size in use.
class GolombReader {
 public:
  GolombReader(const unsigned char* data, std::size_t size) : _data(data), _bits(size * 8) {}
  /// The next number; 0 behind the end.
  unsigned Next() {
    int zeros = 0;
    while (_position < _bits && Bit() == 0) ++zeros;
    unsigned value = 1;
    constexpr int WidestPrefix = 31;
    for (int i = 0; i < std::min(zeros, WidestPrefix); ++i) value = (value << 1) | Bit();
    return value - 1;
  }

 private:
  unsigned Bit() {
    if (_position >= _bits) return 0;
    const unsigned bit = (_data[_position / 8] >> (7 - _position % 8)) & 1U;
    ++_position;
    return bit;
  }
  const unsigned char* _data;
  std::size_t _bits;
  std::size_t _position = 0;
};

void AddOnce(std::vector<Bytes>& sets, const NalUnit& unit) {
  Bytes bytes(unit.data, unit.data + unit.size);
  if (std::find(sets.begin(), sets.end(), bytes) == sets.end()) sets.push_back(std::move(bytes));
}

}  // namespace

bool NalUnit::IsBidirectional() const {
  // ISO/IEC 14496-10, 7.3.3 and table 7-6: the types repeat after five.
  constexpr unsigned SliceTypes = 5;
  constexpr unsigned BidirectionalType = 1;
  if (!IsSlice()) return false;
  GolombReader header(data + 1, size - 1);
  header.Next();  // first_mb_in_slice
  return header.Next() % SliceTypes == BidirectionalType;
}

std::vector<NalUnit> SplitAnnexB(const unsigned char* data, std::size_t size) {
  std::vector<NalUnit> units;
  std::size_t code = FindStartCode(data, size, 0);
  while (code < size) {
    const std::size_t begin = code + StartCodeLength;
    code = FindStartCode(data, size, begin);
    // A unit ends in a 1 bit; zeros behind it belong to the next start code or are padding.
    std::size_t end = code;
    while (end > begin && data[end - 1] == 0) --end;
    if (end > begin) units.push_back({data + begin, end - begin});
  }
  return units;
}

void ParameterSets::Add(const NalUnit& unit) {
  if (unit.Type() == NalType::Sps) AddOnce(_sps, unit);
  if (unit.Type() == NalType::Pps) AddOnce(_pps, unit);
}

void ParameterSets::AddAll(const unsigned char* data, std::size_t size) {
  for (const NalUnit& unit : SplitAnnexB(data, size)) Add(unit);
}

bool DescribablePicture(const std::vector<NalUnit>& units, const char*& why) {
  int slices = 0;
  for (const NalUnit& unit : units) {
    if (unit.Type() >= NalType::PartitionA && unit.Type() <= NalType::PartitionC) {
      why = "its slices are partitioned";
      return false;
    }
    if (unit.IsBidirectional()) {
      why = "it has B pictures";
      return false;
    }
    slices += unit.IsSlice();
  }
  if (slices > 1) why = "its pictures have several slices";
  return slices <= 1;
}

void AppendUnit(Bytes& to, const Bytes& unit) {
  to.insert(to.end(), std::begin(LongStartCode), std::end(LongStartCode));
  to.insert(to.end(), unit.begin(), unit.end());
}

}  // namespace nimbo::capture::av
