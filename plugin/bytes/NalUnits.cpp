#include "plugin/bytes/NalUnits.h"

#include <cassert>
#include <cstring>

namespace nimbo::plugin {

namespace {

constexpr std::size_t StartCodeSize = 3;

/// The place of the next 00 00 01 at or behind `from`; the end when there is none.
std::size_t FindStartCode(Bytes bytes, std::size_t from) {
  for (std::size_t at = from + 2; at < bytes.size; ++at) {
    // A byte of 1 is rarer than one of 0.
    const void* one = std::memchr(bytes.data + at, 1, bytes.size - at);
    if (!one) break;
    at = static_cast<std::size_t>(static_cast<const unsigned char*>(one) - bytes.data);
    if (bytes.data[at - 1] == 0 && bytes.data[at - 2] == 0) return at - 2;
  }
  return bytes.size;
}

}  // namespace

std::size_t WriteLengthPrefixed(unsigned char* out, Bytes annexB) {
  ByteWriter writer(out);
  std::size_t code = FindStartCode(annexB, 0);
  while (code < annexB.size) {
    const std::size_t begin = code + StartCodeSize;
    code = FindStartCode(annexB, begin);
    // No NAL unit ends in a zero: such bytes belong to the byte stream (B.1).
    std::size_t end = code;
    while (end > begin && annexB.data[end - 1] == 0) --end;
    if (end == begin) continue;
    writer.u32(end - begin);
    writer.bytes({annexB.data + begin, end - begin});
  }
  assert(writer.Written() <= LengthPrefixedBound(annexB.size));
  return writer.Written();
}

Bytes WithoutTemporalDelimiter(Bytes temporalUnit) {
  // Its header: type 2, with a size, which is 0.
  constexpr unsigned char Delimiter[] = {0x12, 0x00};
  const bool starts = temporalUnit.size >= sizeof Delimiter &&
                      std::memcmp(temporalUnit.data, Delimiter, sizeof Delimiter) == 0;
  if (!starts) return temporalUnit;
  return {temporalUnit.data + sizeof Delimiter, temporalUnit.size - sizeof Delimiter};
}

}  // namespace nimbo::plugin
