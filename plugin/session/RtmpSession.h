#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <librtmp/rtmp.h>

#include "plugin/bytes/Chunk.h"
#include "plugin/session/Limits.h"
#include "plugin/session/TlsClient.h"
#include "plugin/session/Watcher.h"
#include "sync/Mutex.h"

namespace nimbo::plugin {

class LibrtmpLog;

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
  /// The longest stream name that fits the buffer in which librtmp builds its publish command.
  /// Longer ones it would silently never publish.
  static constexpr int MaxStreamName = 976;

  RtmpSession() = default;
  RtmpSession(const RtmpSession&) = delete;
  RtmpSession& operator=(const RtmpSession&) = delete;

  /// The limits of all sessions. To be changed before the first one is opened.
  static SessionLimits& Limits();

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
  /// Says goodbye to the server, waits until it has taken what was sent, and closes the connection.
  void Close();
  /// Frees the session.
  void Free();
  /// Ends a session whose stream is live: closes, deletes the stream and frees. One that is not is
  /// freed silently.
  void Disconnect();

  /// Why the last step failed, or what should be known about it; empty when there is nothing to
  /// say. Telling it once is enough: it is empty afterwards.
  std::string TakeRemark();

  /// [any] Ends a connection attempt at once and a send that stays stalled soon. New attempts fail
  /// until Resume.
  void Cancel() EXCLUDES(_mutex);
  /// [any]
  void Resume() EXCLUDES(_mutex);

  /// [session] Whether there is a connection. Telling so costs no system call.
  bool IsConnected() const { return _rtmp && RTMP_IsConnected(_rtmp) != 0; }
  /// [any] The same as it was after the last step.
  bool Connected() const noexcept { return _connected.load(std::memory_order_relaxed); }
  /// [session] Reads what the server has sent and forgets it, without waiting. A server that has
  /// ended the stream is noticed here: the session is then no longer connected.
  void DiscardInbound();

  /// Sends a message whose body has RTMP_MAX_HEADER_SIZE writable bytes in front of it. With
  /// `queue` librtmp remembers a command that it expects an answer to. A connection that fails is
  /// closed.
  bool Send(RTMPPacket& packet, bool queue);
  /// Whether messages can be sent from where they lie.
  bool CanSendInPlace() const;
  /// Sends a message with a full chunk header whose body is `head` and `tail`, one behind the
  /// other, in one gathered write from where they lie. The bytes on the wire are those of Send.
  /// Only where CanSendInPlace.
  bool SendInPlace(int channel, MessageType type, std::uint32_t timestamp, Bytes head, Bytes tail);
  /// Sends a user control message (RTMP 1.0, 7.1.7).
  bool SendControl(short event, unsigned int value, unsigned int time);
  /// Size in bytes of the chunks that messages are cut into from now on.
  void SetOutChunkSize(int size);
  /// The message stream id that the server gave to the stream; 0 without a session.
  int StreamId() const { return _rtmp ? _rtmp->m_stream_id : 0; }

 private:
  enum class Activity { Idle, Opening, Sending, Closing };
  class Operation;

  /// A step that may block begins. False when it was cancelled before.
  bool Begin(Activity activity) EXCLUDES(_mutex);
  void End() EXCLUDES(_mutex);
  /// Ends the step under way at `deadline`.
  void Bound(Watcher::Clock::time_point deadline) REQUIRES(_mutex);
  bool DialsItself() const;
  /// Keeps the answers of a set-up from waiting for acknowledgements, as far as `log` reaches.
  void Hurry(LibrtmpLog& log);
  bool ConnectOwn();
  bool ConnectByLibrtmp();
  bool MakeTls(const std::string& host, int socket);
  /// Watches a socket of the attempt under way. False when it was cancelled.
  bool WatchAttempt(int socket) EXCLUDES(_mutex);
  /// Keeps a duplicate of the connection's socket for Cancel and for the goodbye.
  /// False when there is no descriptor left.
  bool Adopt(int socket) EXCLUDES(_mutex);
  void EndWatch() REQUIRES(_mutex);
  /// Reads until the server closes its side; the watch ends a wait that takes too long.
  void AwaitEnd() EXCLUDES(_mutex);
  static constexpr long EndOfStream = 0;
  static constexpr long NothingYet = -1;
  /// One non-blocking read: the number of bytes, EndOfStream or NothingYet.
  long ReadInbound(char* buffer, std::size_t size);
  /// Passes the result of a step on, after telling whether the connection still stands.
  bool Note(bool result) EXCLUDES(_mutex);
  /// Notes why the attempt under way failed, in the end. Always false.
  bool Explain(const std::string& reason) EXCLUDES(_mutex);
  /// Notes why a step failed. Always false.
  bool Fail(const std::string& reason);

  RTMP* _rtmp = nullptr;
  std::string _url;          ///< what the session's pointers point into
  std::string _shown;        ///< the address as it was given
  std::string _stream_name;  ///< what librtmp reads, which frees its own when it closes
  std::string _remark;       ///< why the last step failed
  std::string _warning;      ///< what should be known although nothing failed
  TlsClient _tls;
  bool _own_tls = false;  ///< librtmp's TLS session is the one made by `_tls`
  std::atomic<bool> _connected{false};

  sync::Mutex _mutex;  ///< held for moments only; Watcher's is taken under it
  Activity _activity GUARDED_BY(_mutex) = Activity::Idle;
  bool _cancelled GUARDED_BY(_mutex) = false;
  Watcher::Clock::time_point _attempt_ends GUARDED_BY(_mutex);
  Watcher::Id _watch GUARDED_BY(_mutex) = 0;
  int _control GUARDED_BY(_mutex) = -1;  ///< a duplicate of the connection's socket
};

}  // namespace nimbo::plugin
