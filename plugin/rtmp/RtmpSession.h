#pragma once

#include <atomic>
#include <string>

#include <librtmp/rtmp.h>

namespace nimbo::plugin::rtmp {

/// One publishing session with a server: the only code that touches librtmp's session. It knows the
/// steps; in which order they are made, and what is said when one fails, is for its owner to
/// decide.
///
/// All steps are made by one thread at a time: the control thread while its owner opens or closes,
/// the sending thread in between. [session] Connected may be asked by any thread.
///
/// A session that was freed, or never allocated, is not connected, and every step on it fails.
class RtmpSession {
 public:
  /// Seconds that librtmp waits for the server within one step.
  static constexpr int TimeoutSeconds = 5;
  /// The longest stream name that fits the buffer in which librtmp builds its publish command.
  /// Longer ones it would silently never publish.
  static constexpr int MaxStreamName = 976;

  RtmpSession() = default;
  RtmpSession(const RtmpSession&) = delete;
  RtmpSession& operator=(const RtmpSession&) = delete;

  /// Makes a fresh session; one that is still held is closed and freed first. False without memory.
  bool Allocate();
  /// Takes the address apart. The session keeps a copy of its own, because librtmp keeps pointers
  /// into the text and writes into it. False when it cannot be published to.
  bool SetupUrl(const char* url);
  /// Publishing, not playing.
  void EnableWrite();
  /// Reaches the server and makes the RTMP handshake and the connect command.
  bool Connect();
  /// Creates the stream and waits until the server has accepted the publish.
  bool ConnectStream();
  /// Says goodbye to the server and closes the connection; the session can still be freed only.
  void Close();
  /// Frees the session.
  void Free();
  /// Ends a session whose stream is live: closes, deletes the stream and frees. One that is not is
  /// freed silently.
  void Disconnect();

  /// [session] Whether there is a connection. Telling so costs no system call.
  bool IsConnected();
  /// [any] The same as it was after the last step.
  bool Connected() const noexcept { return _connected.load(std::memory_order_relaxed); }

  /// Sends a message whose body has RTMP_MAX_HEADER_SIZE writable bytes in front of it. With
  /// `queue` librtmp remembers a command that it expects an answer to. A connection that fails is
  /// closed.
  bool Send(RTMPPacket& packet, bool queue);
  /// Sends a user control message (RTMP 1.0, 7.1.7).
  bool SendControl(short event, unsigned int value, unsigned int time);
  /// Size in bytes of the chunks that messages are cut into from now on.
  void SetOutChunkSize(int size);
  /// The message stream id that the server gave to the stream; 0 without a session.
  int StreamId() const { return _rtmp ? _rtmp->m_stream_id : 0; }

 private:
  /// Passes the result of a step on, after telling whether the connection still stands.
  bool Note(bool result);

  RTMP* _rtmp = nullptr;
  std::string _url;  ///< what the session's pointers point into
  std::atomic<bool> _connected{false};
};

}  // namespace nimbo::plugin::rtmp
