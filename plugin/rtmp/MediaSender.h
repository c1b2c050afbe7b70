#pragma once

#include <atomic>
#include <cstdint>

#include "nimbo/stream/packet.h"
#include "plugin/bytes/FlvTag.h"
#include "plugin/rtmp/SendBuffers.h"
#include "plugin/session/RtmpSession.h"

namespace nimbo::plugin::rtmp {

/// What the instances of a publishing class share: the numbers of the last packets that any of them
/// accepted. An instance that has accepted none yet tests its first packet against them, but only
/// while no other one is open: the packets of several publishers have nothing to do with each
/// other.
struct SequenceCounters {
  std::atomic<std::uint32_t> s_last_vid_seq{0};  ///< 0: none
  std::atomic<std::uint32_t> s_last_aud_seq{0};  ///< for a debugger only; nothing tests it
  std::atomic<int> open{0};                      ///< instances between Open and Close
};

/// What both publishing classes do with packets: the session's set-up, the packaging of H.264 and
/// AAC as FLV tag bodies, and their sending. The classes derive from it and add their own policy.
///
/// Packets are sent by one thread at a time. [sending] Opening and closing happen on the control
/// thread while nothing is sent, or on the sending thread. The flags that properties show may be
/// read by any thread.
class MediaSender : public SendBuffers {
 public:
  MediaSender(const Profile& profile, SequenceCounters& counters)
      : SendBuffers(profile), _counters(counters) {}

  /// Opens a fresh publishing session to `url`. A step that fails writes one failure line and
  /// leaves no session.
  bool ConnectServer(const char* url);
  /// Ends the session, if there is one. True always.
  bool DisConnectServer();
  /// Announces chunks of 1024 bytes on the connected session. False, with one failure line, when it
  /// is not connected; a failed send is not told.
  bool SetRtmpPacketSize();

  /// Publishes one access unit in Annex B form, on a fresh session behind its sequence header.
  /// After a gap in the sequence numbers everything up to the next key frame is dropped. True when
  /// the packet was sent, dropped on purpose or had nothing to send; false calls for a
  /// reconnection.
  bool SendH264(stream::Packet* pkt);
  /// Publishes one AAC frame with its ADTS header taken off, on a fresh session behind its sequence
  /// header. True when the packet was sent or had nothing to send; false calls for a reconnection.
  bool SendAAC(stream::Packet* pkt);

 protected:
  ~MediaSender() { EndSession(); }

  /// Sends one message at once, under the name that the class's users know: calls SendMessage.
  virtual bool Send(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
                    unsigned int timestamp) = 0;
  /// Fills `packet` and hands it to librtmp. `data` is the body, with RTMP_MAX_HEADER_SIZE writable
  /// bytes in front of it. False, with one failure line, without a connection (the record is then
  /// untouched) or for a body that no message can carry; false silently when sending failed or the
  /// server is found to have ended the stream.
  bool SendMessage(RTMPPacket* packet, unsigned char type, char* data, unsigned int size,
                   unsigned int timestamp);

  /// Tells the pipeline of an event, for classes that live in one.
  virtual void Report(const char* /*message*/) {}

  /// To be called by Open: nothing was sent or said before, and connecting is allowed again.
  void BeginSession();
  /// To be called by Close.
  void EndSession();
  /// Both sequence headers go out again before the next frames.
  void RepeatHeaders() { _vid_header_sent = _aud_header_sent = false; }

  RtmpSession _rtmp;
  bool _vid_header_sent = false;  ///< sent or attempted on this session
  bool _aud_header_sent = false;  ///< sent or attempted on this session
  std::atomic<bool> _vid_lost{false};
  int _adts_len = 0;  ///< bytes of ADTS header in front of each frame
  /// Frames are copied into the buffer, not sent from the packet. Properties: may be written while
  /// the sending thread loads them.
  bool _vcopy = true;
  bool _acopy = true;

 private:
  bool ConnectSteps();
  /// One line that says why a step failed, or warns, unless the same was said before.
  void Explain(const std::string& why);
  bool AcceptSequence(const stream::Packet& pkt);
  bool SendAvcHeader(const stream::Packet& pkt);
  bool SendAacHeader(const stream::Packet& pkt);
  /// The test in front of each message; see SendMessage.
  bool ReadyToSend(std::size_t size);
  /// Calls `send` unless the server has ended the stream; the floating-point unit is on meanwhile.
  template <class Step>
  bool SendNow(Step send);
  /// Sends the first `size` bytes of the buffer's body.
  bool SendBody(MessageType type, send_buffer_t* buffer, std::size_t size, std::uint32_t timestamp);
  /// The buffer holds a message with a body of `body` bytes, grown where needed.
  bool MakeRoom(send_buffer_t*& buffer, std::size_t body);
  /// Zeroes the buffer where the class does so.
  void Clear(send_buffer_t* buffer);
  /// Sends the tag header and the payload behind it as one message: built in the buffer, or,
  /// without `copy` and where the transport can, from where they lie.
  bool SendFrame(MessageType type, send_buffer_t* buffer, bool copy, Bytes header, Bytes payload,
                 const stream::Packet& pkt);

  SequenceCounters& _counters;
  std::string _explained;           ///< what was said last
  std::uint32_t _last_vid_seq = 0;  ///< of the last packet that this instance accepted
  bool _vid_accepted = false;
  bool _open = false;
  bool _beside = false;  ///< opened while another instance was open
};

}  // namespace nimbo::plugin::rtmp
