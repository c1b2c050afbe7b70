#include "tests/host/capture/StreamFile.h"

#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "tests/support/MediaSamples.h"

namespace nimbo::test {

StreamFile::StreamFile(const Bytes& bytes) {
  const char* folder = std::getenv("TMPDIR");
  _path = std::string(folder ? folder : "/tmp") + "/nimbo-stream-XXXXXX";
  const int file = mkstemp(_path.data());
  const bool written =
      file >= 0 && write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  if (file >= 0) close(file);
  if (!written) throw std::runtime_error("cannot write " + _path);
}

StreamFile::~StreamFile() { unlink(_path.c_str()); }

Bytes AdtsStream(int frames, std::size_t size) {
  Bytes stream;
  for (int i = 0; i < frames; ++i) {
    Bytes frame = AdtsFrame(size);
    const Bytes header = {0xFF,
                          0xF1,
                          0x50,
                          static_cast<unsigned char>(0x80 | (size >> 11)),
                          static_cast<unsigned char>(size >> 3),
                          static_cast<unsigned char>((size & 7) << 5 | 0x1F),
                          0xFC};
    std::copy(header.begin(), header.end(), frame.begin());
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
