#include "plugin/bytes/MessageReader.h"

#include <algorithm>
#include <cstring>

namespace nimbo::plugin {

namespace {

/// Chunk header formats (RTMP 1.0, 5.3.1.2).
enum Format : unsigned { Full = 0, SameStream = 1, SameSize = 2, NoHeader = 3 };
constexpr std::size_t FieldSizes[] = {11, 7, 3, 0};
constexpr unsigned FormatShift = 6;
constexpr unsigned IdMask = 0x3F;
/// Ids from here on follow in bytes of their own.
constexpr int FirstLongId = 64;

std::uint32_t Big(const unsigned char* bytes, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = value << 8 | bytes[i];
  return value;
}

std::uint32_t Little32(const unsigned char* bytes) {
  return std::uint32_t{bytes[3]} << 24 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[1]} << 8 | bytes[0];
}

}  // namespace

/// Commands and what steers the protocol are read by somebody; all else passes by.
bool MessageReader::Channel::Kept() const {
  const bool wanted = type <= MessageType::PeerBandwidth || type == MessageType::Command ||
                      type == MessageType::CommandAmf3;
  return wanted && size <= MaxKept;
}

bool MessageReader::Break(const char* fault) {
  _fault = fault;
  return false;
}

MessageReader::Channel* MessageReader::Find(int id) {
  for (Channel& channel : _channels) {
    if (channel.id == id) return &channel;
  }
  return nullptr;
}

std::size_t MessageReader::PartSize() const {
  switch (_part) {
    case Part::ChannelId:
      return _part_bytes[0] & IdMask ? 3 : 2;  // with the first byte in front
    case Part::Fields:
      return FieldSizes[_format];
    case Part::Timestamp:
      return 4;
    default:
      return 1;
  }
}

MessageReader::Step MessageReader::Read(Bytes in, InboundMessage& message) {
  if (_fault) return {0, Outcome::Broken};
  if (_part == Part::Body) {
    const std::size_t used = std::min(in.size, _chunk_left);
    if (_channel->Kept()) _channel->body.insert(_channel->body.end(), in.data, in.data + used);
    _channel->read += used;
    _chunk_left -= used;
    if (_chunk_left > 0) return {used, Outcome::More};
    _part = Part::First;
    if (_channel->read < _channel->size) return {used, Outcome::More};
    Complete(message);
    return {used, _fault ? Outcome::Broken : Outcome::Message};
  }

  const std::size_t used = std::min(in.size, PartSize() - _part_read);
  std::memcpy(_part_bytes + _part_read, in.data, used);
  _part_read += used;
  if (_part_read < PartSize()) return {used, Outcome::More};
  if (!ReadPart()) return {used, Outcome::Broken};
  if (_part != Part::Body || _channel->size > 0) return {used, Outcome::More};
  _part = Part::First;
  Complete(message);
  return {used, Outcome::Message};
}

bool MessageReader::ReadPart() {
  switch (_part) {
    case Part::First: {
      _format = _part_bytes[0] >> FormatShift;
      const int id = static_cast<int>(_part_bytes[0] & IdMask);
      if (id >= 2) return BeginChunk(id);
      _part = Part::ChannelId;  // the bytes behind the first one are still to come
      return true;
    }
    case Part::ChannelId: {
      const bool both = (_part_bytes[0] & IdMask) == 1;
      return BeginChunk(FirstLongId + _part_bytes[1] + (both ? _part_bytes[2] * 256 : 0));
    }
    case Part::Fields:
      return ReadFields();
    default:
      _channel->timestamp = Big(_part_bytes, 4);
      return BeginBody();
  }
}

bool MessageReader::BeginChunk(int id) {
  _part_read = 0;
  _channel = Find(id);
  const bool fresh = !_channel;
  if (fresh) {
    if (_format > SameStream) return Break("a chunk without the header that it refers to");
    if (_channels.size() == MaxChannels) return Break("too many chunk streams");
    _channels.reserve(MaxChannels);  // so that pointers into it stay
    _channels.emplace_back();
    _channel = &_channels.back();
    _channel->id = id;
  }
  if (_format != NoHeader && _channel->read > 0) {
    return Break("a message that begins inside another one");
  }
  _part = Part::Fields;
  if (_format != NoHeader) return true;
  if (!_channel->extended) return BeginBody();
  _part = Part::Timestamp;
  return true;
}

bool MessageReader::ReadFields() {
  _part_read = 0;
  _channel->timestamp = Big(_part_bytes, 3);
  _channel->extended = _channel->timestamp == ExtendedTimestamp;
  if (_format <= SameStream) {
    _channel->size = Big(_part_bytes + 3, 3);
    _channel->type = static_cast<MessageType>(_part_bytes[6]);
  }
  if (_format == Full) _channel->streamId = Little32(_part_bytes + 7);
  if (!_channel->extended) return BeginBody();
  _part = Part::Timestamp;
  return true;
}

bool MessageReader::BeginBody() {
  _part_read = 0;
  _part = Part::Body;
  if (_channel->read == 0) _channel->body.clear();
  _chunk_left = std::min(_chunk_size, _channel->size - _channel->read);
  return true;
}

void MessageReader::Complete(InboundMessage& message) {
  message.channel = _channel->id;
  message.type = _channel->type;
  message.timestamp = _channel->timestamp;
  message.streamId = _channel->streamId;
  message.size = _channel->size;
  message.body = _channel->Kept() ? _channel->body.data() : nullptr;
  _channel->read = 0;
  Follow(*_channel);
}

void MessageReader::Follow(const Channel& channel) {
  constexpr std::size_t ValueSize = 4;
  if (!channel.Kept() || channel.body.size() < ValueSize) return;
  const std::uint32_t value = Big(channel.body.data(), ValueSize);
  if (channel.type == MessageType::SetChunkSize) {
    // The highest bit is zero by definition (RTMP 1.0, 5.4.1).
    if (value == 0 || value > INT32_MAX) {
      Break("an impossible chunk size");
      return;
    }
    _chunk_size = std::min<std::size_t>(value, MaxMessageBody);
  } else if (channel.type == MessageType::Abort) {
    Channel* aborted = value <= INT32_MAX ? Find(static_cast<int>(value)) : nullptr;
    if (aborted) aborted->read = 0;
  }
}

}  // namespace nimbo::plugin
