#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Amf0.h"
#include "tests/support/ChunkReader.h"
#include "tests/support/Script.h"
#include "tests/support/Transport.h"

namespace nimbo::test {

/// What no machine that runs these tests should need for one step.
constexpr std::chrono::seconds LongTime{60};

/// A command message.
struct Command {
  std::string name;
  double transaction = 0;
  std::vector<AmfValue> arguments;  ///< behind the transaction number
};

/// All that is known of one connection so far.
struct Record {
  std::vector<Message> messages;  ///< in the order in which they were complete
  std::vector<Command> commands;
  std::uint32_t chunkSize = ChunkReader::DefaultChunkSize;
  std::size_t bytes = 0;   ///< received, handshake included
  bool published = false;  ///< the publish was accepted
  bool ended = false;      ///< nothing more will come, from either side
  std::string error;       ///< what the publisher did against the protocol

  /// The audio and video messages.
  std::vector<Message> Media() const;
  std::size_t MediaCount() const;
  std::vector<Message> OfType(std::uint8_t type) const;
  std::vector<std::string> CommandNames() const;
};

/// An RTMP ingest server that records what publishers send and behaves as scripted. It serves any
/// number of publishers at a time, each from a thread of its own. All functions may be called from
/// any thread. Waits end early with true, or with false when their time is over.
class IngestServer {
 public:
  /// Puts a secure layer on an accepted socket; without one the server speaks plain RTMP.
  using Securer = std::function<std::unique_ptr<Transport>(int descriptor)>;
  struct Options {
    bool ipv6 = false;  ///< listen on ::1 instead of 127.0.0.1
    Securer secure;
  };

  /// Listens on a free port. The n-th connection gets the n-th script, and each further one the
  /// last.
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
  /// Connections are counted from 0; one that does not exist yet is waited for.
  bool WaitForConnections(std::size_t count, std::chrono::nanoseconds timeout = LongTime);
  bool WaitFor(std::size_t connection, const std::function<bool(const Record&)>& condition,
               std::chrono::nanoseconds timeout = LongTime);
  bool WaitForMedia(std::size_t connection, std::size_t count,
                    std::chrono::nanoseconds timeout = LongTime);
  bool WaitForPublish(std::size_t connection, std::chrono::nanoseconds timeout = LongTime);
  bool WaitForEnd(std::size_t connection, std::chrono::nanoseconds timeout = LongTime);

  /// Sends bytes of the test's own making.
  void Send(std::size_t connection, const Bytes& bytes);
  void Close(std::size_t connection);
  void Reset(std::size_t connection);

 private:
  class Connection;

  void Accept();
  /// The n-th connection; waits for it.
  std::shared_ptr<Connection> At(std::size_t connection) const;

  const std::vector<Script> _scripts;
  const Options _options;
  int _port = 0;
  int _listener = -1;
  int _stop = -1;  ///< event descriptor; readable when the accepting thread shall end
  std::thread _acceptor;

  // One lock for all records; held for copies and short tests only, never during input or output.
  mutable std::mutex _mutex;
  mutable std::condition_variable _changed;
  std::vector<std::shared_ptr<Connection>> _connections;
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

/// A loopback port on which nobody listens.
int UnusedPort();

}  // namespace nimbo::test
