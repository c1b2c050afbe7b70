#include "tests/support/IngestServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace nimbo::test {
namespace {

// RTMP 1.0, section 5.2: the handshake.
constexpr std::size_t HandshakeSize = 1536;
constexpr unsigned char RtmpVersion = 3;

constexpr unsigned CommandChannel = 3;
constexpr std::uint32_t StreamId = 1;
constexpr int Backlog = 64;
constexpr std::chrono::hours Forever{24};
constexpr std::size_t SlowRead = 512;

/// A loopback address of either family: port and family are at the same place in both.
struct Loopback {
  Loopback(bool ipv6, int port) : size(ipv6 ? sizeof v6 : sizeof v4) {
    v6.sin6_family = ipv6 ? AF_INET6 : AF_INET;
    v6.sin6_port = htons(static_cast<std::uint16_t>(port));
    ipv6 ? void(v6.sin6_addr = in6addr_loopback)
         : void(v4.sin_addr.s_addr = htonl(INADDR_LOOPBACK));
  }
  union {
    sockaddr_in6 v6 = {};
    sockaddr_in v4;
    sockaddr any;
  };
  socklen_t size;
};

std::string UrlOf(int port) { return "rtmp://127.0.0.1:" + std::to_string(port) + "/live/stream"; }

template <class Condition>
std::vector<Message> Select(const std::vector<Message>& messages, Condition condition) {
  std::vector<Message> found;
  std::copy_if(messages.begin(), messages.end(), std::back_inserter(found), condition);
  return found;
}

}  // namespace

int BoundSocket(bool ipv6, int& port) {
  const int descriptor = socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  // A free port must be nobody else's, not even one that a process only holds.
  const int reuse = port != 0 ? 1 : 0;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof reuse);
  Loopback address(ipv6, port);
  if (bind(descriptor, &address.any, address.size) != 0) {
    close(descriptor);
    throw std::runtime_error("cannot bind a loopback port");
  }
  getsockname(descriptor, &address.any, &address.size);
  port = ntohs(address.v6.sin6_port);
  return descriptor;
}

std::vector<Message> Record::OfType(std::uint8_t type) const {
  return Select(messages, [type](const Message& message) { return message.type == type; });
}

std::vector<Message> Record::Media() const {
  return Select(messages, [](const Message& message) { return message.IsMedia(); });
}

std::vector<std::string> Record::CommandNames() const {
  std::vector<std::string> names;
  for (const Command& command : commands) names.push_back(command.name);
  return names;
}

/// One publisher. Its thread reads and answers; the record is shared under the server's lock.
class IngestServer::Connection {
 public:
  Connection(IngestServer& server, std::shared_ptr<Transport> own, const Script& script)
      : transport(std::move(own)), _server(server), _script(script), _io(transport.get()) {
    _thread = std::thread([this] { Run(); });
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { _thread.join(); }

  // Under the server's lock.
  Record record;
  std::shared_ptr<Transport> transport;  ///< null when the connection has ended

 private:
  /// Thrown to end the thread's work, from wherever it stands.
  struct Over {};

  template <class F>
  void Update(F change) {
    {
      const std::lock_guard<std::mutex> lock(_server._mutex);
      change(record);
    }
    _server._changed.notify_all();
  }

  void Run() {
    try {
      Serve();
    } catch (const Over&) {
    }
    _io->Close();
    Update([this](Record& to) {
      to.ended = true;
      transport.reset();
    });
  }

  [[noreturn]] void Complain(const std::string& error) {
    Update([&](Record& to) { to.error = error; });
    throw Over();
  }

  void Serve() {
    Reach(Point::Accepted);
    if (!_io->Handshake()) throw Over();
    const Bytes hello = ReadExactly(1 + HandshakeSize);
    if (hello[0] != RtmpVersion) Complain("not RTMP version 3");
    if (Reach(Point::Hello) == Turn::Silence) Pause(Forever);
    Bytes answer = hello;  // version and S1, for which any bytes do, then S2, which echoes C1
    answer.insert(answer.end(), hello.begin() + 1, hello.end());
    Say(answer);
    const Bytes echo = ReadExactly(HandshakeSize);
    Update([&](Record& to) {
      to.greeting = hello;
      to.echo = echo;
    });
    ChunkReader reader;
    const bool exact = std::any_of(_script.rules.begin(), _script.rules.end(),
                                   [](const Rule& rule) { return rule.beyond > 0; });
    for (;;) {
      unsigned char buffer[16384];
      const bool slow = _script.rate > 0 && _media > 0;
      const std::size_t size = ReadSome(buffer, exact ? 1 : slow ? SlowRead : sizeof buffer);
      if (slow) KeepPace(size);
      if (_media > 0) Reach(Point::Media, _media, ++_beyond);
      if (!reader.Feed(buffer, size, [this](Message& message) { Take(message); })) {
        Complain(reader.Error());
      }
    }
  }

  std::size_t ReadSome(unsigned char* buffer, std::size_t size) {
    const ssize_t got = _io->Read(buffer, size);
    if (got <= 0) throw Over();
    const auto count = static_cast<std::size_t>(got);
    Update([count](Record& to) { to.bytes += count; });
    return count;
  }

  Bytes ReadExactly(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t have = 0; have < size;) have += ReadSome(bytes.data() + have, size - have);
    return bytes;
  }

  /// Ends the thread's work early when the server ends.
  void Pause(std::chrono::nanoseconds duration) {
    std::unique_lock<std::mutex> lock(_server._mutex);
    if (_server._changed.wait_for(lock, duration, [this] { return _server._stopped; })) {
      throw Over();
    }
  }

  /// Waits until so many bytes more may have been read. What a machine is late is made up for.
  void KeepPace(std::size_t size) {
    using Clock = std::chrono::steady_clock;
    const auto now = Clock::now();
    if (_due == Clock::time_point()) _due = now;
    _due += std::chrono::nanoseconds(std::chrono::seconds(1)) * size / _script.rate;
    if (_due > now) Pause(_due - now);
  }

  /// Sends an answer at the script's pace.
  void Say(const Bytes& bytes) {
    if (_script.cut > 0 && _said + bytes.size() >= _script.cut) {
      const auto left = static_cast<std::ptrdiff_t>(_script.cut - _said);
      _io->Write(Bytes(bytes.begin(), bytes.begin() + left));
      _io->Reset();
      throw Over();
    }
    _said += bytes.size();
    const std::size_t piece = _script.trickle.count() > 0 ? 1 : bytes.size();
    for (auto at = bytes.begin(); at != bytes.end(); at += static_cast<std::ptrdiff_t>(piece)) {
      if (!_io->Write(Bytes(at, at + static_cast<std::ptrdiff_t>(piece)))) throw Over();
      if (piece == 1) Pause(_script.trickle);
    }
  }

  enum class Turn { Answer, Refuse, Silence };
  /// Does what the script says for this point, and says how to go on.
  Turn Reach(Point point, std::size_t count = 1, std::size_t beyond = 0) {
    Turn turn = Turn::Answer;
    for (const Rule& rule : _script.rules) {
      if (rule.at != point || rule.count != count || rule.beyond != beyond) continue;
      if (rule.reaction == Reaction::Refuse) return Turn::Refuse;
      if (rule.reaction == Reaction::Say) {
        if (!_io->Write(rule.say)) throw Over();
        turn = Turn::Silence;
        continue;
      }
      if (rule.reaction == Reaction::Stall) {
        Pause(rule.stall.count() > 0 ? rule.stall : Forever);
        continue;
      }
      if (rule.reaction == Reaction::Reset) _io->Reset();
      throw Over();
    }
    return turn;
  }

  void Take(Message& message) {
    Update([&](Record& to) {
      to.messages.push_back(message);
      if (message.IsMedia()) _media = ++to.mediaCount;
    });
    _beyond = 0;
    if (message.IsMedia()) Reach(Point::Media, _media);
    if (message.type != CommandMessage) return;
    const Command command = DecodeCommand(message.body);
    if (command.name.empty()) Complain("not a command");
    Update([&](Record& to) { to.commands.push_back(command); });
    Answer(command);
  }

  void Reply(const std::string& name, double transaction, std::uint32_t stream, const Bytes& end) {
    Say(EncodeMessage(CommandChannel, CommandMessage, stream,
                      EncodeCommand(name, transaction, end)));
  }

  void Answer(const Command& command) {
    const bool connect = command.name == "connect";
    if (connect || command.name == "createStream") {
      const Turn turn = Reach(connect ? Point::Connect : Point::CreateStream);
      if (turn == Turn::Silence) return;
      const Bytes answer =
          turn == Turn::Refuse
              ? EncodeInformation("error", connect ? "NetConnection.Connect.Rejected"
                                                   : "NetConnection.Call.Failed")
          : connect ? EncodeInformation("status", "NetConnection.Connect.Success")
                    : EncodeNumber(StreamId);
      Reply(turn == Turn::Refuse ? "_error" : "_result", command.transaction, 0, answer);
      if (connect) Reach(Point::Connected);
    } else if (command.name == "publish") {
      const Turn turn = Reach(Point::Publish);
      if (turn == Turn::Silence) return;
      const bool refused = turn == Turn::Refuse;
      Reply("onStatus", 0, StreamId,
            refused ? EncodeInformation("error", "NetStream.Publish.BadName")
                    : EncodeInformation("status", "NetStream.Publish.Start"));
      Update([refused](Record& to) { to.published = !refused; });
    }
  }

  IngestServer& _server;
  const Script _script;
  Transport* const _io;                        ///< the thread's own view of the transport
  std::size_t _media = 0;                      ///< messages of media
  std::size_t _beyond = 0;                     ///< bytes behind the last of them
  std::size_t _said = 0;                       ///< bytes of answers
  std::chrono::steady_clock::time_point _due;  ///< of the next read where reading is slow
  std::thread _thread;
};

IngestServer::IngestServer(std::vector<Script> scripts)
    : IngestServer(std::move(scripts), Options{}) {}

IngestServer::IngestServer(std::vector<Script> scripts, Options options)
    : _scripts(std::move(scripts)), _options(std::move(options)) {
  Listen();
}

IngestServer::~IngestServer() {
  StopListening();
  {
    const std::lock_guard<std::mutex> lock(_mutex);
    _stopped = true;
  }
  _changed.notify_all();
  for (std::size_t i = 0; i < _connections.size(); ++i) Close(i);
  _connections.clear();
}

void IngestServer::Listen() {
  _listener = BoundSocket(_options.ipv6, _port);
  // Loopback's segments of 64 kB would let a slow reader's window open in leaps only.
  constexpr int EthernetSegment = 1448;
  const bool slow = std::any_of(_scripts.begin(), _scripts.end(),
                                [](const Script& script) { return script.rate > 0; });
  if (slow) {
    setsockopt(_listener, IPPROTO_TCP, TCP_MAXSEG, &EthernetSegment, sizeof EthernetSegment);
  }
  listen(_listener, Backlog);
  _acceptor = std::thread([this] { Accept(); });
}

void IngestServer::StopListening() {
  if (!_acceptor.joinable()) return;
  shutdown(_listener, SHUT_RDWR);  // ends the accept
  _acceptor.join();
  close(_listener);
}

void IngestServer::Accept() {
  for (;;) {
    const int descriptor = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) return;
    const Script& script = _scripts[std::min(Connections(), _scripts.size() - 1)];
    if (script.receiveBuffer > 0) {
      setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &script.receiveBuffer,
                 sizeof script.receiveBuffer);
    }
    auto transport =
        _options.secure ? _options.secure(descriptor) : std::make_unique<Transport>(descriptor);
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      _connections.push_back(std::make_unique<Connection>(*this, std::move(transport), script));
    }
    _changed.notify_all();
  }
}

std::string IngestServer::Url(const std::string& app, const std::string& stream) const {
  return std::string(_options.secure ? "rtmps" : "rtmp") + "://" +
         (_options.ipv6 ? "[::1]" : "127.0.0.1") + ":" + std::to_string(_port) + "/" + app + "/" +
         stream;
}

std::size_t IngestServer::Connections() const {
  const std::lock_guard<std::mutex> lock(_mutex);
  return _connections.size();
}

bool IngestServer::WaitFor(std::size_t connection,
                           const std::function<bool(const Record&)>& condition,
                           std::chrono::nanoseconds timeout) const {
  std::unique_lock<std::mutex> lock(_mutex);
  return _changed.wait_for(lock, timeout, [&] {
    return _connections.size() > connection && condition(_connections[connection]->record);
  });
}

Record IngestServer::Get(std::size_t connection) const {
  Record copy;
  const auto take = [&copy](const Record& record) {
    copy = record;
    return true;
  };
  if (!WaitFor(connection, take)) throw std::runtime_error("there is no such connection");
  return copy;
}

bool IngestServer::WaitForMedia(std::size_t connection, std::size_t count) const {
  return WaitFor(connection, [count](const Record& record) { return record.mediaCount >= count; });
}

bool IngestServer::WaitForPublish(std::size_t connection) const {
  return WaitFor(connection, [](const Record& record) { return record.published; });
}

bool IngestServer::WaitForEnd(std::size_t connection) const {
  return WaitFor(connection, [](const Record& record) { return record.ended; });
}

std::shared_ptr<Transport> IngestServer::TransportOf(std::size_t connection) const {
  const std::lock_guard<std::mutex> lock(_mutex);
  const auto& found = _connections.at(connection);
  return found ? found->transport : nullptr;
}

void IngestServer::Send(std::size_t connection, const Bytes& bytes) {
  if (const auto transport = TransportOf(connection)) transport->Write(bytes);
}

void IngestServer::Close(std::size_t connection) {
  if (const auto transport = TransportOf(connection)) transport->Close();
}

void IngestServer::Reset(std::size_t connection) {
  if (const auto transport = TransportOf(connection)) transport->Reset();
}

void IngestServer::Forget(std::size_t connection) {
  WaitForEnd(connection);
  std::unique_ptr<Connection> forgotten;  // ends its thread without the lock
  const std::lock_guard<std::mutex> lock(_mutex);
  forgotten.swap(_connections.at(connection));
}

FullListener::FullListener() {
  constexpr int Fillers = 4;  // a queue of length 0 holds one connection
  _descriptors.push_back(BoundSocket(false, _port));
  listen(_descriptors.back(), 0);
  const Loopback address(false, _port);
  for (int i = 0; i < Fillers; ++i) {
    _descriptors.push_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    connect(_descriptors.back(), &address.any, address.size);
  }
}

FullListener::~FullListener() {
  for (const int descriptor : _descriptors) close(descriptor);
}

std::string FullListener::Url() const { return UrlOf(_port); }

UnusedPort::UnusedPort() : _descriptor(BoundSocket(false, _port)) {
  const int yes = 1;
  setsockopt(_descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
}

UnusedPort::~UnusedPort() { close(_descriptor); }

std::string UnusedPort::Url() const { return UrlOf(_port); }

}  // namespace nimbo::test
