#include "tests/support/IngestServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "tests/support/Handshake.h"

namespace nimbo::test {
namespace {

constexpr unsigned ControlChannel = 2;
constexpr unsigned CommandChannel = 3;
constexpr unsigned StreamChannel = 5;
constexpr std::uint32_t StreamId = 1;
constexpr std::uint32_t WindowSize = 2500000;
constexpr int Backlog = 64;

sockaddr_storage Loopback(bool ipv6, int port, socklen_t& size) {
  sockaddr_storage address{};
  if (ipv6) {
    auto& in = reinterpret_cast<sockaddr_in6&>(address);
    in.sin6_family = AF_INET6;
    in.sin6_addr = in6addr_loopback;
    in.sin6_port = htons(static_cast<std::uint16_t>(port));
    size = sizeof in;
  } else {
    auto& in = reinterpret_cast<sockaddr_in&>(address);
    in.sin_family = AF_INET;
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    in.sin_port = htons(static_cast<std::uint16_t>(port));
    size = sizeof in;
  }
  return address;
}

/// Binds a socket to a loopback port (0: a free one), which is stored.
int BoundSocket(bool ipv6, int& port) {
  const int descriptor = socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  socklen_t size = 0;
  sockaddr_storage address = Loopback(ipv6, port, size);
  if (bind(descriptor, reinterpret_cast<sockaddr*>(&address), size) != 0) {
    throw std::runtime_error("cannot bind a loopback port");
  }
  getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size);
  port = ntohs(reinterpret_cast<sockaddr_in&>(address).sin_port);  // same place in both families
  return descriptor;
}

AmfValue Information(const char* level, const char* code) {
  return AmfValue({{"level", level}, {"code", code}, {"description", code}});
}

}  // namespace

std::vector<Message> Record::OfType(std::uint8_t type) const {
  std::vector<Message> found;
  for (const Message& message : messages) {
    if (message.type == type) found.push_back(message);
  }
  return found;
}

std::vector<Message> Record::Media() const {
  std::vector<Message> found;
  for (const Message& message : messages) {
    if (message.IsMedia()) found.push_back(message);
  }
  return found;
}

std::size_t Record::MediaCount() const {
  return static_cast<std::size_t>(std::count_if(
      messages.begin(), messages.end(), [](const Message& message) { return message.IsMedia(); }));
}

std::vector<std::string> Record::CommandNames() const {
  std::vector<std::string> names;
  for (const Command& command : commands) names.push_back(command.name);
  return names;
}

/// One publisher. Its thread reads and answers; the record is shared under the server's lock.
class IngestServer::Connection {
 public:
  Connection(IngestServer& server, std::unique_ptr<Transport> transport, Script script)
      : _server(server), _script(std::move(script)), _transport(std::move(transport)) {}

  void Begin() {
    _thread = std::thread([this] { Run(); });
  }
  /// Ends the connection and waits for its thread.
  void End() {
    {
      const std::lock_guard<std::mutex> lock(_server._mutex);
      _stopped = true;
    }
    _server._changed.notify_all();
    Break(false);
    _thread.join();
  }
  void Break(bool reset) {
    if (const auto transport = Open()) reset ? transport->Reset() : transport->Close();
  }
  void Write(const Bytes& bytes) {
    if (const auto transport = Open()) transport->Write(bytes);
  }

  Record record;  ///< under the server's lock

 private:
  /// Thrown to end the thread's work, from wherever it stands.
  struct Over {};

  /// Null when the connection has ended; its descriptor is then free.
  std::shared_ptr<Transport> Open() {
    const std::lock_guard<std::mutex> lock(_server._mutex);
    return _transport;
  }

  template <class F>
  void Update(F change) {
    {
      const std::lock_guard<std::mutex> lock(_server._mutex);
      change(record);
    }
    _server._changed.notify_all();
  }

  void Run() {
    const std::shared_ptr<Transport> transport = Open();
    _io = transport.get();
    try {
      Serve();
    } catch (const Over&) {
    }
    _io->Close();
    Update([this](Record& to) {
      to.ended = true;
      _transport.reset();
    });
  }

  void Serve() {
    Reach(Point::Accepted);
    if (!_io->Handshake()) throw Over();
    Reach(Point::SecureLayer);
    const Bytes hello = ReadExactly(1 + HandshakeSize);
    Reach(Point::C0C1);
    const auto answer = AnswerHandshake(hello);
    if (!answer) return Update([](Record& to) { to.error = "not RTMP version 3"; });
    Say(*answer);
    ReadExactly(HandshakeSize);
    Reach(Point::C2);
    ChunkReader reader;
    for (;;) {
      unsigned char buffer[16384];
      const std::size_t size = ReadSome(buffer, sizeof buffer);
      if (!reader.Feed(buffer, size, [this](Message& message) { Take(message); })) {
        return Update([&](Record& to) { to.error = reader.Error(); });
      }
    }
  }

  std::size_t ReadSome(unsigned char* buffer, std::size_t size) {
    const ssize_t got = _io->Read(buffer, size);
    if (got <= 0) throw Over();
    const auto count = static_cast<std::size_t>(got);
    std::size_t total = 0;
    Update([&](Record& to) { total = to.bytes += count; });
    for (const Rule& rule : _script.rules) {
      if (rule.at == Point::ByteCount && total >= rule.count && total - count < rule.count) {
        React(rule);
      }
    }
    return count;
  }

  Bytes ReadExactly(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t have = 0; have < size;) have += ReadSome(bytes.data() + have, size - have);
    return bytes;
  }

  /// Sends an answer at the script's pace.
  void Say(const Bytes& bytes) {
    if (_mute) return;
    if (_script.trickle.count() == 0) {
      if (!_io->Write(bytes)) throw Over();
      return;
    }
    for (const unsigned char byte : bytes) {
      if (!_io->Write({byte})) throw Over();
      std::unique_lock<std::mutex> lock(_server._mutex);
      if (_server._changed.wait_for(lock, _script.trickle, [this] { return _stopped; })) {
        throw Over();
      }
    }
  }

  /// Does what the script says for this point. True when the publisher is to be refused.
  bool Reach(Point point, std::size_t count = 1) {
    bool refuse = false;
    for (const Rule& rule : _script.rules) {
      if (rule.at == point && rule.count == count) refuse |= React(rule);
    }
    return refuse;
  }

  bool React(const Rule& rule) {
    switch (rule.reaction) {
      case Reaction::Refuse:
        return true;
      case Reaction::Mute:
        _mute = true;
        return false;
      case Reaction::Stall: {
        std::unique_lock<std::mutex> lock(_server._mutex);
        _server._changed.wait(lock, [this] { return _stopped; });
        throw Over();
      }
      case Reaction::Close:
        throw Over();
      case Reaction::Reset:
        _io->Reset();
        throw Over();
      case Reaction::Send:
        Say(rule.bytes);
        return false;
    }
    return false;
  }

  void Take(Message& message) {
    std::size_t media = 0;
    Update([&](Record& to) {
      if (message.type == SetChunkSizeMessage) to.chunkSize = ReadBig(message.body.data(), 4);
      to.messages.push_back(message);
      media = to.MediaCount();
    });
    if (message.IsMedia()) Reach(Point::Media, media);
    if (message.type != CommandMessage) return;

    std::vector<AmfValue> values;
    if (!DecodeAmf(message.body, values) || values.size() < 2) {
      Update([](Record& to) { to.error = "command is no AMF0"; });
      throw Over();
    }
    Command command{values[0].text, values[1].number, {values.begin() + 2, values.end()}};
    Update([&](Record& to) { to.commands.push_back(command); });
    Answer(command);
  }

  void Reply(const char* name, const Command& to, const AmfValue& first, const AmfValue& second) {
    Say(EncodeMessage(CommandChannel, CommandMessage, 0,
                      EncodeAmf({name, to.transaction, first, second})));
  }
  void Status(const char* level, const char* code) {
    Say(EncodeMessage(StreamChannel, CommandMessage, StreamId,
                      EncodeAmf({"onStatus", 0.0, AmfValue::Null(), Information(level, code)})));
  }

  void Answer(const Command& command) {
    if (command.name == "connect") {
      if (Reach(Point::Connect)) {
        return Reply("_error", command, AmfValue::Null(),
                     Information("error", "NetConnection.Connect.Rejected"));
      }
      Bytes window;
      AppendBig(window, WindowSize, 4);
      Say(EncodeMessage(ControlChannel, WindowSizeMessage, 0, window));
      AppendBig(window, 2, 1);  // limit type "dynamic"
      Say(EncodeMessage(ControlChannel, PeerBandwidthMessage, 0, window));
      Reply("_result", command, AmfValue({{"fmsVer", "FMS/3,0,1,123"}, {"capabilities", 31.0}}),
            Information("status", "NetConnection.Connect.Success"));
    } else if (command.name == "createStream") {
      if (Reach(Point::CreateStream)) {
        return Reply("_error", command, AmfValue::Null(),
                     Information("error", "NetConnection.Call.Failed"));
      }
      Reply("_result", command, AmfValue::Null(), static_cast<double>(StreamId));
    } else if (command.name == "publish") {
      if (Reach(Point::Publish)) return Status("error", "NetStream.Publish.BadName");
      Status("status", "NetStream.Publish.Start");
      Update([](Record& to) { to.published = true; });
      Reach(Point::Published);
    }
  }

  IngestServer& _server;
  const Script _script;
  std::shared_ptr<Transport> _transport;  ///< under the server's lock
  bool _stopped = false;                  ///< under the server's lock
  Transport* _io = nullptr;               ///< the thread's own view of the transport
  bool _mute = false;
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
  for (const auto& connection : _connections) connection->End();
}

void IngestServer::Listen() {
  _listener = BoundSocket(_options.ipv6, _port);
  _stop = eventfd(0, EFD_CLOEXEC);
  listen(_listener, Backlog);
  _acceptor = std::thread([this] { Accept(); });
}

void IngestServer::StopListening() {
  if (!_acceptor.joinable()) return;
  eventfd_write(_stop, 1);
  _acceptor.join();
  close(_listener);
  close(_stop);
}

void IngestServer::Accept() {
  pollfd waiting[] = {{_listener, POLLIN, 0}, {_stop, POLLIN, 0}};
  for (;;) {
    poll(waiting, 2, -1);
    if (waiting[1].revents != 0) return;
    const int descriptor = accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor < 0) continue;
    const Script& script = _scripts[std::min(Connections(), _scripts.size() - 1)];
    if (script.receiveBuffer > 0) {
      setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &script.receiveBuffer,
                 sizeof script.receiveBuffer);
    }
    auto transport =
        _options.secure ? _options.secure(descriptor) : std::make_unique<Transport>(descriptor);
    auto connection = std::make_shared<Connection>(*this, std::move(transport), script);
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      connection->Begin();
      _connections.push_back(std::move(connection));
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

std::shared_ptr<IngestServer::Connection> IngestServer::At(std::size_t connection) const {
  std::unique_lock<std::mutex> lock(_mutex);
  if (!_changed.wait_for(lock, LongTime, [&] { return _connections.size() > connection; })) {
    throw std::runtime_error("there is no connection " + std::to_string(connection));
  }
  return _connections[connection];
}

Record IngestServer::Get(std::size_t connection) const {
  const auto found = At(connection);
  const std::lock_guard<std::mutex> lock(_mutex);
  return found->record;
}

bool IngestServer::WaitForConnections(std::size_t count, std::chrono::nanoseconds timeout) {
  std::unique_lock<std::mutex> lock(_mutex);
  return _changed.wait_for(lock, timeout, [&] { return _connections.size() >= count; });
}

bool IngestServer::WaitFor(std::size_t connection,
                           const std::function<bool(const Record&)>& condition,
                           std::chrono::nanoseconds timeout) {
  std::unique_lock<std::mutex> lock(_mutex);
  return _changed.wait_for(lock, timeout, [&] {
    return _connections.size() > connection && condition(_connections[connection]->record);
  });
}

bool IngestServer::WaitForMedia(std::size_t connection, std::size_t count,
                                std::chrono::nanoseconds timeout) {
  return WaitFor(
      connection, [count](const Record& record) { return record.MediaCount() >= count; }, timeout);
}

bool IngestServer::WaitForPublish(std::size_t connection, std::chrono::nanoseconds timeout) {
  return WaitFor(
      connection, [](const Record& record) { return record.published; }, timeout);
}

bool IngestServer::WaitForEnd(std::size_t connection, std::chrono::nanoseconds timeout) {
  return WaitFor(
      connection, [](const Record& record) { return record.ended; }, timeout);
}

void IngestServer::Send(std::size_t connection, const Bytes& bytes) {
  At(connection)->Write(bytes);
}
void IngestServer::Close(std::size_t connection) { At(connection)->Break(false); }
void IngestServer::Reset(std::size_t connection) { At(connection)->Break(true); }

FullListener::FullListener() {
  constexpr int Fillers = 4;  // a queue of length 0 holds one connection
  const int listener = BoundSocket(false, _port);
  _descriptors.push_back(listener);
  listen(listener, 0);
  socklen_t size = 0;
  const sockaddr_storage address = Loopback(false, _port, size);
  for (int i = 0; i < Fillers; ++i) {
    const int filler = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    connect(filler, reinterpret_cast<const sockaddr*>(&address), size);
    _descriptors.push_back(filler);
  }
}

FullListener::~FullListener() {
  for (const int descriptor : _descriptors) close(descriptor);
}

std::string FullListener::Url() const {
  return "rtmp://127.0.0.1:" + std::to_string(_port) + "/live/stream";
}

int UnusedPort() {
  int port = 0;
  close(BoundSocket(false, port));
  return port;
}

}  // namespace nimbo::test
