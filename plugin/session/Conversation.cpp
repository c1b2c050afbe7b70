#include "plugin/session/Conversation.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>

#include "plugin/session/ConnectCommand.h"
#include "plugin/session/Connector.h"
#include "plugin/session/Text.h"

namespace nimbo::plugin {

namespace {

constexpr unsigned char Version = 3;
/// Length of each part of the handshake behind the version (RTMP 1.0, 5.2.3).
constexpr std::size_t SignatureSize = 1536;
/// What a server may say before it accepts the publish.
constexpr std::size_t MaxSetUp = std::size_t{1024} * 1024;
/// Reads of one look at what the server says: enough to keep up with any, and an end to one that
/// never stops.
constexpr int MaxReads = 16;

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

Status WriteWhole(RTMP& session, const unsigned char* data, std::size_t size) {
  while (size > 0) {
    const int sent = RTMPSockBuf_Send(&session.m_sb, reinterpret_cast<const char*>(data),
                                      static_cast<int>(size));
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) {
      return Status::Failed("the server closed the connection during the RTMP handshake");
    }
    data += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return {};
}

/// What a server speaks whose first byte is not RTMP's.
Status NotRtmp(unsigned char first) {
  constexpr unsigned char TlsAlert = 0x15;
  constexpr unsigned char TlsHandshake = 0x16;
  if (first == TlsAlert || first == TlsHandshake) {
    return Status::Failed("the server speaks TLS on this port: use rtmps://");
  }
  if (first == 'H' || first == '<') {
    return Status::Failed("the server answered as a web server does: this is no RTMP port");
  }
  return Status::Failed("the server does not speak RTMP: its answer begins with byte " +
                        std::to_string(first));
}

/// What the server says of itself in an answer: a code, a description, or both.
std::string WordsOf(const ServerCommand& command) {
  const std::string code = Printable(command.code);
  std::string description = Printable(command.description);
  if (code.empty()) return description;
  return description.empty() || description == code ? code : code + ": " + description;
}

/// Statuses of a stream or connection that has come to its end (RTMP 1.0, 7.2.2).
bool IsEnd(const ServerCommand& command) {
  if (command.level == "error") return true;
  for (const std::string_view end :
       {"NetStream.Publish.BadName", "NetStream.Publish.Denied", "NetStream.Publish.Rejected",
        "NetStream.Publish.Failed", "NetStream.Unpublish.", "NetStream.Failed",
        "NetStream.Play.Failed", "NetStream.Play.StreamNotFound", "NetStream.Play.Complete",
        "NetStream.Play.Stop", "NetStream.Play.UnpublishNotify", "NetConnection.Connect.Closed",
        "NetConnection.Connect.Rejected", "NetConnection.Connect.Failed",
        "NetConnection.Connect.InvalidApp", "NetConnection.Connect.AppShutdown"}) {
    if (StartsWith(command.code, end)) return true;
  }
  return false;
}

/// Statuses by which a publish, or what librtmp takes for one, is accepted.
bool IsStart(const ServerCommand& command) {
  return command.code == "NetStream.Publish.Start" || command.code == "NetStream.Play.Start" ||
         command.code == "NetStream.Play.PublishNotify";
}

std::string Hint(const ServerCommand& command) {
  return command.code == "NetStream.Publish.BadName"
             ? "; the name is in use, or the stream key is wrong"
             : "";
}

}  // namespace

void Conversation::Begin(RTMP& session, Receive receive, const SessionOptions& options) {
  End();
  _options = options;
  _session = &session;
  _receive = std::move(receive);
}

void Conversation::Deafen() {
  _deaf = true;
  _stage = Stage::Live;
}

void Conversation::End() {
  _session = nullptr;
  _receive = {};
  _reader = {};
  _stage = Stage::Handshake;
  _deaf = _strange = _ping = _report = false;
  _window = 0;
  _reconnect = {};
  _codecs.clear();
  _set_up_read = _begin = _end = 0;
}

// ---- reading ------------------------------------------------------------------------------------

Status Conversation::Ended() const {
  switch (_stage) {
    case Stage::Handshake:
      return Status::Failed(
          "the server closed the connection during the RTMP handshake: is this an RTMP port, "
          "without TLS?");
    case Stage::Connect:
      return Status::Failed(
          "the server closed the connection behind the connect command: is the application's name "
          "right?");
    case Stage::CreateStream:
      return Status::Failed("the server closed the connection before the stream was created");
    case Stage::Publish:
      return Status::Failed(
          "the server closed the connection while the stream was being published: wrong stream "
          "key, or the name is in use?");
    default:
      return Status::Failed("the server closed the connection");
  }
}

Status Conversation::NoAnswer() const {
  const char* what = "the publish";
  if (_stage == Stage::Handshake) what = "the RTMP handshake";
  if (_stage == Stage::Connect) what = "the connect command";
  if (_stage == Stage::CreateStream) what = "the request for a stream";
  return Status::Failed(std::string("the server does not answer ") + what +
                        (_strange ? "; it has sent a command that is not well formed" : ""));
}

Status Conversation::Fill() {
  const Read read = _receive(_buffer, sizeof _buffer, true);
  if (_session->m_sb.sb_socket >= 0) Connector::AcknowledgeNow(_session->m_sb.sb_socket);
  _begin = 0;
  _end = read.size;
  _set_up_read += read.size;
  if (read.size > 0) return {};
  return read.end ? Ended() : NoAnswer();
}

Status Conversation::ReadWhole(unsigned char* out, std::size_t size) {
  while (size > 0) {
    if (_begin == _end) {
      if (Status filled = Fill(); !filled) return filled;
    }
    const std::size_t part = std::min(size, _end - _begin);
    std::copy_n(_buffer + _begin, part, out);
    _begin += part;
    out += part;
    size -= part;
    if (!Account(part)) return Ended();
  }
  return {};
}

MessageReader::Outcome Conversation::Parse(InboundMessage& message) {
  while (_begin < _end) {
    const MessageReader::Step step = _reader.Read({_buffer + _begin, _end - _begin}, message);
    _begin += step.used;
    if (_stage != Stage::Live && !Account(step.used)) return MessageReader::Outcome::Broken;
    if (_stage == Stage::Live && _options.answers) {
      _session->m_nBytesIn = static_cast<int>(static_cast<std::uint32_t>(_session->m_nBytesIn) +
                                              static_cast<std::uint32_t>(step.used));
    }
    if (step.outcome != MessageReader::Outcome::More) return step.outcome;
  }
  return MessageReader::Outcome::More;
}

bool Conversation::Account(std::size_t size) {
  constexpr int Share = 10;
  _session->m_nBytesIn += static_cast<int>(size);
  if (_session->m_nBytesIn <= _session->m_nBytesInSent + _session->m_nClientBW / Share) return true;
  return Report();
}

bool Conversation::Report() {
  constexpr int ControlChannel = 2;
  constexpr std::size_t ReportSize = 4;
  unsigned char room[RTMP_MAX_HEADER_SIZE + ReportSize];
  ByteWriter(room + RTMP_MAX_HEADER_SIZE).u32(static_cast<std::size_t>(_session->m_nBytesIn));
  _session->m_nBytesInSent = _session->m_nBytesIn;
  RTMPPacket report = {};
  report.m_headerType = RTMP_PACKET_SIZE_MEDIUM;
  report.m_packetType = RTMP_PACKET_TYPE_BYTES_READ_REPORT;
  report.m_nChannel = ControlChannel;
  report.m_nBodySize = ReportSize;
  report.m_body = reinterpret_cast<char*>(room) + RTMP_MAX_HEADER_SIZE;
  return RTMP_SendPacket(_session, &report, 0) != 0;
}

// ---- set-up -------------------------------------------------------------------------------------

Status Conversation::Greet() {
  unsigned char own[1 + SignatureSize] = {};
  constexpr std::size_t TimeAndZero = 8;
  ByteWriter writer(own);
  writer.u8(Version);
  writer.u32(RTMP_GetTime());
  // Nothing depends on how random these bytes are.
  [[maybe_unused]] const ssize_t made =
      getrandom(own + 1 + TimeAndZero, SignatureSize - TimeAndZero, GRND_NONBLOCK);
  if (Status sent = WriteWhole(*_session, own, sizeof own); !sent) return sent;

  unsigned char version = 0;
  unsigned char theirs[SignatureSize];
  if (Status read = ReadWhole(&version, 1); !read) return read;
  if (version != Version) return NotRtmp(version);
  if (Status read = ReadWhole(theirs, sizeof theirs); !read) return read;
  if (Status sent = WriteWhole(*_session, theirs, sizeof theirs); !sent) return sent;
  // The echo of our own; servers have been seen that do not care to make it right.
  if (Status read = ReadWhole(theirs, sizeof theirs); !read) return read;

  _stage = Stage::Connect;
  return SendConnectCommand(*_session, _options);
}

Status Conversation::AwaitPublish() {
  while (!_session->m_bPlaying) {
    if (_begin == _end) {
      if (Status filled = Fill(); !filled) return filled;
    }
    if (_set_up_read > MaxSetUp) {
      return Status::Failed("the server sends and sends without accepting the publish");
    }
    InboundMessage message;
    const MessageReader::Outcome outcome = Parse(message);
    if (outcome == MessageReader::Outcome::Broken) {
      const char* fault = _reader.Fault();
      return fault ? Status::Failed(std::string("what the server sends is not RTMP: ") + fault)
                   : Ended();
    }
    if (outcome == MessageReader::Outcome::Message) {
      if (Status answered = Answer(message); !answered) return answered;
    }
  }
  _stage = Stage::Live;
  return {};
}

Status Conversation::Answer(const InboundMessage& message) {
  const Meaning meaning = Understand(message);
  if (meaning.ends) return Status::Failed(meaning.words);
  if (!meaning.handOn) return {};
  HandOn(message);
  // librtmp closes when it cannot send what it answers, and may take the stream for live even so.
  return RTMP_IsConnected(_session) ? Status() : Ended();
}

void Conversation::HandOn(const InboundMessage& message) {
  RTMPPacket packet = {};
  packet.m_packetType = static_cast<std::uint8_t>(message.type);
  packet.m_nChannel = message.channel;
  packet.m_nTimeStamp = message.timestamp;
  packet.m_nInfoField2 = static_cast<std::int32_t>(message.streamId);
  packet.m_nBodySize = packet.m_nBytesRead = static_cast<std::uint32_t>(message.size);
  packet.m_body = reinterpret_cast<char*>(message.body);
  RTMP_ClientPacket(_session, &packet);
}

// ---- understanding ------------------------------------------------------------------------------

Conversation::Meaning Conversation::Understand(const InboundMessage& message) {
  if (!message.body) {
    const bool command =
        message.type == MessageType::Command || message.type == MessageType::CommandAmf3;
    if (command) _strange = true;
    return {};
  }
  if (message.size == 0) return {};
  switch (message.type) {
    case MessageType::UserControl:
    case MessageType::PeerBandwidth:
      return UnderstandControl(message);
    case MessageType::Command:
    case MessageType::CommandAmf3: {
      // An AMF3 command is an AMF0 one behind a zero (RTMP 1.0, 7.1.1).
      const std::size_t front = message.type == MessageType::CommandAmf3 ? 1 : 0;
      ServerCommand command;
      if (ReadCommand({message.body + front, message.size - front}, command)) {
        return UnderstandCommand(command);
      }
      _strange = true;
      return {};
    }
    default:
      return {};
  }
}

Conversation::Meaning Conversation::UnderstandControl(const InboundMessage& message) const {
  const auto at = [&message](std::size_t place) { return unsigned{message.body[place]}; };
  constexpr std::size_t WindowSize = 4;
  if (message.type == MessageType::PeerBandwidth) {
    // Acknowledgements for every byte, which is what a window of nothing asks for, help nobody.
    constexpr std::int32_t LeastWindow = 10;
    if (message.size < WindowSize) return {};
    const std::uint32_t window = at(0) << 24 | at(1) << 16 | at(2) << 8 | at(3);
    return {static_cast<std::int32_t>(window) >= LeastWindow, false, {}};
  }
  // RTMP 1.0, 7.1.7.
  constexpr unsigned StreamEof = 1;
  constexpr unsigned PingRequest = 6;
  constexpr std::size_t EventSize = 6;
  if (message.size < EventSize) return {};
  const unsigned event = at(0) << 8 | at(1);
  if (event == PingRequest) return {true, false, {}};
  if (event == StreamEof && _stage == Stage::Live)
    return {false, true, "the server ended the stream"};
  return {};
}

Conversation::Meaning Conversation::UnderstandCommand(const ServerCommand& command) {
  const bool live = _stage == Stage::Live;
  if (command.name == "_result") return live ? Meaning{} : UnderstandResult(command);
  if (command.name == "_error") {
    const std::string called = Called(command);
    if (live || called.empty()) return {};
    const std::string words = WordsOf(command);
    return {false, true,
            "the server refused " +
                (called == "connect" ? "the connection" : "\"" + called + "\"") +
                (words.empty() ? " without a reason" : ": " + words)};
  }
  if (command.name == "onStatus") {
    if (_options.answers && command.code == "NetConnection.Connect.ReconnectRequest") {
      _reconnect = {true, std::string(command.tcUrl)};
      return {};
    }
    if (IsEnd(command)) {
      return {false, true,
              (live ? "the server ended the stream: " : "the server answered ") + WordsOf(command) +
                  Hint(command)};
    }
    return {!live && IsStart(command), false, {}};
  }
  if (command.name == "close" || command.name == "onFCUnsubscribe") {
    return {false, true, "the server asked for the connection to be closed"};
  }
  // What librtmp answers.
  const bool answered =
      command.name == "onBWDone" || command.name == "_onbwcheck" || command.name == "ping";
  return {answered, false, {}};
}

Conversation::Meaning Conversation::UnderstandResult(const ServerCommand& command) {
  const std::string called = Called(command);
  if (called == "connect") {
    // librtmp deciphers a token in blocks of eight characters, in place.
    constexpr long Block = 8;
    const long token = command.secureToken;
    const bool unusable = token == -2 || token == 0 || (token > 0 && token % Block != 0);
    if (_session->Link.token.av_len && unusable) {
      return {false, true, "the server sent a secure token that cannot be read"};
    }
    _codecs.assign(command.fourCcs.begin(), command.fourCcs.end());
    _stage = Stage::CreateStream;
  } else if (called == "createStream") {
    const bool usable = command.hasNumber && command.number >= 0 && command.number <= INT_MAX;
    if (!usable) return {false, true, "the server did not say which stream it has created"};
    _stage = Stage::Publish;
  }
  return {!called.empty(), false, {}};
}

std::string Conversation::Called(const ServerCommand& command) const {
  const double number = command.transaction;
  if (!(number >= 0 && number <= INT_MAX) || std::floor(number) != number) return {};
  for (int i = 0; i < _session->m_numCalls; ++i) {
    const RTMP_METHOD& call = _session->m_methodCalls[i];
    if (call.num == static_cast<int>(number)) {
      return {call.name.av_val, static_cast<std::size_t>(call.name.av_len)};
    }
  }
  return {};
}

// ---- afterwards ---------------------------------------------------------------------------------

Status Conversation::Listen() {
  bool dry = false;
  for (int reads = 0; reads < MaxReads && !dry; ++reads) {
    if (_begin == _end) {
      const Read read = _receive(_buffer, sizeof _buffer, false);
      if (read.end) return Ended();
      dry = read.dry || read.size == 0;
      _begin = 0;
      _end = read.size;
    }
    if (_deaf) _begin = _end;
    while (_begin < _end) {
      InboundMessage message;
      const MessageReader::Outcome outcome = Parse(message);
      // What is no RTMP is read all the same: the pictures go the other way.
      if (outcome == MessageReader::Outcome::Broken) {
        _deaf = true;
        _begin = _end;
      }
      if (outcome != MessageReader::Outcome::Message) continue;
      if (_options.answers) Remember(message);
      const Meaning meaning = Understand(message);
      if (meaning.ends) return Status::Failed(meaning.words);
    }
  }
  return {};
}

void Conversation::Remember(const InboundMessage& message) {
  constexpr std::size_t EventSize = 2;
  constexpr std::size_t NumberSize = 4;
  constexpr unsigned PingRequest = 6;
  const auto number = [&message](std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = at; i < at + NumberSize; ++i) value = value << 8 | message.body[i];
    return value;
  };
  // RTMP 1.0, 5.4.4: the server sends so much without an acknowledgement.
  if (message.type == MessageType::WindowSize && message.size >= NumberSize && message.body) {
    _window = number(0);
  }
  const bool event = message.type == MessageType::UserControl && message.body;
  if (event && message.size >= EventSize + NumberSize && message.body[0] == 0 &&
      message.body[1] == PingRequest) {
    _ping = true;
    _ping_time = number(EventSize);
  }
  // librtmp's counts, which go on from those of the set-up, are signed.
  const auto received = static_cast<std::uint32_t>(_session->m_nBytesIn);
  const auto reported = static_cast<std::uint32_t>(_session->m_nBytesInSent);
  constexpr std::uint32_t UsualWindow = 2500000;
  const std::uint32_t window = _window ? _window : UsualWindow;
  if (received - reported >= window / 2) _report = true;
}

bool Conversation::GiveAnswers() {
  constexpr short PingResponse = 7;
  const bool pong =
      !std::exchange(_ping, false) || RTMP_SendCtrl(_session, PingResponse, _ping_time, 0) != 0;
  return pong && (!std::exchange(_report, false) || Report());
}

}  // namespace nimbo::plugin
