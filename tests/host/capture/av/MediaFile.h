#pragma once

#include <string>

namespace nimbo::test {

/// Runs the program `ffmpeg`; false when it fails.
bool Ffmpeg(const std::string& arguments);

/// Writes to `path`: H.264 of 320 x 180 pixels, 25 pictures a second, 12 from key frame to key
/// frame, without B pictures, and AAC of 44,100 Hz in stereo, unless `options` of the program say
/// else.
bool WriteMedia(const std::string& path, const std::string& format, int pictures,
                const std::string& options = "");

}  // namespace nimbo::test
