#pragma once

#include <string>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// A file with these bytes that lives as long as the object.
class StreamFile {
 public:
  explicit StreamFile(const Bytes& bytes, const std::string& suffix = "");
  StreamFile(const StreamFile&) = delete;
  StreamFile& operator=(const StreamFile&) = delete;
  ~StreamFile();
  const std::string& Path() const { return _path; }

 private:
  std::string _path;
};

/// AAC LC at 44,100 Hz in stereo: `frames` ADTS frames of `size` bytes.
Bytes AdtsStream(int frames, std::size_t size);
/// H.264: `pictures` pictures of `size` bytes, every `distance`-th a key frame with its parameter
/// sets, each behind an access unit delimiter.
Bytes VideoStream(int pictures, int distance, std::size_t size);

}  // namespace nimbo::test
