#pragma once

#include <cstdint>
#include <string>

namespace nimbo::capture::av {

/// How what cannot be passed through is to be encoded. 0 and empty texts: as its input suggests.
struct Encoding {
  std::int64_t videoBitRate = 0;  ///< bits per second
  std::int64_t audioBitRate = 0;  ///< bits per second
  int width = 0;                  ///< pixels, even
  int height = 0;                 ///< pixels, even
  double pictures = 0;            ///< a second
  int gop = 0;                    ///< pictures from one key frame to the next
  std::string preset;             ///< libx264's name for its effort

  bool AsksForVideo() const {
    return videoBitRate > 0 || width > 0 || pictures > 0 || gop > 0 || !preset.empty();
  }
  bool AsksForAudio() const { return audioBitRate > 0; }
};

}  // namespace nimbo::capture::av
