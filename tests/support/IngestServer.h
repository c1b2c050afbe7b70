#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ChunkReader.h"
#include "tests/support/Command.h"
#include "tests/support/Eventually.h"
#include "tests/support/Transport.h"

namespace nimbo::test {

/// Binds a socket to a loopback port (0: a free one), which is stored.
int BoundSocket(bool ipv6, int& port);

/// Where in a connection's life something can happen.
enum class Point {
  Accepted,      ///< the TCP connection stands, nothing was read
  Hello,         ///< the publisher's greeting came, not answered
  Connect,       ///< the command came, not answered
  Connected,     ///< the command to connect was answered
  CreateStream,  ///< the command came, not answered
  Publish,       ///< the command came, not answered
  Media,         ///< the count-th audio or video message came (from 1)
};

enum class Reaction {
  Refuse,  ///< answer the command with an error, then go on
  Stall,   ///< neither read nor answer any more
  Close,   ///< end the connection in good order
  Reset,   ///< end the connection with a reset
  Say,     ///< say what the rule says in place of an answer, then go on
};

struct Rule {
  Point at;
  Reaction reaction;
  std::size_t count = 1;               ///< for Media
  std::size_t beyond = 0;              ///< for Media: only when so many more bytes have come
  std::chrono::milliseconds stall{0};  ///< after which things go on; 0 for never
  Bytes say{};                         ///< for Say
};

/// How the server treats one connection. The empty script accepts everything, as a common server
/// does.
struct Script {
  std::vector<Rule> rules;
  /// With a pause above zero, answers leave one byte at a time, this far apart.
  std::chrono::milliseconds trickle{0};
  /// Receive buffer of the connection in bytes, so that a stall soon fills the sender's window; 0
  /// for the system's choice.
  int receiveBuffer = 0;
  /// The connection is reset behind so many bytes of answers; 0 for never.
  std::size_t cut = 0;
  /// Bytes that are read a second once media come; 0 for as many as there are.
  std::size_t rate = 0;
};

/// All that is known of one connection so far.
struct Record {
  Bytes greeting;  ///< what the handshake begins with: version, time and random bytes
  Bytes echo;      ///< what it ends with
  std::vector<Message> messages;  ///< in the order in which they were complete
  std::vector<Command> commands;  ///< those of them that are commands
  std::size_t mediaCount = 0;     ///< those of them that are audio or video
  std::size_t bytes = 0;          ///< received, handshake included
  bool published = false;         ///< the publish was accepted
  bool ended = false;             ///< nothing more will come, from either side
  std::string error;              ///< what the publisher did against the protocol

  /// The audio and video messages.
  std::vector<Message> Media() const;
  std::vector<Message> OfType(std::uint8_t type) const;
  std::vector<std::string> CommandNames() const;
};

/// An RTMP ingest server that records what publishers send and behaves as scripted. It serves any
/// number of publishers at a time, each from a thread of its own. All functions may be called from
/// any thread. Connections are counted from 0; one that does not exist yet is waited for. Waits end
/// early with true, or with false when their time is over.
class IngestServer {
 public:
  /// Puts a secure layer on an accepted socket; without one the server speaks plain RTMP.
  using Securer = std::function<std::unique_ptr<Transport>(int descriptor)>;
  struct Options {
    bool ipv6 = false;  ///< listen on ::1 instead of 127.0.0.1
    Securer secure;
  };

  /// Listens on a free port. The n-th connection gets the n-th script, and each further one the
  /// last. Raises std::runtime_error where there is no such address.
  explicit IngestServer(std::vector<Script> scripts = {Script{}});
  IngestServer(std::vector<Script> scripts, Options options);
  IngestServer(const IngestServer&) = delete;
  IngestServer& operator=(const IngestServer&) = delete;
  /// Ends all connections.
  ~IngestServer();

  int Port() const { return _port; }
  std::string Url(const std::string& app = "live", const std::string& stream = "stream") const;

  /// Refuses connections from now on; those that stand go on.
  void StopListening();
  /// Listens again, on the same port.
  void Listen();

  std::size_t Connections() const;
  Record Get(std::size_t connection) const;
  bool WaitFor(std::size_t connection, const std::function<bool(const Record&)>& condition,
               std::chrono::nanoseconds timeout = LongTime) const;
  bool WaitForMedia(std::size_t connection, std::size_t count) const;
  bool WaitForPublish(std::size_t connection) const;
  bool WaitForEnd(std::size_t connection) const;

  /// Sends bytes of the test's own making.
  void Send(std::size_t connection, const Bytes& bytes);
  void Close(std::size_t connection);
  void Reset(std::size_t connection);
  /// Gives up all that a connection has taken, once it has ended. It must not be asked for again.
  void Forget(std::size_t connection);

 private:
  class Connection;

  void Accept();
  std::shared_ptr<Transport> TransportOf(std::size_t connection) const;

  const std::vector<Script> _scripts;
  const Options _options;
  int _port = 0;
  int _listener = -1;
  std::thread _acceptor;

  // One lock for all records; held for copies and short tests only, never during input or output.
  mutable std::mutex _mutex;
  mutable std::condition_variable _changed;
  bool _stopped = false;
  std::vector<std::unique_ptr<Connection>> _connections;
};

/// A port that swallows connection requests: its queue is full, so that none is ever answered.
class FullListener {
 public:
  FullListener();
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;
  ~FullListener();
  std::string Url() const;

 private:
  int _port = 0;
  std::vector<int> _descriptors;
};

/// A port at which nobody listens and that nobody else is given meanwhile, so that no server of
/// another process is met there. A server of the test's own may take it.
class UnusedPort {
 public:
  UnusedPort();
  UnusedPort(const UnusedPort&) = delete;
  UnusedPort& operator=(const UnusedPort&) = delete;
  ~UnusedPort();
  std::string Url() const;

 private:
  int _port = 0;
  int _descriptor;
};

}  // namespace nimbo::test
