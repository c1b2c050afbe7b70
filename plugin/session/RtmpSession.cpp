#include "plugin/session/RtmpSession.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <new>
#include <utility>

#include "common/SigPipeGuard.h"
#include "plugin/session/Connector.h"
#include "plugin/session/GatheredWrite.h"
#include "plugin/session/LibrtmpQuiet.h"
#include "plugin/session/LibrtmpTls.h"
#include "plugin/session/TcpProgress.h"
#include "plugin/session/Text.h"

namespace nimbo::plugin {

namespace {

// Bits of a session's protocol; librtmp names them in a header that it does not install.
constexpr int ProtocolHttp = 0x01;
constexpr int ProtocolEncrypted = 0x02;
constexpr int ProtocolTls = 0x04;

std::string ToString(const AVal& value) {
  return {value.av_val, static_cast<std::size_t>(value.av_len)};
}

/// Host and port of an address whose host is an IPv6 address in brackets (RFC 3986, 3.2.2), which
/// librtmp does not read; left alone for every other address.
void ReadBracketedHost(const std::string& url, std::string& host, unsigned& port) {
  const std::size_t scheme = url.find("://[");
  const std::size_t end = scheme == std::string::npos ? scheme : url.find(']', scheme);
  if (end == std::string::npos) return;
  const std::size_t start = scheme + 4;
  host = url.substr(start, end - start);
  constexpr unsigned long LastPort = 65535;
  const bool hasPort = end + 1 < url.size() && url[end + 1] == ':';
  const unsigned long given = hasPort ? std::strtoul(url.c_str() + end + 2, nullptr, 10) : 0;
  if (given > 0 && given <= LastPort) port = static_cast<unsigned>(given);
}

/// What librtmp cannot read in an address.
std::string AddressFault(const std::string& url) {
  const std::size_t scheme = url.find("://");
  if (scheme == std::string::npos || scheme + 3 == url.size()) {
    return "it must read rtmp://HOST[:PORT]/APPLICATION/STREAM, or rtmps://";
  }
  return "the options behind it must read NAME=VALUE, with names that librtmp knows";
}

Status TakesNothing() {
  return Status::Failed("the server has taken nothing for " +
                        Seconds(RtmpSession::Limits().stalledSend));
}

Status NoResources() {
  return Status::Failed("no descriptor or thread is left for the connection");
}

}  // namespace

/// A step that may block, made known to Cancel while it lasts.
class RtmpSession::Operation {
 public:
  Operation(RtmpSession& session, Activity activity)
      : _session(session), _allowed(session.Begin(activity)) {}
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;
  ~Operation() { _session.End(); }

  bool Allowed() const { return _allowed; }

 private:
  RtmpSession& _session;
  bool _allowed;
};

RtmpSession::RtmpSession() = default;

RtmpSession::~RtmpSession() {
  // Whoever made the session closes it before; one that is not closed is left as it is, without a
  // word to the server.
  static_cast<void>(_rtmp.release());
}

void RtmpSession::FreeRtmp::operator()(RTMP* rtmp) const { RTMP_Free(rtmp); }

bool RtmpSession::Begin(Activity activity) {
  // librtmp repeats a TLS write that failed while it finds an old EINTR here.
  errno = 0;
  const sync::Lock lock(_mutex);
  _activity = activity;
  Watcher& watcher = Watcher::Global();
  if (activity == Activity::Closing && _published) {
    watcher.Set(_watch, {Watcher::Clock::now() + Limits().drain, Limits().close, false, false});
    LetGo();
  } else if (activity == Activity::Closing && _cancelled) {
    EndAttempt();
  } else if (activity == Activity::Sending && _cancelled) {
    Drain();
  } else if (activity == Activity::Sending) {
    watcher.Active(_watch);
  }
  return activity != Activity::Opening || !_cancelled;
}

void RtmpSession::End() {
  const sync::Lock lock(_mutex);
  _activity = Activity::Idle;
  if (std::exchange(_drained, false)) BoundPublishing();
}

SessionLimits& RtmpSession::Limits() {
  static SessionLimits limits;
  return limits;
}

// ---- set-up -------------------------------------------------------------------------------------

bool RtmpSession::Allocate() {
  Free();
  _warning.clear();
  _rtmp.reset(RTMP_Alloc());
  if (!_rtmp) return false;
  {
    // librtmp sets its TLS up at first use, without a lock of its own.
    static sync::Mutex firstUse;
    const sync::Lock lock(firstUse);
    RTMP_Init(_rtmp.get());
  }
  _rtmp->Link.timeout = TimeoutSeconds;
  return true;
}

Status RtmpSession::SetupUrl(const char* url) {
  if (!_rtmp || !url) return Status::Failed();
  const LibrtmpQuiet quiet;
  _url = url;
  _shown = url;
  const bool usable = RTMP_SetupURL(_rtmp.get(), _url.data()) != 0;
  _stream_name = ToString(_rtmp->Link.playpath);
  // A send that fails while librtmp answers the server's first result closes the connection and
  // frees the name; the next command in the same answer would still read it.
  _rtmp->Link.playpath.av_val = _stream_name.data();
  if (!usable) {
    return Hide(
        Status::Failed("cannot use the address \"" + _shown + "\": " + AddressFault(_shown)));
  }
  if (_rtmp->Link.playpath.av_len > MaxStreamName) {
    return Status::Failed("the stream name has " + std::to_string(_rtmp->Link.playpath.av_len) +
                          " characters; at most " + std::to_string(MaxStreamName) +
                          " can be published");
  }
  return {};
}

void RtmpSession::EnableWrite() {
  if (_rtmp) RTMP_EnableWrite(_rtmp.get());
}

// ---- connecting ---------------------------------------------------------------------------------

bool RtmpSession::DialsItself() const {
#ifdef RTMP_STOCK_TRANSPORT
  return true;
#else
  const RTMP_LNK& link = _rtmp->Link;
  if (link.protocol & (ProtocolHttp | ProtocolEncrypted)) return true;
  if (link.sockshost.av_len || link.pubUser.av_len || link.SWFSize) return true;
  return (link.protocol & ProtocolTls) && !LibrtmpUsesGnuTls();
#endif
}

Status RtmpSession::Connect() {
  if (!_rtmp) return Status::Failed();
  const SigPipeGuard guard;
  const LibrtmpQuiet quiet;
  const Operation operation(*this, Activity::Opening);
  Status status = Status::Failed();
  try {
    if (operation.Allowed()) status = DialsItself() ? ConnectByLibrtmp() : ConnectOwn();
    if (!status) status = Explain(status);
  } catch (const std::bad_alloc&) {
    status = Status::Failed();  // there is no memory to say so either
  }
  if (!status) {
    if (IsConnected()) RTMP_Close(_rtmp.get());
    _conversation.End();
  }
  Note();
  return status;
}

Status RtmpSession::ConnectByLibrtmp() {
  const RTMP_LNK& link = _rtmp->Link;
  if ((link.protocol & ProtocolTls) && link.pubUser.av_len && TlsTrust::FromEnvironment().verify) {
    return Status::Failed(
        "credentials on rtmps go over a connection whose certificate librtmp does not check; set "
        "RTMP_TLS_VERIFY=0 to accept that");
  }
  if ((link.protocol & ProtocolTls) && TlsTrust::FromEnvironment().verify) {
    _warning = "the server's certificate is not checked: librtmp makes this connection itself";
  }
  const std::string host = ToString(link.hostname);
  const std::string port = std::to_string(link.port);
  if (!RTMP_Connect(_rtmp.get(), nullptr)) {
    return Status::Failed("no RTMP server could be reached at \"" + host + "\" port " + port);
  }
  {
    const sync::Lock lock(_mutex);
    _attempt_ends = Watcher::Clock::now() + Limits().attempt;
  }
  const int socket = _rtmp->m_sb.sb_socket;
  if (Status adopted = Adopt(socket); !adopted) return adopted;
  if (Status watched = WatchAttempt(socket); !watched) return watched;
  _conversation.Begin(
      *_rtmp,
      [this](unsigned char* buffer, std::size_t size, bool wait) {
        return Receive(buffer, size, wait);
      },
      _options);
  _conversation.Deafen();
  return {};
}

Status RtmpSession::ConnectOwn() {
  std::string host = ToString(_rtmp->Link.hostname);
  unsigned port = _rtmp->Link.port;
  ReadBracketedHost(_shown, host, port);
  const auto started = [this] {
    const sync::Lock lock(_mutex);
    _attempt_ends = Watcher::Clock::now() + Limits().attempt;
  };
  FileDescriptor made;
  Status status = Connector::Connect(
      host, port, Limits().answer, started,
      [this](int candidate) { return WatchAttempt(candidate); }, made);
  if (!status) return status;
  // From here on the socket is librtmp's, which closes it when a step fails.
  const int socket = made.Release();
  _rtmp->m_sb.sb_socket = socket;
  _rtmp->m_sb.sb_timedout = 0;
  _rtmp->m_pausing = 0;
  _rtmp->m_fDuration = 0;
  _rtmp->m_bSendCounter = 1;
  if (status = Adopt(socket); !status) return status;
  _connected.store(true, std::memory_order_relaxed);
  if (_rtmp->Link.protocol & ProtocolTls) {
    if (status = MakeTls(host, socket); !status) return status;
    // Keeps librtmp from making a TLS session of its own.
    _rtmp->Link.protocol &= ~ProtocolTls;
  }
  _conversation.Begin(
      *_rtmp,
      [this](unsigned char* buffer, std::size_t size, bool wait) {
        return Receive(buffer, size, wait);
      },
      _options);
  return _conversation.Greet();
}

Status RtmpSession::MakeTls(const std::string& host, int socket) {
  Status made = _tls.Connect(host, socket, TlsTrust::FromEnvironment());
  _warning = _tls.Warning();
  if (!made) return EndedByWatch() ? Status::Failed("TLS: the server does not answer") : made;
  _rtmp->m_sb.sb_ssl = _tls.Lend();
  _own_tls = true;
  return {};
}

Status RtmpSession::WatchAttempt(int socket) {
  const sync::Lock lock(_mutex);
  EndWatch();
  if (_cancelled) return Status::Failed("cancelled");
  if (Watcher::Clock::now() >= _attempt_ends) return Status::Failed("no address answers");
  Watcher::Bounds bounds;
  bounds.end = _attempt_ends;
  _watch = Watcher::Global().Add(socket, bounds);
  return _watch ? Status() : NoResources();
}

Status RtmpSession::Adopt(int socket) {
#ifndef RTMP_STOCK_TRANSPORT
  constexpr std::size_t FirstUnsent = std::size_t{64} * 1024;
  Connector::SetOptions(socket, Limits().answer, Limits().Backstop());
  Connector::BoundUnsent(socket, FirstUnsent);
#endif
  const sync::Lock lock(_mutex);
  _control.Reset(fcntl(socket, F_DUPFD_CLOEXEC, 0));
  return _control ? Status() : NoResources();
}

Status RtmpSession::ConnectStream() {
  if (!IsConnected()) return Status::Failed();
  const SigPipeGuard guard;
  const LibrtmpQuiet quiet;
  const Operation operation(*this, Activity::Opening);
  Status status = Status::Failed();
  try {
    if (operation.Allowed()) status = AwaitPublish();
    if (!status) status = Explain(status);
  } catch (const std::bad_alloc&) {
    status = Status::Failed();
  }
  if (status) {
    const sync::Lock lock(_mutex);
    BoundPublishing();
    _published = true;
    _rate_taken = 0;
    _rate_since = Watcher::Clock::now();
  } else {
    _conversation.Deafen();
  }
  Note();
  return status;
}

Status RtmpSession::AwaitPublish() {
  if (!DialsItself()) return _conversation.AwaitPublish();
  const int before = _rtmp->m_sb.sb_socket;
  if (!RTMP_ConnectStream(_rtmp.get(), 0)) {
    return Status::Failed(
        "the server did not accept the stream: wrong stream key, or the name is in use?");
  }
  // With credentials librtmp dials once more meanwhile.
  const int socket = _rtmp->m_sb.sb_socket;
  if (socket == before) return {};
  if (Status adopted = Adopt(socket); !adopted) return adopted;
  return WatchAttempt(socket);
}

Status RtmpSession::Explain(const Status& reason) {
  const sync::Lock lock(_mutex);
  if (_cancelled) return Status::Failed("cancelled");
  const std::string& why = reason.Why();
  const bool late = _watch && Watcher::Clock::now() >= _attempt_ends;
  return Hide(Status::Failed(late ? "no connection within " + Seconds(Limits().attempt) + ": " + why
                                  : why));
}

Status RtmpSession::Hide(const Status& reason) const {
  return Status::Failed(HideSecrets(reason.Why(), _shown, _stream_name));
}

std::string RtmpSession::TakeWarning() { return std::exchange(_warning, {}); }

// ---- ending -------------------------------------------------------------------------------------

void RtmpSession::Close() {
  if (!_rtmp) return;
  const SigPipeGuard guard;
  SigPipeGuard::Suspect();
  const LibrtmpQuiet quiet;
  static_cast<void>(Listen());
  {
    const Operation operation(*this, Activity::Closing);
    const bool live = IsConnected();
    RTMP_Close(_rtmp.get());
    if (live) AwaitEnd();  // of a stream; nothing else is worth a wait
  }
  Note();
}

void RtmpSession::AwaitEnd() {
  int control = -1;
  {
    const sync::Lock lock(_mutex);
    if (_published) control = _control.Get();
  }
  if (control < 0) return;
  // Closing with unread data pending would reset the connection and could cost the server the tail
  // of what was sent.
  shutdown(control, SHUT_WR);
  char discarded[1024];
  ssize_t size;
  do {
    size = recv(control, discarded, sizeof discarded, 0);
  } while (size > 0 || (size < 0 && errno == EINTR));
}

void RtmpSession::Free() {
  if (!_rtmp) return;
  // Frees what the session holds besides itself, which RTMP_Free leaves behind.
  Close();
  // What options in the address have added is left to whoever frees the session.
  AMF_Reset(&_rtmp->Link.extras);
  if (_rtmp->Link.sockshost.av_len) std::free(_rtmp->Link.sockshost.av_val);
  _rtmp.reset();
  _url.clear();
}

void RtmpSession::Disconnect() {
  if (!_rtmp) return;
  const SigPipeGuard guard;
  const LibrtmpQuiet quiet;
  // A stream that is live answers at once, and so does a session without a connection. librtmp
  // would read for any other, so it is not asked.
  const bool answers = _rtmp->m_bPlaying || !IsConnected();
  if (answers && RTMP_ConnectStream(_rtmp.get(), 0) == 1) {
    Close();
    RTMP_DeleteStream(_rtmp.get());
  }
  Free();
}

void RtmpSession::Cancel() {
  const sync::Lock lock(_mutex);
  _cancelled = true;
  if (_activity == Activity::Opening || (_activity == Activity::Closing && !_published)) {
    EndAttempt();
  } else if (_activity == Activity::Sending) {
    Drain();
  }
}

void RtmpSession::EndAttempt() {
  Watcher::Bounds now;
  now.end = Watcher::Clock::now();
  Watcher::Global().Set(_watch, now);
}

void RtmpSession::Drain() {
  if (std::exchange(_drained, true)) return;
  Watcher::Global().Set(
      _watch, {Watcher::Clock::now() + Limits().drain, Limits().cancelledSend, true, false});
  LetGo();
}

void RtmpSession::BoundPublishing() {
  Watcher::Bounds bounds;
  bounds.stall = Limits().stalledSend;
  bounds.reset = true;
  Watcher::Global().Set(_watch, bounds);
}

void RtmpSession::LetGo() {
#ifndef RTMP_STOCK_TRANSPORT
  constexpr std::size_t All = INT_MAX;
  if (_control) Connector::BoundUnsent(_control.Get(), All);
#endif
}

void RtmpSession::Resume() {
  const sync::Lock lock(_mutex);
  _cancelled = false;
  if (std::exchange(_drained, false)) BoundPublishing();
}

void RtmpSession::EndWatch() {
  Watcher::Global().Remove(_watch);
  _watch = 0;
}

// ---- inbound ------------------------------------------------------------------------------------

Status RtmpSession::Listen() {
#ifdef RTMP_STOCK_TRANSPORT
  return IsConnected() ? Status() : Status::Failed();
#else
  if (!IsConnected()) return Status::Failed();
  // Over HTTP librtmp reads the answers to its own posts.
  if (_rtmp->Link.protocol & ProtocolHttp) return {};
  Status heard;
  try {
    heard = _conversation.Listen();
    if (!heard) heard = EndedByWatch() ? TakesNothing() : Hide(heard);
    if (heard && _conversation.Owes()) heard = Answer();
  } catch (const std::bad_alloc&) {
    // What the server said is lost; what is sent to it goes on.
  }
  if (heard) return heard;
  const SigPipeGuard guard;
  SigPipeGuard::Suspect();
  const LibrtmpQuiet quiet;
  const Operation operation(*this, Activity::Closing);
  RTMP_Close(_rtmp.get());
  Note();
  return heard;
#endif
}

Status RtmpSession::Answer() {
  const SigPipeGuard guard;
  const LibrtmpQuiet quiet;
  const Operation operation(*this, Activity::Sending);
  return Sent(_conversation.GiveAnswers());
}

TcpProgress RtmpSession::Progress() {
  const sync::Lock lock(_mutex);
  return _control ? TcpProgress::Of(_control.Get()) : TcpProgress();
}

Conversation::Read RtmpSession::Receive(unsigned char* buffer, std::size_t size, bool wait) {
  Conversation::Read read = ReadInbound(buffer, size, wait);
  // An attempt whose time is up was ended here, not by the server.
  if (wait && read.end && EndedByWatch()) read.end = false;
  return read;
}

bool RtmpSession::EndedByWatch() {
  const sync::Lock lock(_mutex);
  return Watcher::Global().Ended(_watch);
}

Conversation::Read RtmpSession::ReadInbound(unsigned char* buffer, std::size_t size, bool wait) {
  if (_own_tls) {
    auto* session = static_cast<gnutls_session_t>(_rtmp->m_sb.sb_ssl);
    const TlsClient::Read read = _tls.Receive(session, buffer, size, wait);
    return {read.size, read.end, false};
  }
  // Under a TLS session of librtmp's own the end of the stream can be seen, its bytes not read.
  const bool look = _rtmp->m_sb.sb_ssl != nullptr;
  const int flags = (wait ? 0 : MSG_DONTWAIT) | (look ? MSG_PEEK : 0);
  ssize_t result;
  do {
    result = recv(_rtmp->m_sb.sb_socket, buffer, size, flags);
  } while (result < 0 && errno == EINTR);
  if (result > 0 && look) return {0, false, true};
  if (result < 0) return {0, errno != EAGAIN && errno != EWOULDBLOCK, true};
  const auto got = static_cast<std::size_t>(result);
  // A socket that gave less than it could has no more.
  return {got, got == 0, got < size};
}

// ---- sending ------------------------------------------------------------------------------------

Status RtmpSession::Send(RTMPPacket& packet, bool queue) {
  if (!_rtmp) return Status::Failed();
  const SigPipeGuard guard;
  const LibrtmpQuiet quiet;
  FollowRate();
  const Operation operation(*this, Activity::Sending);
  return Sent(RTMP_SendPacket(_rtmp.get(), &packet, queue ? 1 : 0) != 0);
}

bool RtmpSession::CanSendInPlace() const {
#ifdef RTMP_STOCK_TRANSPORT
  return false;
#else
  return _rtmp && !DialsItself() && (_own_tls || !_rtmp->m_sb.sb_ssl);
#endif
}

Status RtmpSession::SendInPlace(int channel, MessageType type, std::uint32_t timestamp, Bytes head,
                                Bytes tail) {
  if (!_rtmp) return Status::Failed();
  FollowRate();
  const Operation operation(*this, Activity::Sending);
  ChunkedMessage message(
      {channel, static_cast<unsigned char>(type), timestamp, head.size + tail.size, StreamId()},
      static_cast<std::size_t>(_rtmp->m_outChunkSize), head, tail);
  const bool sent = _own_tls
                        ? WriteGathered(static_cast<gnutls_session_t>(_rtmp->m_sb.sb_ssl), message)
                        : WriteGathered(_rtmp->m_sb.sb_socket, message);
  if (!sent) {
    // Neither of the writes above raises the signal; librtmp's goodbye does.
    const SigPipeGuard guard;
    SigPipeGuard::Suspect();
    const LibrtmpQuiet quiet;
    // Nothing more can be said on a connection that takes nothing, so the goodbye must not wait.
    shutdown(_rtmp->m_sb.sb_socket, SHUT_RDWR);
    RTMP_Close(_rtmp.get());
  }
  return Sent(sent);
}

Status RtmpSession::SendControl(short event, unsigned int value, unsigned int time) {
  if (!_rtmp) return Status::Failed();
  const SigPipeGuard guard;
  const LibrtmpQuiet quiet;
  const Operation operation(*this, Activity::Sending);
  return Sent(RTMP_SendCtrl(_rtmp.get(), event, value, time) != 0);
}

Status RtmpSession::Sent(bool sent) {
  if (sent) return {};
  bool cancelled = false;
  bool stalled = false;
  {
    const sync::Lock lock(_mutex);
    cancelled = _cancelled;
    stalled = Watcher::Global().Ended(_watch);
  }
  Note();
  if (cancelled) return Status::Failed();
  try {
    return stalled ? TakesNothing() : Status::Failed("the connection to the server is broken");
  } catch (const std::bad_alloc&) {
    return Status::Failed();
  }
}

void RtmpSession::FollowRate() {
#ifndef RTMP_STOCK_TRANSPORT
  // What a server takes in a quarter of a second keeps the link busy, and is soon gone on a slow
  // one.
  constexpr std::uint64_t LeastUnsent = std::uint64_t{32} * 1024;
  constexpr std::uint64_t MaxUnsent = std::uint64_t{512} * 1024;
  constexpr std::chrono::seconds Measured{1};
  const auto now = Watcher::Clock::now();
  const auto passed = now - _rate_since;
  if (passed < Measured) return;
  const int socket = _rtmp->m_sb.sb_socket;
  const std::uint64_t taken = TcpProgress::Of(socket).acknowledged;
  const auto perSecond = static_cast<double>(taken - std::min(taken, _rate_taken)) /
                         std::chrono::duration<double>(passed).count();
  const auto quarter = static_cast<std::uint64_t>(perSecond / 4);
  Connector::BoundUnsent(socket,
                         static_cast<std::size_t>(std::clamp(quarter, LeastUnsent, MaxUnsent)));
  _rate_taken = taken;
  _rate_since = now;
#endif
}

void RtmpSession::SetOutChunkSize(int size) {
  if (_rtmp) _rtmp->m_outChunkSize = size;
}

// ---- results ------------------------------------------------------------------------------------

void RtmpSession::Note() {
  const bool connected = IsConnected();
  _connected.store(connected, std::memory_order_relaxed);
  if (connected) return;
  SigPipeGuard::Suspect();  // the last thing that was written may have found it broken
  _conversation.End();
  _own_tls = false;
  _tls.Reset();
  const sync::Lock lock(_mutex);
  EndWatch();
  _control.Reset();
  _published = false;
}

}  // namespace nimbo::plugin
