#pragma once

#include <cstddef>
#include <vector>

namespace nimbo::capture::av {

using Bytes = std::vector<unsigned char>;

/// NAL unit types, ISO/IEC 14496-10 table 7-1.
enum class NalType : int {
  Slice = 1,
  PartitionA = 2,
  PartitionC = 4,
  IdrSlice = 5,
  Sps = 7,
  Pps = 8,
};

/// A NAL unit inside a buffer of the caller: from its header byte to its last byte that is not 0.
struct NalUnit {
  const unsigned char* data;
  std::size_t size;

  NalType Type() const noexcept { return static_cast<NalType>(data[0] & 0x1F); }
  bool IsSlice() const noexcept { return Type() == NalType::Slice || Type() == NalType::IdrSlice; }
  /// True for a slice whose header says that it is predicted from both sides.
  bool IsBidirectional() const;
};

/// The NAL units of an Annex B buffer, in order.
std::vector<NalUnit> SplitAnnexB(const unsigned char* data, std::size_t size);

/// The different parameter sets that were seen in a stream.
class ParameterSets {
 public:
  /// Keeps the unit if it is a parameter set that was not seen yet.
  void Add(const NalUnit& unit);
  void AddAll(const unsigned char* data, std::size_t size);

  const std::vector<Bytes>& Sps() const noexcept { return _sps; }
  const std::vector<Bytes>& Pps() const noexcept { return _pps; }

 private:
  std::vector<Bytes> _sps;
  std::vector<Bytes> _pps;
};

/// True when the one picture in `units` can be described on the wire: one slice, which is neither
/// partitioned nor predicted from both sides. Else `why` says what is in the way.
bool DescribablePicture(const std::vector<NalUnit>& units, const char*& why);

/// Appends start code and unit.
void AppendUnit(Bytes& to, const Bytes& unit);

}  // namespace nimbo::capture::av
