#pragma once

#include <cstdint>

namespace nimbo::capture {

/// When the frames of a file are handed out. Whoever merges sound and pictures lets no picture go
/// before the sound behind it has come, so the two go together, and wake everyone once.
class PicturePace {
 public:
  void Restart() { _picture = 0; }
  /// When a frame at `position` (ns) is due. `leads`: it is a picture, or there are none.
  std::int64_t Due(std::int64_t position, bool leads) {
    if (leads) return _picture = position;
    return position - _picture <= Within ? _picture : position;
  }

 private:
  /// Sound goes with the picture that stands so closely before it.
  static constexpr std::int64_t Within = 50'000'000;

  std::int64_t _picture = 0;  ///< position of the latest picture
};

}  // namespace nimbo::capture
