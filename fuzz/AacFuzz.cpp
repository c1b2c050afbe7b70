// A frame of sound with what its media tells of it. The input is the frame with its ADTS header;
// all else stands behind it.

#include <algorithm>

#include "fuzz/Wire.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::fuzz {

void Run(FuzzedDataProvider in) {
  // Sampling frequency indices (ISO/IEC 14496-3, table 1.18); the last two are not told.
  constexpr int Rates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                           22050, 16000, 12000, 11025, 8000,  7350};
  constexpr std::size_t Told = 11;
  const auto number = [&in] { return static_cast<int>(in.ConsumeIntegral<std::uint32_t>()); };
  const unsigned traits = in.ConsumeIntegral<unsigned char>();
  const auto time = static_cast<std::int64_t>(in.ConsumeIntegral<std::uint64_t>());
  const int adts = number(), profile = number(), channels = number();
  const std::size_t choice = in.ConsumeIntegral<unsigned char>();
  const int rate = choice < std::size(Rates) ? Rates[choice] : number();
  const auto frame = in.ConsumeRemainingBytes<unsigned char>();

  unsigned config = 0;
  if (profile >= 0 && profile <= 2) config |= static_cast<unsigned>(profile + 1) << 11;
  const auto* const known = std::find(Rates, Rates + Told, rate);
  if (known != Rates + Told) config |= static_cast<unsigned>(known - Rates) << 7;
  if (channels == 1 || channels == 2) config |= static_cast<unsigned>(channels) << 3;
  std::vector<test::Bytes> bodies = {{0xAF, 0}};
  test::AppendBig(bodies[0], config, 2);
  const bool fits = adts >= 0 && static_cast<std::size_t>(adts) <= frame.size();
  if (fits) bodies.push_back({0xAF, 1});
  if (fits) test::Append(bodies[1], {frame.begin() + adts, frame.end()});

  static Wire wire;
  const auto media = test::AudioMedia(adts, profile, channels, rate);
  const auto packet = test::NewPacket({frame, false, time, 1, media.get()});
  wire.Expect(test::AudioMessage, *packet, traits, fits, bodies);
}

}  // namespace nimbo::fuzz
