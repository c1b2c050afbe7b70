#include "tests/support/StreamFile.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "tests/support/MediaSamples.h"

namespace nimbo::test {

StreamFile::StreamFile(const Bytes& bytes, const std::string& suffix) {
  const char* const folder = std::getenv("TMPDIR");
  _path = std::string(folder ? folder : "/tmp") + "/nimbo-XXXXXX" + suffix;
  const int file = mkstemps(_path.data(), static_cast<int>(suffix.size()));
  const ssize_t wrote = write(file, bytes.data(), bytes.size());
  close(file);
  if (wrote != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("cannot write " + _path);
}

StreamFile::~StreamFile() { unlink(_path.c_str()); }

Bytes AdtsStream(int frames, std::size_t size) {
  Bytes stream;
  for (int i = 0; i < frames; ++i) {
    Bytes frame = AdtsFrame(size);
    const std::size_t header[] = {
        0xFF, 0xF1, 0x50, 0x80 | size >> 11, size >> 3 & 0xFF, (size & 7) << 5 | 0x1F, 0xFC};
    std::transform(std::begin(header), std::end(header), frame.begin(),
                   [](std::size_t value) { return static_cast<unsigned char>(value); });
    Append(stream, frame);
  }
  return stream;
}

Bytes VideoStream(int pictures, int distance, std::size_t size) {
  Bytes stream;
  for (int i = 0; i < pictures; ++i) {
    Append(stream, AnnexB({{AccessUnitDelimiter, 0xF0}}));
    Append(stream, AccessUnit(i % distance == 0, size));
  }
  return stream;
}

}  // namespace nimbo::test
