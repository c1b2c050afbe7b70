#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "plugin/bytes/Bytes.h"
#include "plugin/bytes/Chunk.h"

namespace nimbo::plugin {

/// A message that a peer has sent.
struct InboundMessage {
  int channel = 0;  ///< chunk stream id
  MessageType type = {};
  std::uint32_t timestamp = 0;  ///< ms, or the difference to the message before, as it was sent
  std::uint32_t streamId = 0;
  std::size_t size = 0;  ///< bytes of body that the peer announced
  /// The body, until the next Read; null where it was not kept: for media, data and whatever else
  /// nobody here reads, and where it is longer than MessageReader::MaxKept.
  unsigned char* body = nullptr;
};

/// Puts together the messages that come in chunks from a peer that nobody trusts (RTMP 1.0, 5.3).
/// What it holds is bounded, whatever is announced. Follows the peer's chunk size and aborts
/// itself.
class MessageReader {
 public:
  /// The longest body that is kept.
  static constexpr std::size_t MaxKept = std::size_t{64} * 1024;
  /// Chunk streams that a peer may use. Servers use half a dozen.
  static constexpr std::size_t MaxChannels = 16;

  enum class Outcome {
    More,     ///< the next bytes are wanted
    Message,  ///< one is complete
    Broken,   ///< the bytes are no chunks; nothing more can be read
  };
  struct Step {
    std::size_t used;
    Outcome outcome;
  };

  /// Takes the next part of a chunk from the front of `in`, which is not empty: a part of its
  /// header or its piece of the body. `message` is set when that completes one. Throws
  /// std::bad_alloc.
  Step Read(Bytes in, InboundMessage& message);
  /// What is wrong with the bytes; null as long as they are chunks.
  const char* Fault() const { return _fault; }

 private:
  struct Channel {
    int id = 0;
    std::uint32_t timestamp = 0;
    bool extended = false;
    std::size_t size = 0;
    MessageType type = {};
    std::uint32_t streamId = 0;
    std::size_t read = 0;  ///< of the message under way
    std::vector<unsigned char> body;

    bool Kept() const;
  };
  enum class Part { First, ChannelId, Fields, Timestamp, Body };

  /// Bytes of the part that is being read.
  std::size_t PartSize() const;
  /// The header part in `_part_bytes` is whole.
  bool ReadPart();
  bool BeginChunk(int id);
  bool ReadFields();
  bool BeginBody();
  void Complete(InboundMessage& message);
  void Follow(const Channel& channel);
  Channel* Find(int id);
  bool Break(const char* fault);

  static constexpr std::size_t LongestPart = 11;

  std::size_t _chunk_size = 128;
  std::vector<Channel> _channels;
  Part _part = Part::First;
  unsigned char _part_bytes[LongestPart] = {};
  std::size_t _part_read = 0;
  unsigned _format = 0;  ///< of the chunk that is being read
  Channel* _channel = nullptr;
  std::size_t _chunk_left = 0;
  const char* _fault = nullptr;
};

}  // namespace nimbo::plugin
