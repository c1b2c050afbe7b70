#include "plugin/session/RtmpSession.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "common/SigPipeGuard.h"
#include "plugin/session/Connector.h"
#include "plugin/session/GatheredWrite.h"
#include "plugin/session/LibrtmpLog.h"
#include "plugin/session/LibrtmpTls.h"

namespace nimbo::plugin {

namespace {

// Bits of a session's protocol; librtmp names them in a header that it does not install.
constexpr int ProtocolHttp = 0x01;
constexpr int ProtocolEncrypted = 0x02;
constexpr int ProtocolTls = 0x04;

std::string ToString(const AVal& value) {
  return {value.av_val, static_cast<std::size_t>(value.av_len)};
}

constexpr char NoDescriptor[] = "there is no descriptor or thread left";

/// Host and port of an address whose host is an IPv6 address in brackets (RFC 3986, 3.2.2), which
/// librtmp does not read; left alone for every other address.
void ReadBracketedHost(const std::string& url, std::string& host, unsigned& port) {
  const std::size_t scheme = url.find("://[");
  const std::size_t end = scheme == std::string::npos ? scheme : url.find(']', scheme);
  if (end == std::string::npos) return;
  const std::size_t start = scheme + 4;
  host = url.substr(start, end - start);
  constexpr unsigned long MostPorts = 65535;
  const bool hasPort = end + 1 < url.size() && url[end + 1] == ':';
  const unsigned long given = hasPort ? std::strtoul(url.c_str() + end + 2, nullptr, 10) : 0;
  if (given > 0 && given <= MostPorts) port = static_cast<unsigned>(given);
}

std::string Seconds(std::chrono::milliseconds time) {
  constexpr int Tenths = 100;
  const long long tenths = time.count() / Tenths;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
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

bool RtmpSession::Begin(Activity activity) {
  // librtmp repeats a TLS write that failed while it finds an old EINTR here.
  errno = 0;
  const sync::Lock lock(_mutex);
  _activity = activity;
  if (_control >= 0) {
    const auto now = Watcher::Clock::now();
    if (activity == Activity::Closing) Bound(now + Limits().close);
    if (activity == Activity::Sending && _cancelled) Bound(now + Limits().cancelledSend);
  }
  return activity != Activity::Opening || !_cancelled;
}

void RtmpSession::End() {
  const sync::Lock lock(_mutex);
  // The watch of an attempt goes on from one of its steps to the next.
  if (_activity != Activity::Opening) EndWatch();
  _activity = Activity::Idle;
}

void RtmpSession::Bound(Watcher::Clock::time_point deadline) {
  if (_watch) {
    Watcher::Globle().Hasten(_watch, deadline);
  } else {
    _watch = Watcher::Globle().Add(_control, deadline);
  }
}

SessionLimits& RtmpSession::Limits() {
  static SessionLimits limits;
  return limits;
}

// ---- set-up -------------------------------------------------------------------------------------

bool RtmpSession::Allocate() {
  Free();
  _remark.clear();
  _warning.clear();
  _rtmp = RTMP_Alloc();
  if (!_rtmp) return false;
  {
    // librtmp sets its TLS up at first use, without a lock of its own.
    static sync::Mutex firstUse;
    const sync::Lock lock(firstUse);
    RTMP_Init(_rtmp);
  }
  _rtmp->Link.timeout = TimeoutSeconds;
  return true;
}

bool RtmpSession::SetupUrl(const char* url) {
  if (!_rtmp || !url) return false;
  const LibrtmpLog log;
  _url = url;
  _shown = url;
  const bool usable = RTMP_SetupURL(_rtmp, _url.data()) != 0;
  _stream_name = ToString(_rtmp->Link.playpath);
  // A send that fails while librtmp answers the server's first result closes the connection and
  // frees the name; the next command in the same answer would still read it.
  _rtmp->Link.playpath.av_val = _stream_name.data();
  if (!usable) {
    const std::string reason = log.Reason();
    return Fail("cannot use the address \"" + _shown + "\"" +
                (reason.empty() ? std::string() : ": " + reason));
  }
  if (_rtmp->Link.playpath.av_len > MaxStreamName) {
    return Fail("the stream name has " + std::to_string(_rtmp->Link.playpath.av_len) +
                " characters; at most " + std::to_string(MaxStreamName) + " can be published");
  }
  return true;
}

void RtmpSession::EnableWrite() {
  if (_rtmp) RTMP_EnableWrite(_rtmp);
}

// ---- connecting ---------------------------------------------------------------------------------

bool RtmpSession::DialsItself() const {
#ifdef RTMP_STOCK_TRANSPORT
  return true;
#else
  const RTMP_LNK& link = _rtmp->Link;
  if (link.protocol & (ProtocolHttp | ProtocolEncrypted)) return true;
  if (link.sockshost.av_len || link.pubUser.av_len) return true;
  return (link.protocol & ProtocolTls) && !LibrtmpUsesGnuTls();
#endif
}

void RtmpSession::Hurry([[maybe_unused]] LibrtmpLog& log) {
#ifndef RTMP_STOCK_TRANSPORT
  log.OnLine([this] {
    if (_rtmp->m_sb.sb_socket >= 0) Connector::AcknowledgeNow(_rtmp->m_sb.sb_socket);
  });
#endif
}

bool RtmpSession::Connect() {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  LibrtmpLog log;
  Hurry(log);
  const Operation operation(*this, Activity::Opening);
  const bool connected = operation.Allowed() && (DialsItself() ? ConnectByLibrtmp() : ConnectOwn());
  // The connection only counts once the stream is set up.
  return connected || Note(Explain(log.Reason()));
}

bool RtmpSession::ConnectByLibrtmp() {
  const RTMP_LNK& link = _rtmp->Link;
  if ((link.protocol & ProtocolTls) && link.pubUser.av_len && TlsTrust::FromEnvironment().verify) {
    return Fail(
        "credentials on rtmps go over a connection whose certificate librtmp does not "
        "check; set RTMP_TLS_VERIFY=0 to accept that");
  }
  if ((link.protocol & ProtocolTls) && TlsTrust::FromEnvironment().verify) {
    _warning = "the server's certificate is not checked: librtmp makes this connection itself";
  }
  if (!RTMP_Connect(_rtmp, nullptr)) return false;
  {
    const sync::Lock lock(_mutex);
    _attempt_ends = Watcher::Clock::now() + Limits().attempt;
  }
  if (Adopt(_rtmp->m_sb.sb_socket) && WatchAttempt(_rtmp->m_sb.sb_socket)) return true;
  RTMP_Close(_rtmp);
  return Fail(NoDescriptor);
}

bool RtmpSession::ConnectOwn() {
  std::string host = ToString(_rtmp->Link.hostname);
  unsigned port = _rtmp->Link.port;
  ReadBracketedHost(_shown, host, port);
  const auto started = [this] {
    const sync::Lock lock(_mutex);
    _attempt_ends = Watcher::Clock::now() + Limits().attempt;
  };
  const Connector::Result result =
      Connector::Connect(host, port, Limits().answer, Limits().stalledSend, started,
                         [this](int socket) { return WatchAttempt(socket); });
  if (result.socket < 0) return Fail(result.problem);
  if (!Adopt(result.socket)) {
    close(result.socket);
    return Fail(NoDescriptor);
  }

  // From here on the socket is librtmp's, which closes it when a step fails.
  _rtmp->m_sb.sb_socket = result.socket;
  _rtmp->m_sb.sb_timedout = 0;
  _rtmp->m_pausing = 0;
  _rtmp->m_fDuration = 0;
  _rtmp->m_bSendCounter = 1;
  if (_rtmp->Link.protocol & ProtocolTls) {
    if (!MakeTls(host, result.socket)) {
      RTMP_Close(_rtmp);
      return false;
    }
    // Keeps librtmp from making a TLS session of its own.
    _rtmp->Link.protocol &= ~ProtocolTls;
  }
  return RTMP_Connect1(_rtmp, nullptr) != 0;
}

bool RtmpSession::MakeTls(const std::string& host, int socket) {
  std::string problem;
  std::string warning;
  if (!_tls.Connect(host, socket, TlsTrust::FromEnvironment(), problem, warning)) {
    return Fail(problem);
  }
  _warning = warning;
  _rtmp->m_sb.sb_ssl = _tls.Lend();
  _own_tls = true;
  return true;
}

bool RtmpSession::WatchAttempt(int socket) {
  const sync::Lock lock(_mutex);
  EndWatch();
  if (_cancelled || Watcher::Clock::now() >= _attempt_ends) return false;
  _watch = Watcher::Globle().Add(socket, _attempt_ends);
  return _watch != 0;
}

bool RtmpSession::Adopt(int socket) {
#ifndef RTMP_STOCK_TRANSPORT
  Connector::SetOptions(socket, Limits().answer, Limits().stalledSend);
#endif
  const sync::Lock lock(_mutex);
  if (_control >= 0) close(_control);
  _control = fcntl(socket, F_DUPFD_CLOEXEC, 0);
  return _control >= 0;
}

bool RtmpSession::ConnectStream() {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  LibrtmpLog log;
  Hurry(log);
  // librtmp does not take a refused publish for an answer and goes on waiting.
  log.OnRefusal([this] { shutdown(_rtmp->m_sb.sb_socket, SHUT_RDWR); });
  const Operation operation(*this, Activity::Opening);
  const int before = _rtmp->m_sb.sb_socket;
  bool streaming = operation.Allowed() && RTMP_ConnectStream(_rtmp, 0) != 0;
  // With credentials librtmp dials once more meanwhile.
  if (streaming && _rtmp->m_sb.sb_socket != before) streaming = Adopt(_rtmp->m_sb.sb_socket);
  if (streaming) {
    const sync::Lock lock(_mutex);
    EndWatch();
  } else {
    Explain(log.Reason());
  }
  Note(streaming);
  // A connection without a stream is only good for the goodbye.
  if (!streaming) _connected.store(false, std::memory_order_relaxed);
  return streaming;
}

bool RtmpSession::Explain(const std::string& reason) {
  if (_remark.empty()) Fail(reason.empty() ? "the server does not answer" : reason);
  const sync::Lock lock(_mutex);
  if (_cancelled) {
    _remark = "cancelled";
  } else if (_watch && Watcher::Clock::now() >= _attempt_ends) {
    _remark = "no connection within " + Seconds(Limits().attempt) + ": " + _remark;
  }
  return false;
}

// ---- ending -------------------------------------------------------------------------------------

void RtmpSession::Close() {
  if (!_rtmp) return;
  const SigPipeGuard guard;
  SigPipeGuard::Suspect();
  const LibrtmpLog log;
  DiscardInbound();
  {
    const Operation operation(*this, Activity::Closing);
    const bool live = IsConnected();
    RTMP_Close(_rtmp);
    if (live) AwaitEnd();
  }
  _own_tls = false;
  _tls.Reset();
  Note(true);
}

void RtmpSession::AwaitEnd() {
  int control = -1;
  {
    const sync::Lock lock(_mutex);
    control = _control;
  }
  if (control < 0) return;
  // Closing with unread data pending would reset the connection and could cost the server the tail
  // of what was sent.
  shutdown(control, SHUT_WR);
  char discarded[1024];
  while (recv(control, discarded, sizeof discarded, 0) > 0) {
  }
}

void RtmpSession::Free() {
  if (!_rtmp) return;
  // Frees what the session holds besides itself, which RTMP_Free leaves behind.
  Close();
  // What options in the address have added is left to whoever frees the session.
  AMF_Reset(&_rtmp->Link.extras);
  if (_rtmp->Link.sockshost.av_len) std::free(_rtmp->Link.sockshost.av_val);
  RTMP_Free(_rtmp);
  _rtmp = nullptr;
  _url.clear();
}

void RtmpSession::Disconnect() {
  if (!_rtmp) return;
  const SigPipeGuard guard;
  // A stream that is live answers at once; one that is not has no connection to wait for.
  if (RTMP_ConnectStream(_rtmp, 0) == 1) {
    Close();
    RTMP_DeleteStream(_rtmp);
  }
  Free();
}

void RtmpSession::Cancel() {
  const sync::Lock lock(_mutex);
  _cancelled = true;
  const auto now = Watcher::Clock::now();
  if (_activity == Activity::Opening) {
    Watcher::Globle().Hasten(_watch, now);
  } else if (_activity == Activity::Sending && !_watch && _control >= 0) {
    _watch = Watcher::Globle().Add(_control, now + Limits().cancelledSend);
  }
}

void RtmpSession::Resume() {
  const sync::Lock lock(_mutex);
  _cancelled = false;
}

void RtmpSession::EndWatch() {
  Watcher::Globle().Remove(_watch);
  _watch = 0;
}

// ---- inbound ------------------------------------------------------------------------------------

void RtmpSession::DiscardInbound() {
#ifndef RTMP_STOCK_TRANSPORT
  // Over HTTP librtmp reads the answers to its own posts.
  if (!IsConnected() || (_rtmp->Link.protocol & ProtocolHttp)) return;
  // Enough to keep up with any server, and an end to one that never stops.
  constexpr int MostReads = 16;
  char discarded[4096];
  for (int reads = 0; reads < MostReads; ++reads) {
    const long size = ReadInbound(discarded, sizeof discarded);
    if (size == EndOfStream) {
      const SigPipeGuard guard;
      const LibrtmpLog log;
      const Operation operation(*this, Activity::Closing);
      RTMP_Close(_rtmp);
      Note(false);
      return;
    }
    if (size == NothingYet) return;
    // A socket that gave less than it could has no more.
    if (!_own_tls && static_cast<std::size_t>(size) < sizeof discarded) return;
  }
#endif
}

long RtmpSession::ReadInbound(char* buffer, std::size_t size) {
  if (_own_tls) {
    auto* tls = static_cast<gnutls_session_t>(_rtmp->m_sb.sb_ssl);
    _tls.NonBlockingReads(true);
    const ssize_t result = gnutls_record_recv(tls, buffer, size);
    _tls.NonBlockingReads(false);
    if (result >= 0) return result;
    return gnutls_error_is_fatal(static_cast<int>(result)) ? EndOfStream : NothingYet;
  }
  // Under a TLS session of librtmp's own the end of the stream can be seen, its bytes not read.
  const int flags = MSG_DONTWAIT | (_rtmp->m_sb.sb_ssl ? MSG_PEEK : 0);
  const ssize_t result = recv(_rtmp->m_sb.sb_socket, buffer, size, flags);
  if (result > 0 && _rtmp->m_sb.sb_ssl) return NothingYet;
  if (result >= 0) return result;
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? NothingYet : EndOfStream;
}

// ---- sending ------------------------------------------------------------------------------------

bool RtmpSession::Send(RTMPPacket& packet, bool queue) {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  const Operation operation(*this, Activity::Sending);
  return Note(RTMP_SendPacket(_rtmp, &packet, queue ? 1 : 0) != 0);
}

bool RtmpSession::CanSendInPlace() const {
#ifdef RTMP_STOCK_TRANSPORT
  return false;
#else
  return _rtmp && !DialsItself() && (_own_tls || !_rtmp->m_sb.sb_ssl);
#endif
}

bool RtmpSession::SendInPlace(int channel, MessageType type, std::uint32_t timestamp, Bytes head,
                              Bytes tail) {
  if (!_rtmp) return false;
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
    const LibrtmpLog log;
    // Nothing more can be said on a connection that takes nothing, so the goodbye must not wait.
    shutdown(_rtmp->m_sb.sb_socket, SHUT_RDWR);
    RTMP_Close(_rtmp);
  }
  return Note(sent);
}

bool RtmpSession::SendControl(short event, unsigned int value, unsigned int time) {
  if (!_rtmp) return false;
  const SigPipeGuard guard;
  const LibrtmpLog log;
  const Operation operation(*this, Activity::Sending);
  return Note(RTMP_SendCtrl(_rtmp, event, value, time) != 0);
}

void RtmpSession::SetOutChunkSize(int size) {
  if (_rtmp) _rtmp->m_outChunkSize = size;
}

// ---- results ------------------------------------------------------------------------------------

bool RtmpSession::Note(bool result) {
  if (!result) SigPipeGuard::Suspect();
  const bool connected = IsConnected();
  _connected.store(connected, std::memory_order_relaxed);
  if (!connected) {
    const sync::Lock lock(_mutex);
    if (_control >= 0) close(_control);
    _control = -1;
  }
  return result;
}

bool RtmpSession::Fail(const std::string& reason) {
  _remark = HideSecrets(reason, _shown, _stream_name);
  return false;
}

std::string RtmpSession::TakeRemark() {
  const std::string warning = std::exchange(_warning, {});
  const std::string remark = std::exchange(_remark, {});
  return remark.empty() ? warning : remark;
}

}  // namespace nimbo::plugin
