// The publisher that one would write by hand: reads an FLV file and sends each tag with librtmp.
//   bench-loop FILE.flv URL [--chunk SIZE] [--fast]
// In real time unless --fast. It stands in the comparison; nothing else uses it.

#include <librtmp/rtmp.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Arguments {
  std::string file;
  std::string url;
  int chunk = RTMP_DEFAULT_CHUNKSIZE;
  bool fast = false;
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
  sent = sent && SendTags(*rtmp, file, arguments.fast);
  RTMP_Close(rtmp);
  RTMP_Free(rtmp);
  std::fclose(file);
  return sent;
}

}  // namespace

int main(int count, char** values) {
  if (count < 3) {
    std::fprintf(stderr, "bench-loop FILE.flv URL [--chunk SIZE] [--fast]\n");
    return 2;
  }
  Arguments arguments{values[1], values[2]};
  for (int i = 3; i < count; ++i) {
    if (std::strcmp(values[i], "--fast") == 0) arguments.fast = true;
    if (std::strcmp(values[i], "--chunk") == 0 && i + 1 < count) {
      arguments.chunk = std::atoi(values[i + 1]);
    }
  }
  return Publish(arguments) ? 0 : 1;
}
