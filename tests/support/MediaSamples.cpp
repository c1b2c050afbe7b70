#include "tests/support/MediaSamples.h"

namespace nimbo::test {
namespace {

constexpr unsigned char StartCode[] = {0, 0, 0, 1};
constexpr int Width = 1280;
constexpr int Height = 720;

class TestPacket final : public stream::Packet {
 public:
  explicit TestPacket(PacketForm form) : _bytes(new unsigned char[form.bytes.size()]) {
    std::copy(form.bytes.begin(), form.bytes.end(), _bytes.get());
    _data = form.nullData ? nullptr : _bytes.get();
    _size = static_cast<unsigned int>(form.bytes.size());
    _key = form.key;
    _time_stamp = form.time;
    _sequence = form.sequence;
    _media = form.media;
    if (_media) _media->Hold();
  }

 private:
  ~TestPacket() override = default;
  std::unique_ptr<unsigned char[]> _bytes;
};

}  // namespace

const Bytes Sps = {0x67, 0x42, 0xC0, 0x1E, 0xDA, 0x04, 0x03, 0x6C, 0x80};
const Bytes Pps = {0x68, 0xCE, 0x3C, 0x80};

Bytes Nal(unsigned char header, std::size_t size) {
  Bytes unit{header};
  while (unit.size() < size) unit.push_back(static_cast<unsigned char>(0x80 | unit.size()));
  return unit;
}

Bytes AnnexB(const std::vector<Bytes>& units, int startCode) {
  Bytes out;
  for (const Bytes& unit : units) {
    out.insert(out.end(), std::end(StartCode) - startCode, std::end(StartCode));
    Append(out, unit);
  }
  return out;
}

Bytes AccessUnit(bool key, std::size_t sliceSize) {
  // Put together one by one: it is also done where there is no memory in the middle of it.
  std::vector<Bytes> units;
  if (key) units.push_back(Sps);
  if (key) units.push_back(Pps);
  units.push_back(Nal(key ? IdrSlice : InterSlice, sliceSize));
  return AnnexB(units);
}

Bytes AdtsFrame(std::size_t size, std::size_t adts) {
  Bytes frame = Nal(0x21, size);
  for (std::size_t i = 0; i < adts && i < size; ++i) frame[i] = 0xF1;
  return frame;
}

Held<stream::Media> VideoMedia(const Bytes& sps, const Bytes& pps) {
  return stream::NewH264Media(Width, Height, sps, pps);
}

Held<stream::Media> AudioMedia(int adtsLength, int profile, int channels, int rate) {
  return stream::NewAacMedia(adtsLength, profile, channels, rate);
}

Held<stream::Packet> NewPacket(PacketForm form) {
  return Held<stream::Packet>(new TestPacket(std::move(form)));
}

}  // namespace nimbo::test
