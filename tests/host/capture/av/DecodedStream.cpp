#include "tests/host/capture/av/DecodedStream.h"

#include <gtest/gtest.h>

#include "base/reflect/Names.h"
#include "host/capture/av/Libav.h"

namespace nimbo::test {

using namespace capture;
using namespace capture::av;

Packets ReadPackets(capture::CaptureSource& source, std::size_t count) {
  Packets packets;
  while (packets.size() < count) {
    Held<stream::Packet> packet = source.Read();
    if (!packet) break;
    packets.push_back(std::move(packet));
  }
  return packets;
}

std::vector<stream::Packet*> OfCodec(const Packets& packets, const char* codec) {
  std::vector<stream::Packet*> found;
  for (const auto& packet : packets) {
    if (base::Hash(packet->Media()->Codec()) == base::Hash(codec)) found.push_back(packet.get());
  }
  return found;
}

Bytes MediaBytes(stream::IMedia& media, const char* bytes, const char* length) {
  unsigned char* data = nullptr;
  unsigned int size = 0;
  EXPECT_TRUE(media.Get(bytes, data));
  EXPECT_TRUE(media.GetIntT(length, size));
  return Bytes(data, data + size);
}

int MediaInt(stream::IMedia& media, const char* name) {
  int value = 0;
  EXPECT_TRUE(media.GetIntT(name, value)) << name;
  return value;
}

namespace {

Bytes SlicesBehindLengths(const Bytes& annexB) {
  Bytes all;
  for (const NalUnit& unit : SplitAnnexB(annexB)) {
    if ((unit.bytes[0] >> 1) >= 32) continue;
    AppendBig(all, unit.bytes.size(), 4);
    Append(all, Bytes(unit.bytes.begin(), unit.bytes.end()));
  }
  return all;
}

}  // namespace

Decoded Decode(const char* codec, const std::vector<stream::Packet*>& packets) {
  Decoded decoded;
  const AVCodecID id = avcodec_descriptor_get_by_name(codec)->id;
  const CodecPtr decoder(avcodec_alloc_context3(avcodec_find_decoder(id)));
  unsigned char* told = nullptr;
  if (!packets.empty() && packets.front()->Media()->Get("config", told)) {
    const Bytes config = MediaBytes(*packets.front()->Media(), "config", "iconfig");
    decoder->extradata_size = static_cast<int>(config.size());
    decoder->extradata = static_cast<std::uint8_t*>(av_mallocz(config.size() + 64));
    std::ranges::copy(config, decoder->extradata);
  }
  decoder->err_recognition = AV_EF_EXPLODE;
  decoder->thread_count = 1;
  const FramePtr frame(av_frame_alloc());
  const PacketPtr packet(av_packet_alloc());
  EXPECT_GE(avcodec_open2(decoder.get(), nullptr, nullptr), 0);
  for (std::size_t i = 0; i <= packets.size(); ++i) {
    const bool end = i == packets.size();
    if (!end) {
      Bytes bytes(packets[i]->Data(), packets[i]->Data() + packets[i]->Size());
      if (id == AV_CODEC_ID_HEVC) bytes = SlicesBehindLengths(bytes);
      av_new_packet(packet.get(), static_cast<int>(bytes.size()));
      std::ranges::copy(bytes, packet->data);
    }
    if (avcodec_send_packet(decoder.get(), end ? nullptr : packet.get()) < 0) return {-1};
    av_packet_unref(packet.get());
    while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
      ++decoded.frames;
      decoded.width = frame->width;
      decoded.height = frame->height;
      decoded.rate = frame->sample_rate;
      decoded.channels = frame->ch_layout.nb_channels;
    }
  }
  return decoded;
}

void ExpectDescribableVideo(const std::vector<stream::Packet*>& packets) {
  ASSERT_FALSE(packets.empty());
  EXPECT_TRUE(packets.front()->IsKey());
  const stream::Packet* before = nullptr;
  for (stream::Packet* packet : packets) {
    const auto units = SplitAnnexB({packet->Data(), packet->Size()});
    int slices = 0;
    for (const NalUnit& unit : units) slices += unit.IsSlice();
    EXPECT_EQ(slices, 1);
    ASSERT_FALSE(units.empty());
    EXPECT_TRUE(units.back().IsSlice());
    EXPECT_EQ(units.back().Type() == NalType::IdrSlice, packet->IsKey());
    ParameterSets sets;
    sets.AddAll({packet->Data(), packet->Size()});
    ASSERT_EQ(sets.Sps().size(), packet->IsKey() ? 1U : 0U);
    if (packet->IsKey()) {
      EXPECT_EQ(sets.Sps().front(), MediaBytes(*packet->Media(), "sps", "isps"));
      EXPECT_EQ(sets.Pps().front(), MediaBytes(*packet->Media(), "pps", "ipps"));
    }
    if (before) {
      EXPECT_EQ(packet->Sequence(), before->Sequence() + 1);
      EXPECT_GE(packet->TimeStamp(), before->TimeStamp());
    }
    before = packet;
  }
}

}  // namespace nimbo::test
