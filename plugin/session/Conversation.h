#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <librtmp/rtmp.h>

#include "common/Status.h"
#include "plugin/bytes/Amf0.h"
#include "plugin/bytes/MessageReader.h"
#include "plugin/session/SessionOptions.h"

namespace nimbo::plugin {

/// What is said on one connection: the set-up from the handshake to the accepted publish, and what
/// the server says afterwards. Reads itself and trusts nothing: librtmp, which makes the answers,
/// is handed only those messages that it needs and that were found well formed.
class Conversation {
 public:
  struct Read {
    std::size_t size = 0;
    bool end = false;  ///< the server, or the connection, has ended
    bool dry = false;  ///< nothing more is there by now
  };
  /// One read of the connection. With `wait` it brings something unless its time is up.
  using Receive = std::function<Read(unsigned char* buffer, std::size_t size, bool wait)>;

  /// `session` is connected and stays so, unless librtmp closes it, until Begin or End.
  void Begin(RTMP& session, Receive receive, const SessionOptions& options);
  /// From now on what the server says is only read, not understood: for a connection whose set-up
  /// librtmp makes itself, or whose set-up has failed.
  void Deafen();
  void End();

  /// The handshake (RTMP 1.0, 5.2) and the command "connect".
  Status Greet();
  /// Answers the server until it has accepted the publish.
  Status AwaitPublish();
  /// Reads what the server has said by now, without waiting and without an answer. Fails when it
  /// has ended the connection or the stream.
  Status Listen();

  /// Whether the server waits for an answer to what was heard; only where the options say so.
  bool Owes() const { return _ping || _report; }
  /// Gives it. False when it cannot be sent.
  bool GiveAnswers();
  /// Whether the server has asked for a new connection since it was last taken.
  bool AsksReconnect() const { return _reconnect.made; }
  ReconnectRequest TakeReconnect() { return std::exchange(_reconnect, {}); }
  /// The codecs that the server says it takes; empty when it does not say.
  const std::vector<std::string>& Codecs() const { return _codecs; }

 private:
  /// What is waited for.
  enum class Stage { Handshake, Connect, CreateStream, Publish, Live };
  /// What a message of the server means.
  struct Meaning {
    bool handOn = false;  ///< librtmp knows what to do with it
    bool ends = false;    ///< of the connection or the stream
    std::string words;    ///< why it ends
  };

  Status ReadWhole(unsigned char* out, std::size_t size);
  /// Fills the empty buffer. Fails when nothing came.
  Status Fill();
  /// Takes parts of chunks from the buffer until a message is complete or the buffer is empty.
  MessageReader::Outcome Parse(InboundMessage& message);
  /// Counts what was read as librtmp does, which acknowledges it in time (RTMP 1.0, 5.4.3).
  bool Account(std::size_t size);
  bool Report();
  /// Takes note of what the server expects an answer to while it takes the stream.
  void Remember(const InboundMessage& message);
  /// Takes a message of the set-up. Fails when it ends the attempt.
  Status Answer(const InboundMessage& message);
  Meaning Understand(const InboundMessage& message);
  Meaning UnderstandControl(const InboundMessage& message) const;
  Meaning UnderstandCommand(const ServerCommand& command);
  Meaning UnderstandResult(const ServerCommand& command);
  /// The call that an answer belongs to; empty when there is none.
  std::string Called(const ServerCommand& command) const;
  Status Ended() const;
  Status NoAnswer() const;
  void HandOn(const InboundMessage& message);

  RTMP* _session = nullptr;
  Receive _receive;
  MessageReader _reader;
  Stage _stage = Stage::Handshake;
  bool _deaf = false;
  bool _strange = false;  ///< the server has sent a command that is none
  SessionOptions _options;
  bool _ping = false;  ///< is to be answered
  std::uint32_t _ping_time = 0;
  bool _report = false;       ///< what was received is to be acknowledged
  std::uint32_t _window = 0;  ///< bytes that the server sends unacknowledged; 0: unknown
  ReconnectRequest _reconnect;
  std::vector<std::string> _codecs;
  std::size_t _set_up_read = 0;  ///< bytes read before the publish was accepted
  unsigned char _buffer[4096];
  std::size_t _begin = 0;  ///< of what has not been used yet
  std::size_t _end = 0;
};

}  // namespace nimbo::plugin
