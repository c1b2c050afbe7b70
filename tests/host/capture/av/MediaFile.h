#pragma once

#include <string>
#include <vector>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// A media file that libav makes; what is left empty or 0 is left out.
struct MediaForm {
  const char* format = "mp4";
  const char* video = "libx264";
  const char* x264 = "";  ///< options of the encoder, as its own text
  int bFrames = 0;
  int pictures = 50;  ///< at 25 a second, 12 from key frame to key frame
  const char* audio = "aac";
  int rate = 44100;
  int channels = 2;
};

/// What went into the file.
struct Encoded {
  std::vector<Bytes> video;  ///< packets as the encoder gave them
  std::vector<Bytes> audio;
  bool written = false;
};

/// Encodes and writes to `url`.
Encoded WriteMedia(const std::string& url, const MediaForm& form);

/// The path of a file of this process in the folder for temporary files; removed at the end of the
/// scope.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& name);
  ~TemporaryFile();
  const std::string& Path() const { return _path; }

 private:
  std::string _path;
};

}  // namespace nimbo::test
