#pragma once

#include <string>
#include <vector>

#include "common/Held.h"
#include "host/stream/Media.h"
#include "nimbo/stream/packet.h"
#include "tests/support/Bytes.h"

namespace nimbo::test {

constexpr std::int64_t Millisecond = 1000000;  ///< in nanoseconds

/// NAL units without start codes: parameter sets of a small picture, slices, and others.
extern const Bytes Sps;
extern const Bytes Pps;
/// A NAL unit of `size` bytes (header included) of a pattern that holds no start code.
Bytes Nal(unsigned char header, std::size_t size);
constexpr unsigned char IdrSlice = 0x65;
constexpr unsigned char InterSlice = 0x41;
constexpr unsigned char Sei = 0x06;
constexpr unsigned char AccessUnitDelimiter = 0x09;

/// The units behind start codes of `startCode` bytes (3 or 4).
Bytes AnnexB(const std::vector<Bytes>& units, int startCode = 4);
/// An access unit as encoders write it: a key frame carries the parameter sets.
Bytes AccessUnit(bool key, std::size_t sliceSize = 100);
/// A frame of `size` bytes in all behind an ADTS header of `adts` bytes.
Bytes AdtsFrame(std::size_t size, std::size_t adts = 7);

Held<stream::Media> VideoMedia(const Bytes& sps = Sps, const Bytes& pps = Pps);
Held<stream::Media> AudioMedia(int adtsLength = 7, int profile = 1, int channels = 2,
                               int rate = 44100);

/// What a packet of a test is made of. Its bytes are allocated in exactly their size, so that the
/// address sanitizer sees every step outside them.
struct PacketForm {
  Bytes bytes;
  bool key = false;
  std::int64_t time = 0;  ///< ns
  std::uint32_t sequence = 0;
  stream::IMedia* media = nullptr;  ///< a reference is taken
  bool nullData = false;
};
Held<stream::Packet> NewPacket(PacketForm form);

}  // namespace nimbo::test
