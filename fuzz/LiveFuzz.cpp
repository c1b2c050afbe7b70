// What the live client makes of a picture and of what its media tells. The input is the picture;
// behind it stand the configuration and the choices.

#include <cstring>

#include "fuzz/Fuzz.h"
#include "plugin/bytes/NalUnits.h"
#include "plugin/live/StreamFormat.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::fuzz {
namespace {

using plugin::LiveCodec;
using test::Bytes;

/// The NAL units as they are looked for byte by byte, each behind its length.
Bytes LengthPrefixed(const Bytes& annexB) {
  Bytes all, unit;
  bool inside = false;
  const auto end = [&] {
    while (!unit.empty() && unit.back() == 0) unit.pop_back();
    if (inside && !unit.empty()) {
      test::AppendBig(all, unit.size(), 4);
      test::Append(all, unit);
    }
    unit.clear();
  };
  for (std::size_t at = 0; at < annexB.size();) {
    if (at + 3 <= annexB.size() && test::ReadBig(&annexB[at], 3) == 1) {
      end();
      inside = true;
      at += 3;
    } else {
      unit.push_back(annexB[at++]);
    }
  }
  end();
  return all;
}

}  // namespace

void Run(FuzzedDataProvider in) {
  const auto codec = static_cast<LiveCodec>(in.ConsumeIntegralInRange<int>(0, 7));
  constexpr const char* Names[] = {"h264", "hevc", "av1", "aac", "opus", "flac", "ac3", "eac3"};
  const auto composition = in.ConsumeIntegral<std::int64_t>();
  const bool described = in.ConsumeBool();
  const std::size_t configSize = in.ConsumeIntegralInRange<std::size_t>(0, 20);
  const Bytes config = in.ConsumeBytes<unsigned char>(configSize);
  const Bytes picture = in.ConsumeRemainingBytes<unsigned char>();

  Bytes out(plugin::LengthPrefixedBound(picture.size()));
  out.resize(plugin::WriteLengthPrefixed(out.data(), {picture.data(), picture.size()}));
  Require(out == LengthPrefixed(picture), "every NAL unit stands behind its length");

  unsigned char header[plugin::MaxLiveHeader];
  const std::size_t size = plugin::WritePictureHeader(header, codec, described, composition);
  Require(size == 5 || size == 8, "a picture's header has five bytes, or eight");

  const char* name = Names[static_cast<int>(codec)];
  Require(plugin::live::CodecOf(name) == codec, "every codec has its name");
  Held<stream::Media> media(new stream::Media(name));
  if (described) {
    media->SetBytes("config", config.data(), config.size());
    media->SetUnsigned("iconfig", static_cast<unsigned>(config.size()));
  } else {
    media->SetBytes("sps", config.data(), config.size());
    media->SetUnsigned("isps", static_cast<unsigned>(config.size()));
    media->SetBytes("pps", config.data(), config.size());
    media->SetUnsigned("ipps", static_cast<unsigned>(config.size()));
  }
  const auto format = plugin::live::ReadFormat(*media, codec);
  if (described && !config.empty()) {
    Require(format && format->config == config, "a configuration is passed on as it is");
  }
}

}  // namespace nimbo::fuzz
