#include "tests/support/ChunkReader.h"

#include <algorithm>

namespace nimbo::test {
namespace {

constexpr std::uint32_t ExtendedMark = 0xFFFFFF;
constexpr std::uint32_t MaximalChunkSize = 0xFFFFFF;
constexpr std::size_t MessageHeaderSizes[] = {11, 7, 3, 0};
constexpr unsigned FormatShift = 6;
constexpr unsigned ChannelMask = 0x3F;

}  // namespace

ChunkReader::Step ChunkReader::Fail(const char* error) {
  _error = error;
  return Step::Broken;
}

bool ChunkReader::Feed(const unsigned char* bytes, std::size_t size,
                       const std::function<void(Message&)>& complete) {
  _pending.insert(_pending.end(), bytes, bytes + size);
  Step step = Step::Taken;
  while (step == Step::Taken) step = TakeChunk(complete);
  _pending.erase(_pending.begin(), _pending.begin() + static_cast<std::ptrdiff_t>(_start));
  _start = 0;
  return step != Step::Broken;
}

ChunkReader::Step ChunkReader::TakeChunk(const std::function<void(Message&)>& complete) {
  const unsigned char* const bytes = _pending.data() + _start;
  const std::size_t available = _pending.size() - _start;
  if (available < 1) return Step::NeedsMore;
  const unsigned format = bytes[0] >> FormatShift;
  const unsigned number = bytes[0] & ChannelMask;
  if (number < 2) return Fail("chunk stream beyond 63");  // which no publisher needs
  std::size_t used = 1 + MessageHeaderSizes[format];
  if (available < used) return Step::NeedsMore;

  // What a header leaves out is as in the one before. A chunk that is not whole yet is read again.
  Channel& channel = _channels[number];
  Message& message = channel.message;
  if (channel.partial && format != 3) return Fail("new message inside another one");
  if (format < 3) message.timeField = ReadBig(bytes + 1, 3);
  if (format < 2) {
    channel.length = ReadBig(bytes + 4, 3);
    message.type = bytes[7];
  }
  if (format == 0) {  // the message stream id is the one little-endian field
    message.stream = bytes[8] | bytes[9] * 0x100u | bytes[10] * 0x10000u | bytes[11] * 0x1000000u;
  }
  std::optional<std::uint32_t> extended;
  if (message.timeField == ExtendedMark) {
    if (available < used + 4) return Step::NeedsMore;
    extended = ReadBig(bytes + used, 4);
    used += 4;
  }
  const std::size_t have = channel.partial ? message.body.size() : 0;
  const std::size_t take = std::min<std::size_t>(_chunk_size, channel.length - have);
  if (available < used + take) return Step::NeedsMore;

  if (!channel.partial) {
    message.chunkStream = number;
    message.header.assign(bytes, bytes + used);
    message.extended = extended;
    if (format == 0) message.time = extended.value_or(message.timeField);
    message.formats.clear();
    message.body.clear();
  } else if (extended != message.extended) {
    return Fail("extended time stamp of a continuation differs");
  }
  message.formats.push_back(static_cast<std::uint8_t>(format));
  message.body.insert(message.body.end(), bytes + used, bytes + used + take);
  channel.partial = message.body.size() < channel.length;
  _start += used + take;
  if (channel.partial) return Step::Taken;
  if (message.type == SetChunkSizeMessage && message.body.size() == 4) {
    _chunk_size = ReadBig(message.body.data(), 4);
    if (_chunk_size < 1 || _chunk_size > MaximalChunkSize) return Fail("chunk size out of range");
  }
  complete(message);
  return Step::Taken;
}

Bytes EncodeMessage(unsigned chunkStream, std::uint8_t type, std::uint32_t stream,
                    const Bytes& body) {
  Bytes out;
  AppendBig(out, chunkStream, 1);
  AppendBig(out, 0, 3);
  AppendBig(out, body.size(), 3);
  AppendBig(out, type, 1);
  for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(stream >> (8 * i)));
  for (std::size_t at = 0; at < body.size(); ++at) {
    if (at > 0 && at % ChunkReader::DefaultChunkSize == 0) AppendBig(out, 0xC0 | chunkStream, 1);
    out.push_back(body[at]);
  }
  return out;
}

}  // namespace nimbo::test
