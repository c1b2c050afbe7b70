#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/Bytes.h"

namespace nimbo::test {

/// Message types of the RTMP chunk stream.
enum MessageType : std::uint8_t {
  SetChunkSizeMessage = 1,
  AcknowledgementMessage = 3,
  UserControlMessage = 4,
  AudioMessage = 8,
  VideoMessage = 9,
  CommandMessage = 20,
};

/// One message as it lay on the wire.
struct Message {
  std::vector<std::uint8_t> formats;  ///< header format (0 to 3) of each of its chunks
  unsigned chunkStream = 0;
  Bytes header;                           ///< first chunk's header: basic, message and extended
  std::uint32_t timeField = 0;            ///< the 24-bit time stamp field; 0 where there is none
  std::optional<std::uint32_t> extended;  ///< the extended time stamp, where there is one
  std::uint32_t time = 0;                 ///< of the last full header on its chunk stream, ms
  std::uint8_t type = 0;
  std::uint32_t stream = 0;  ///< message stream id
  Bytes body;

  bool IsMedia() const { return type == AudioMessage || type == VideoMessage; }
};

/// Puts messages together from the bytes of a chunk stream (RTMP 1.0, section 5.3). Set Chunk Size
/// messages take effect at once.
class ChunkReader {
 public:
  static constexpr std::uint32_t DefaultChunkSize = 128;

  /// Takes bytes as they come, in pieces of any size, and hands over each message that is complete.
  /// False for what no chunk stream can hold; Error() then says what.
  bool Feed(const unsigned char* bytes, std::size_t size,
            const std::function<void(Message&)>& complete);

  const std::string& Error() const { return _error; }

 private:
  struct Channel {
    Message message;
    std::uint32_t length = 0;  ///< of its body when it is complete
    bool partial = false;
  };
  enum class Step { Taken, NeedsMore, Broken };

  Step TakeChunk(const std::function<void(Message&)>& complete);
  Step Fail(const char* error);

  Bytes _pending;
  std::size_t _start = 0;
  std::uint32_t _chunk_size = DefaultChunkSize;
  std::map<unsigned, Channel> _channels;
  std::string _error;
};

/// One message as a server sends it: a full header and continuation chunks of the default size.
Bytes EncodeMessage(unsigned chunkStream, std::uint8_t type, std::uint32_t stream,
                    const Bytes& body);

}  // namespace nimbo::test
