#pragma once

#include <cstddef>
#include <string>

#include <librtmp/rtmp.h>

#include "nimbo/base/object_base.h"
#include "plugin/rtmp/Profile.h"

namespace nimbo::plugin::rtmp {

/// Bytes of a send buffer in front of the message body: librtmp's message record and the room into
/// which librtmp writes the chunk header.
constexpr std::size_t RtmpHeaderSize = sizeof(RTMPPacket) + RTMP_MAX_HEADER_SIZE;
static_assert(sizeof(void*) != 4 || (sizeof(RTMPPacket) == 32 && RtmpHeaderSize == 50),
              "layout of the 32-bit target");

/// The two send buffers of a publishing object and the operations on them. Used by the thread that
/// sends only; created and destroyed on the control thread while nothing is sent.
class SendBuffers {
 public:
  /// A growable buffer in which one message is put together and sent without being copied: the
  /// message record at its start, room for the chunk header, the body at RtmpHeaderSize.
  struct send_buffer_t : base::object_base {
    unsigned char* data = nullptr;  ///< `capacity` bytes, owned
    unsigned int capacity = 0;      ///< a multiple of 4

    RTMPPacket* Record() const { return reinterpret_cast<RTMPPacket*>(data); }
    unsigned char* Body() const { return data + RtmpHeaderSize; }
  };

  static constexpr unsigned int VideoSize = 0x100000;
  static constexpr unsigned int AudioSize = 0x1000;

  explicit SendBuffers(const Profile& profile) : _profile(profile) {}
  SendBuffers(const SendBuffers&) = delete;
  SendBuffers& operator=(const SendBuffers&) = delete;

  /// A new zero-filled buffer of at least `size` bytes; null, with one failure line, for a size of
  /// 0 or when there is no memory.
  send_buffer_t* SendBufferCreate(unsigned int size);
  /// Frees the buffer; null is accepted.
  void SendBufferDestroy(send_buffer_t* buf);
  /// Replaces `buf` by a larger, zero-filled buffer: the next multiple of 1024 above `size`.
  /// Nothing of the old contents is kept. False, with `buf` unchanged, when it is empty or memory
  /// is short.
  bool SendBufferRealloc(send_buffer_t*& buf, unsigned int size);
  /// True when `buf`, which must not be null, holds `size` bytes; grows it when `realloc` is true.
  bool SendBufferCheck(send_buffer_t*& buf, unsigned int size, bool realloc);
  /// Address, data and size as text; empty for an empty buffer.
  std::string SendBufferToString(send_buffer_t* buf);

 protected:
  ~SendBuffers() = default;
  /// Destroys both buffers.
  void DestroyBuffers();

  const Profile& _profile;
  send_buffer_t* _vid_buffer = nullptr;
  send_buffer_t* _aud_buffer = nullptr;
};

}  // namespace nimbo::plugin::rtmp
