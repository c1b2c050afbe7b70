// An access unit with its parameter sets. The input is SPS, PPS and access unit; behind them stand
// the lengths of the first two and the other choices.

#include <algorithm>

#include "fuzz/Wire.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::fuzz {
namespace {

using test::Bytes;

/// Of an ordinary length, or longer than can be told.
Bytes ParameterSet(FuzzedDataProvider& in) {
  constexpr std::size_t Ordinary = 30;
  Bytes set = in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<std::size_t>(0, 31));
  if (set.size() > Ordinary) set.resize(0x10000);
  return set;
}

/// The first slice and all behind it, looked for by what stands in front of a NAL unit's header.
Bytes Slice(const Bytes& unit) {
  constexpr std::size_t Rest = 5;
  std::size_t start = unit.size() - std::min(unit.size(), Rest);
  bool slice = false;
  for (std::size_t at = 3; at < unit.size() && !slice; ++at) {
    const std::size_t code = at > 3 && unit[at - 4] == 0 ? 4 : 3;
    if (test::ReadBig(&unit[at - 3], 3) != 1 || unit.size() - at + code <= Rest) continue;
    slice = (unit[at] & 0x1F) == 1 || (unit[at] & 0x1F) == 5;
    start = slice ? at : std::max(start, at);
  }
  return {unit.begin() + static_cast<std::ptrdiff_t>(start), unit.end()};
}

}  // namespace

void Run(FuzzedDataProvider in) {
  const bool key = in.ConsumeIntegral<unsigned char>() % 8 != 1;
  const unsigned traits = in.ConsumeIntegral<unsigned char>();
  const auto time = static_cast<std::int64_t>(in.ConsumeIntegral<std::uint64_t>());
  const Bytes sps = ParameterSet(in);
  const Bytes pps = ParameterSet(in);
  const Bytes unit = in.ConsumeRemainingBytes<unsigned char>();
  const Bytes slice = Slice(unit);

  std::vector<Bytes> bodies;
  const bool fits = sps.size() >= 4 && sps.size() < 0x10000 && !pps.empty() && pps.size() < 0x10000;
  if (key && fits && (slice.size() >= 5 || !(traits & 8))) {
    bodies = {{0x17, 0, 0, 0, 0, 1, sps[1], sps[2], sps[3], 0xFF, 0xE1}, {0x17, 1, 0, 0, 0}};
    test::AppendBig(bodies[0], sps.size(), 2);
    test::Append(bodies[0], sps);
    test::AppendBig(bodies[0], 0x10000 | pps.size(), 3);
    test::Append(bodies[0], pps);
    test::AppendBig(bodies[1], slice.size(), 4);
    test::Append(bodies[1], slice);
  }
  static Wire wire;
  const auto media = test::VideoMedia(sps, pps);
  const auto packet = test::NewPacket({unit, key, time, 1, media.get()});
  // What comes in front of the first key frame is dropped without a fault.
  wire.Expect(test::VideoMessage, *packet, traits, !key || !bodies.empty(), bodies);
}

}  // namespace nimbo::fuzz
