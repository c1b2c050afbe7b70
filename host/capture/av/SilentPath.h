#pragma once

#include <cstdint>
#include <vector>

#include "host/capture/av/StreamPath.h"

namespace nimbo::capture::av {

/// The sound of an input that has none: silence, for as long as its pictures go. One frame is
/// encoded, once.
class SilentPath final : public StreamPath {
 public:
  /// `rate` in Hz and `channels`, 1 or 2, are those of the silence. Fails when libav cannot encode
  /// such sound.
  nimbo::Status Open(int rate, int channels);
  /// Nothing comes from the demuxer.
  nimbo::Status Push(AVPacket&) override { return {}; }
  /// Makes what is missing up to the picture of the time `last`, beginning with that of `first`
  /// where there was none before, or where it is so late that the pictures have gone on elsewhere.
  void Fill(std::int64_t first, std::int64_t last);

 private:
  std::vector<unsigned char> _frame;
  int _rate = 0;
  std::int64_t _begin = 0;   ///< of the first frame
  std::int64_t _frames = 0;  ///< since then
};

}  // namespace nimbo::capture::av
