#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/publication/ClientFigures.h"
#include "host/stream/Message.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/element.h"
#include "nimbo/stream/pipeline.h"

namespace nimbo::publication {

/// What is to be published, where and how.
struct PublishOptions {
  std::string input;
  std::string audio;  ///< elementary stream beside an elementary video input; may be empty
  std::vector<std::string> urls;
  std::string loop;   ///< how often a file is played: a number or "true"; empty: once
  bool fast = false;  ///< as fast as the server takes it, with nothing dropped
  bool copy = true;   ///< frames are copied, not sent from where they lie
};

/// The configuration text of a source: the input's streams, as rings or, for `fast`, as outputs
/// that wait for whoever takes them. Fails when there is no such input.
Result<std::string> SourceConfiguration(const PublishOptions& options);

/// One input published to several addresses, each by a client of its own: a source and behind it a
/// pipeline for every address. The pipelines are raised one by one, so that one that fails leaves
/// the others alone. [control]
class Publication {
 public:
  Publication();
  Publication(const Publication&) = delete;
  Publication& operator=(const Publication&) = delete;
  ~Publication();

  /// Builds everything and opens the source. False with one console line.
  bool Build(const PublishOptions& options, const std::string& source);
  /// Opens client `index` and puts it into play. False when its server cannot be published to.
  bool Open(std::size_t index);
  bool Opened(std::size_t index) const { return _clients.at(index).opened; }
  /// Lets the packets flow. False with one console line.
  bool Start();

  std::size_t Clients() const noexcept { return _clients.size(); }
  ClientFigures Figures(std::size_t index) const;
  /// True when a source has come to its end. A message tells that.
  bool Ending() const noexcept { return _ended > 0; }
  /// True when every source has come to its end and everything it gave has been published.
  bool Finished() const;
  /// True when a message of a failure came up.
  bool SawFailure() const noexcept { return _saw_failure; }
  /// The messages that came up since the last call: CLIENT-NUMBER and name.
  std::vector<std::pair<std::size_t, std::string>> TakeMessages();

 private:
  struct Client {
    stream::Pipeline* pipeline;
    stream::IElement* element;
    bool opened = false;
    std::uint64_t reconnections = 0;
  };

  /// A pipeline that packets come from.
  struct Source {
    stream::Pipeline* pipeline;
    std::size_t client;  ///< the only one that it feeds; AllClients where it has rings
  };
  static constexpr std::size_t AllClients = static_cast<std::size_t>(-1);

  bool BuildApplication(const std::string& configuration);
  /// Tells sources from clients.
  void Sort(bool shared);
  bool Serves(const Source& source) const;
  void Receive(const stream::Message& message);

  std::vector<stream::Application*> _applications;
  std::vector<Source> _sources;
  std::vector<Client> _clients;
  std::vector<std::pair<std::size_t, std::string>> _messages;
  std::size_t _ended = 0;  ///< sources that have come to their end
  bool _saw_failure = false;
  int _listener;
};

}  // namespace nimbo::publication
