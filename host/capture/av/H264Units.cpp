#include "host/capture/av/H264Units.h"

#include <algorithm>

namespace nimbo::capture::av {

namespace {

constexpr unsigned char LongStartCode[] = {0, 0, 0, 1};

void AddOnce(std::vector<Bytes>& sets, const NalUnit& unit) {
  Bytes bytes(unit.bytes.begin(), unit.bytes.end());
  if (std::find(sets.begin(), sets.end(), bytes) == sets.end()) sets.push_back(std::move(bytes));
}

}  // namespace

void ParameterSets::Add(const NalUnit& unit) {
  if (unit.Type() == NalType::Sps) AddOnce(_sps, unit);
  if (unit.Type() == NalType::Pps) AddOnce(_pps, unit);
}

void ParameterSets::AddAll(ByteSpan annexB) {
  for (const NalUnit& unit : SplitAnnexB(annexB)) Add(unit);
}

bool DescribablePicture(const std::vector<NalUnit>& units, const char*& why) {
  int slices = 0;
  for (const NalUnit& unit : units) {
    if (unit.IsPartition()) {
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
