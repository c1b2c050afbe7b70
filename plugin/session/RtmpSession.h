#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <librtmp/rtmp.h>

#include "common/FileDescriptor.h"
#include "common/Status.h"
#include "plugin/bytes/Chunk.h"
#include "plugin/session/Conversation.h"
#include "plugin/session/Limits.h"
#include "plugin/session/SessionOptions.h"
#include "plugin/session/TcpProgress.h"
#include "plugin/session/TlsClient.h"
#include "plugin/session/Watcher.h"
#include "sync/Mutex.h"

namespace nimbo::plugin {

/// One publishing session with a server: the only code that touches librtmp's session. It knows the
/// steps; in which order they are made, and what is said when one fails, is for its owner to
/// decide.
///
/// All steps are made by one thread at a time: the control thread while its owner opens or closes,
/// the sending thread in between. [session] Cancel, Resume and Connected may be called by any
/// thread.
///
/// A session that was freed, or never allocated, is not connected, and every step on it fails.
class RtmpSession {
 public:
  /// Seconds that librtmp waits for one answer of the server where it dials itself.
  static constexpr int TimeoutSeconds = 5;
  /// The longest stream name that fits the buffer in which librtmp builds its publish command, with
  /// the two bytes to spare that it demands of every string.
  /// Longer ones it would silently never publish.
  static constexpr int MaxStreamName = 974;

  RtmpSession();
  ~RtmpSession();
  RtmpSession(const RtmpSession&) = delete;
  RtmpSession& operator=(const RtmpSession&) = delete;

  /// The limits of all sessions. To be changed before the first one is opened.
  static SessionLimits& Limits();

  /// What the sessions made from now on say.
  void SetOptions(SessionOptions options) { _options = std::move(options); }

  /// Makes a fresh session; one that is still held is closed and freed first. False without memory.
  bool Allocate();
  /// Takes the address apart. The session keeps a copy of its own, because librtmp keeps pointers
  /// into the text and writes into it. Fails when it cannot be published to.
  Status SetupUrl(const char* url);
  /// Publishing, not playing.
  void EnableWrite();
  /// Reaches the server, makes the RTMP handshake and sends the connect command.
  Status Connect();
  /// Creates the stream and waits until the server has accepted the publish.
  Status ConnectStream();
  /// Says goodbye to the server, waits until it has taken what was sent, and closes the connection.
  void Close();
  /// Frees the session.
  void Free();
  /// Ends a session whose stream is live: closes, deletes the stream and frees. One that is not is
  /// freed silently.
  void Disconnect();

  /// What should be known about the connection although it stands; empty when there is nothing, and
  /// afterwards.
  std::string TakeWarning();

  /// [any] Ends a connection attempt at once and a send that stays stalled soon. New attempts fail
  /// until Resume.
  void Cancel() EXCLUDES(_mutex);
  /// [any]
  void Resume() EXCLUDES(_mutex);

  /// [session] Whether there is a connection. Telling so costs no system call.
  bool IsConnected() const { return _rtmp && RTMP_IsConnected(_rtmp.get()) != 0; }
  /// [any] The same, as it was told last by the thread that makes the steps.
  bool Connected() const noexcept { return _connected.load(std::memory_order_relaxed); }
  /// [session] Takes what the server has said by now, without waiting and without an answer. Fails
  /// when it has ended the stream: the session is then closed.
  Status Listen();
  /// [session] Whether the server has asked for a new connection since it was last taken.
  bool AsksReconnect() const { return _conversation.AsksReconnect(); }
  ReconnectRequest TakeReconnect() { return _conversation.TakeReconnect(); }
  /// [session] The codecs that the server says it takes; empty when it does not say.
  const std::vector<std::string>& ServerCodecs() const { return _conversation.Codecs(); }
  /// [any] How far what was sent on the connection has come; nothing without one.
  TcpProgress Progress() EXCLUDES(_mutex);

  /// Sends a message whose body has RTMP_MAX_HEADER_SIZE writable bytes in front of it. With
  /// `queue` librtmp remembers a command that it expects an answer to. A connection that fails is
  /// closed.
  Status Send(RTMPPacket& packet, bool queue);
  /// Whether messages can be sent from where they lie.
  bool CanSendInPlace() const;
  /// Sends a message with a full chunk header whose body is `head` and `tail`, one behind the
  /// other, in one gathered write from where they lie. The bytes on the wire are those of Send.
  /// Only where CanSendInPlace.
  Status SendInPlace(int channel, MessageType type, std::uint32_t timestamp, Bytes head,
                     Bytes tail);
  /// Sends a user control message (RTMP 1.0, 7.1.7).
  Status SendControl(short event, unsigned int value, unsigned int time);
  /// Size in bytes of the chunks that messages are cut into from now on.
  void SetOutChunkSize(int size);
  /// The message stream id that the server gave to the stream; 0 without a session.
  int StreamId() const { return _rtmp ? _rtmp->m_stream_id : 0; }

 private:
  enum class Activity { Idle, Opening, Sending, Closing };
  class Operation;
  struct FreeRtmp {
    void operator()(RTMP* rtmp) const;
  };

  /// A step that may block begins. False when it was cancelled before.
  bool Begin(Activity activity) EXCLUDES(_mutex);
  void End() EXCLUDES(_mutex);
  bool DialsItself() const;
  Status Answer();
  Status ConnectOwn();
  Status ConnectByLibrtmp();
  Status MakeTls(const std::string& host, int socket);
  Status AwaitPublish();
  /// Watches a socket of the attempt under way.
  Status WatchAttempt(int socket) EXCLUDES(_mutex);
  /// Takes the connection's socket over for Cancel and for the goodbye.
  Status Adopt(int socket) EXCLUDES(_mutex);
  void EndWatch() REQUIRES(_mutex);
  /// Reads until the server closes its side; the watch ends a wait that takes too long.
  void AwaitEnd() EXCLUDES(_mutex);
  Conversation::Read Receive(unsigned char* buffer, std::size_t size, bool wait);
  Conversation::Read ReadInbound(unsigned char* buffer, std::size_t size, bool wait);
  /// Whether the connection was shut down here because something took too long.
  bool EndedByWatch() EXCLUDES(_mutex);
  /// A step has been made: tells whether the connection still stands, and lets go of it if not.
  void Note() EXCLUDES(_mutex);
  /// What came of a send.
  Status Sent(bool sent) EXCLUDES(_mutex);
  /// Keeps the kernel from holding more than the server takes in a moment.
  void FollowRate();
  /// Ends what an attempt is waiting for.
  void EndAttempt() REQUIRES(_mutex);
  /// Gives the send under way its time to end.
  void Drain() REQUIRES(_mutex);
  /// What a stream that is being published may take.
  void BoundPublishing() REQUIRES(_mutex);
  /// Has the kernel take all that is still to be sent, so that no slow server holds up the end.
  void LetGo() REQUIRES(_mutex);
  /// Why the attempt under way failed, in the end.
  Status Explain(const Status& reason) EXCLUDES(_mutex);
  /// The reason without what must not be shown.
  Status Hide(const Status& reason) const;

  std::unique_ptr<RTMP, FreeRtmp> _rtmp;
  std::string _url;          ///< what the session's pointers point into
  std::string _shown;        ///< the address as it was given
  std::string _stream_name;  ///< what librtmp reads, which frees its own when it closes
  std::string _warning;
  TlsClient _tls;
  bool _own_tls = false;  ///< librtmp's TLS session is the one made by `_tls`
  SessionOptions _options;
  Conversation _conversation;
  std::atomic<bool> _connected{false};
  std::uint64_t _rate_taken = 0;  ///< bytes that the server had taken at `_rate_since`
  Watcher::Clock::time_point _rate_since;

  sync::Mutex _mutex;  ///< held for moments only; Watcher's is taken under it
  Activity _activity GUARDED_BY(_mutex) = Activity::Idle;
  bool _cancelled GUARDED_BY(_mutex) = false;
  bool _published GUARDED_BY(_mutex) = false;  ///< before, the bounds of the attempt hold
  bool _drained GUARDED_BY(_mutex) = false;    ///< a cancelled send has got its bounds
  Watcher::Clock::time_point _attempt_ends GUARDED_BY(_mutex);
  Watcher::Id _watch GUARDED_BY(_mutex) = 0;
  FileDescriptor _control GUARDED_BY(_mutex);  ///< a duplicate of the connection's socket
};

}  // namespace nimbo::plugin
