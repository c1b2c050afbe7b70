// The publisher that one would write by hand: reads an FLV file and sends each tag with librtmp.
//   bench-loop FILE.flv URL [--chunk SIZE] [--fast] [--floor message|picture]
// In real time unless --fast. With --floor the file is in memory beforehand, and a gathered write
// sends each message, or each picture with its sound: nobody who publishes can do with less. It
// stands in the comparison; nothing else uses it.

#include <librtmp/rtmp.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Arguments {
  std::string file;
  std::string url;
  int chunk = RTMP_DEFAULT_CHUNKSIZE;
  bool fast = false;
  std::string floor;
};

/// FLV file header and the size of the tag in front of the first one (FLV 10.1, E.2, E.3).
constexpr long FileHeader = 9 + 4;
constexpr std::size_t TagHeader = 11;
constexpr std::size_t TagTrailer = 4;
constexpr int MediaChannel = 4;
constexpr int ControlChannel = 2;

unsigned Read24(const unsigned char* at) { return at[0] << 16U | at[1] << 8U | at[2]; }

bool SendChunkSize(RTMP& rtmp, int size) {
  char memory[RTMP_MAX_HEADER_SIZE + 4] = {};
  RTMPPacket packet = {};
  packet.m_headerType = RTMP_PACKET_SIZE_LARGE;
  packet.m_packetType = RTMP_PACKET_TYPE_CHUNK_SIZE;
  packet.m_nChannel = ControlChannel;
  packet.m_nBodySize = 4;
  packet.m_body = memory + RTMP_MAX_HEADER_SIZE;
  AMF_EncodeInt32(packet.m_body, packet.m_body + 4, size);
  rtmp.m_outChunkSize = size;
  return RTMP_SendPacket(&rtmp, &packet, 0) != 0;
}

bool SendTags(RTMP& rtmp, FILE* file, bool fast) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<char> memory;
  unsigned char header[TagHeader];
  while (std::fread(header, 1, TagHeader, file) == TagHeader) {
    RTMPPacket packet = {};
    packet.m_headerType = RTMP_PACKET_SIZE_LARGE;
    packet.m_packetType = header[0];
    packet.m_nChannel = MediaChannel;
    packet.m_nTimeStamp = Read24(header + 4) | static_cast<unsigned>(header[7]) << 24U;
    packet.m_nInfoField2 = rtmp.m_stream_id;
    packet.m_nBodySize = Read24(header + 1);
    memory.resize(RTMP_MAX_HEADER_SIZE + packet.m_nBodySize + TagTrailer);
    packet.m_body = memory.data() + RTMP_MAX_HEADER_SIZE;
    const std::size_t size = packet.m_nBodySize + TagTrailer;
    if (std::fread(packet.m_body, 1, size, file) != size) return false;
    if (packet.m_packetType == RTMP_PACKET_TYPE_INFO) continue;
    if (!fast) {
      std::this_thread::sleep_until(start + std::chrono::milliseconds(packet.m_nTimeStamp));
    }
    if (!RTMP_SendPacket(&rtmp, &packet, 0)) return false;
  }
  return true;
}

/// Messages on their way, in chunks of FloorChunk bytes (RTMP 1.0, 5.3.1).
class Gathered {
 public:
  explicit Gathered(RTMP& rtmp) : _rtmp(rtmp) {}

  void Add(const unsigned char* tag, unsigned size) {
    const auto stream = static_cast<unsigned>(_rtmp.m_stream_id);
    const unsigned char* const at = tag + 4;
    _headers.push_back({MediaChannel, at[0], at[1], at[2], tag[1], tag[2], tag[3], tag[0],
                        static_cast<unsigned char>(stream), 0, 0, 0});
    Piece(_headers.back().data(), _headers.back().size());
    const unsigned char* body = tag + TagHeader;
    for (unsigned sent = 0; sent < size; sent += FloorChunk) {
      static constexpr unsigned char GoesOn = 0xC0 | MediaChannel;
      if (sent > 0) Piece(&GoesOn, 1);
      Piece(body + sent, std::min(size - sent, FloorChunk));
    }
  }
  bool Write() {
    for (std::size_t first = 0; first < _pieces.size();) {
      ssize_t sent =
          writev(_rtmp.m_sb.sb_socket, &_pieces[first], static_cast<int>(_pieces.size() - first));
      if (sent < 0) return false;
      for (; first < _pieces.size() && sent >= static_cast<ssize_t>(_pieces[first].iov_len);
           ++first) {
        sent -= static_cast<ssize_t>(_pieces[first].iov_len);
      }
      if (sent == 0) continue;
      _pieces[first].iov_base = static_cast<char*>(_pieces[first].iov_base) + sent;
      _pieces[first].iov_len -= static_cast<std::size_t>(sent);
    }
    _pieces.clear();
    _headers.clear();
    return true;
  }

  static constexpr unsigned FloorChunk = 65536;

 private:
  void Piece(const unsigned char* bytes, std::size_t size) {
    _pieces.push_back({const_cast<unsigned char*>(bytes), size});
  }

  RTMP& _rtmp;
  std::deque<std::array<unsigned char, 12>> _headers;
  std::vector<iovec> _pieces;
};

bool SendGathered(RTMP& rtmp, FILE* file, bool wholePictures) {
  std::vector<unsigned char> tags;
  unsigned char block[65536];
  while (const std::size_t got = std::fread(block, 1, sizeof block, file)) {
    tags.insert(tags.end(), block, block + got);
  }
  Gathered gathered(rtmp);
  const auto start = std::chrono::steady_clock::now();
  for (std::size_t at = 0; at + TagHeader <= tags.size();) {
    const unsigned char* tag = &tags[at];
    const unsigned size = Read24(tag + 1);
    at += TagHeader + size + TagTrailer;
    if (at > tags.size()) return false;
    if (tag[0] == RTMP_PACKET_TYPE_INFO) continue;
    gathered.Add(tag, size);
    // A picture leaves with the sound in front of it.
    if (wholePictures && tag[0] != RTMP_PACKET_TYPE_VIDEO) continue;
    std::this_thread::sleep_until(start + std::chrono::milliseconds(Read24(tag + 4)));
    if (!gathered.Write()) return false;
  }
  return gathered.Write();
}

bool Publish(const Arguments& arguments) {
  FILE* file = std::fopen(arguments.file.c_str(), "rb");
  if (!file || std::fseek(file, FileHeader, SEEK_SET) != 0) return false;
  std::string url = arguments.url;
  RTMP* rtmp = RTMP_Alloc();
  RTMP_Init(rtmp);
  bool sent = RTMP_SetupURL(rtmp, url.data()) != 0;
  RTMP_EnableWrite(rtmp);
  sent = sent && RTMP_Connect(rtmp, nullptr) && RTMP_ConnectStream(rtmp, 0);
  if (arguments.chunk != RTMP_DEFAULT_CHUNKSIZE)
    sent = sent && SendChunkSize(*rtmp, arguments.chunk);
  if (arguments.floor.empty()) {
    sent = sent && SendTags(*rtmp, file, arguments.fast);
  } else {
    sent = sent && SendChunkSize(*rtmp, Gathered::FloorChunk) &&
           SendGathered(*rtmp, file, arguments.floor == "picture");
  }
  RTMP_Close(rtmp);
  RTMP_Free(rtmp);
  std::fclose(file);
  return sent;
}

}  // namespace

int main(int count, char** values) {
  if (count < 3) {
    std::fprintf(stderr,
                 "bench-loop FILE.flv URL [--chunk SIZE] [--fast] [--floor message|picture]\n");
    return 2;
  }
  Arguments arguments;
  arguments.file = values[1];
  arguments.url = values[2];
  for (int i = 3; i < count; ++i) {
    if (std::strcmp(values[i], "--fast") == 0) arguments.fast = true;
    if (std::strcmp(values[i], "--chunk") == 0 && i + 1 < count) {
      arguments.chunk = std::atoi(values[i + 1]);
    }
    if (std::strcmp(values[i], "--floor") == 0 && i + 1 < count) arguments.floor = values[i + 1];
  }
  return Publish(arguments) ? 0 : 1;
}
