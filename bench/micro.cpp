// What the single steps cost that every frame, or every packet, goes through.

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <thread>
#include <vector>

#include "host/base/ConfigText.h"
#include "host/stream/Media.h"
#include "host/stream/PacketPool.h"
#include "host/stream/RingBuffer.h"
#include "plugin/bytes/AacTag.h"
#include "plugin/bytes/AvcTag.h"
#include "plugin/session/GatheredWrite.h"

namespace {

using nimbo::plugin::AacFormat;
using nimbo::plugin::Bytes;
using nimbo::plugin::ByteWriter;
using nimbo::plugin::ChunkedMessage;
using nimbo::plugin::MessageHeader;

/// Bytes of a picture and of a frame of sound at 6 Mb/s, 30 pictures a second, and 128 kb/s.
constexpr std::int64_t PictureSize = 25000;
constexpr std::int64_t SoundSize = 370;
constexpr unsigned char Filler = 0x5A;

/// An access unit whose first slice stands behind an SPS and a PPS of usual sizes.
std::vector<unsigned char> AccessUnit(std::size_t size) {
  constexpr unsigned char Start[] = {0, 0,    0,    1,    0x67, 0x42, 0, 0x28, 0, 0,   0,
                                     1, 0x68, 0xCE, 0x3C, 0x80, 0,    0, 0,    1, 0x65};
  std::vector<unsigned char> unit(size, Filler);
  std::copy(std::begin(Start), std::end(Start), unit.begin());
  return unit;
}

/// To be the same for every size: what lies behind the first slice is not read.
void SliceScan(benchmark::State& state) {
  const auto unit = AccessUnit(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(nimbo::plugin::FindFirstSlice({unit.data(), unit.size()}));
  }
}
BENCHMARK(SliceScan)->Arg(1000)->Arg(PictureSize)->Arg(1000000);

void AvcFrameHeader(benchmark::State& state) {
  unsigned char header[nimbo::plugin::AvcFrameHeaderSize];
  for (auto _ : state) {
    nimbo::plugin::WriteAvcFrameHeader(header, true, PictureSize);
    benchmark::DoNotOptimize(header);
  }
}
BENCHMARK(AvcFrameHeader);

/// What the copying mode adds to it.
void AvcBodyCopied(benchmark::State& state) {
  const auto unit = AccessUnit(PictureSize);
  std::vector<unsigned char> body(PictureSize + nimbo::plugin::AvcFrameHeaderSize);
  for (auto _ : state) {
    ByteWriter writer(body.data() +
                      nimbo::plugin::WriteAvcFrameHeader(body.data(), true, unit.size()));
    writer.bytes({unit.data(), unit.size()});
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * PictureSize);
}
BENCHMARK(AvcBodyCopied);

void AacBodyCopied(benchmark::State& state) {
  const std::vector<unsigned char> frame(SoundSize, Filler);
  unsigned char body[SoundSize + nimbo::plugin::AacFrameHeaderSize];
  for (auto _ : state) {
    ByteWriter writer(body + nimbo::plugin::WriteAacFrameHeader(body));
    writer.bytes({frame.data(), frame.size()});
    benchmark::ClobberMemory();
  }
}
BENCHMARK(AacBodyCopied);

void AacSequenceHeader(benchmark::State& state) {
  unsigned char body[nimbo::plugin::AacSequenceHeaderSize];
  const AacFormat format{1, 2, 44100};
  for (auto _ : state) {
    nimbo::plugin::WriteAacSequenceHeader(body, format);
    benchmark::DoNotOptimize(body);
  }
}
BENCHMARK(AacSequenceHeader);

/// The pusher clears its buffer, of 1 MiB and of 4 KiB, before each frame of its kind.
void BufferCleared(benchmark::State& state) {
  std::vector<unsigned char> buffer(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    std::fill(buffer.begin(), buffer.end(), 0);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BufferCleared)->Arg(0x1000)->Arg(0x100000);

/// A picture written to a local socket in chunks of the given size, and read there by a thread of
/// its own.
void ChunksWritten(benchmark::State& state) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    state.SkipWithError("no socket");
    return;
  }
  std::thread reader([end = ends[1]] {
    std::vector<char> discarded(std::size_t{256} * 1024);
    while (read(end, discarded.data(), discarded.size()) > 0) {
    }
  });
  const auto unit = AccessUnit(PictureSize);
  unsigned char head[nimbo::plugin::AvcFrameHeaderSize] = {};
  const MessageHeader header = {4, 9, 1000, sizeof head + unit.size(), 1};
  for (auto _ : state) {
    ChunkedMessage message(header, static_cast<std::size_t>(state.range(0)), {head, sizeof head},
                           {unit.data(), unit.size()});
    if (!nimbo::plugin::WriteGathered(ends[0], message)) break;
  }
  state.SetBytesProcessed(state.iterations() * PictureSize);
  close(ends[0]);
  reader.join();
  close(ends[1]);
}
BENCHMARK(ChunksWritten)->Arg(128)->Arg(1024)->Arg(65536)->UseRealTime();

/// A packet from the pool through a ring to the given number of readers.
void RingPassed(benchmark::State& state) {
  nimbo::stream::PacketPool pool;
  auto ring = std::make_shared<nimbo::stream::RingBuffer>(128);
  std::vector<std::unique_ptr<nimbo::stream::PacketRing::Reader>> readers;
  for (std::int64_t i = 0; i < state.range(0); ++i)
    readers.emplace_back(ring->CreateReader(nullptr));
  std::uint32_t sequence = 0;
  for (auto _ : state) {
    const auto packet = pool.New(PictureSize);
    packet->Describe(PictureSize, true, 0, sequence++, nullptr);
    ring->Write(*packet);
    for (const auto& reader : readers) {
      nimbo::stream::Packet* got = nullptr;
      reader->Pop(got, std::chrono::seconds(1));
      benchmark::DoNotOptimize(got);
    }
  }
}
BENCHMARK(RingPassed)->Arg(1)->Arg(10)->Arg(100);

void ConfigurationParsed(benchmark::State& state) {
  const std::string text =
      "type=pipeline,serialize={shm-source:connect={pv:h264-0,W=1920,H=1080,fr=30}+fifofilter:"
      "max=60+RingSink}+rtmp-client:link=all,vcopy=false,acopy=false,url=rtmp://server/live/name";
  for (auto _ : state) {
    std::vector<nimbo::base::ConfigEntry> entries;
    benchmark::DoNotOptimize(nimbo::base::ParseConfiguration(text, entries));
  }
}
BENCHMARK(ConfigurationParsed);

}  // namespace
