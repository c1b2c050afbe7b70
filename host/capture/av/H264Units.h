#pragma once

#include <vector>

#include "host/capture/H264.h"

namespace nimbo::capture::av {

using Bytes = std::vector<unsigned char>;

/// The different parameter sets that were seen in a stream.
class ParameterSets {
 public:
  /// Keeps the unit if it is a parameter set that was not seen yet.
  void Add(const NalUnit& unit);
  void AddAll(ByteSpan annexB);

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
