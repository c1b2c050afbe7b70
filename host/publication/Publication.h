#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/Status.h"
#include "host/base/Clock.h"
#include "host/base/ConfigText.h"
#include "host/publication/ClientFigures.h"
#include "host/publication/Link.h"
#include "host/publication/RateControl.h"
#include "host/publication/RateMeter.h"
#include "host/stream/Backoff.h"
#include "host/stream/Message.h"
#include "nimbo/stream/application.h"
#include "nimbo/stream/element.h"
#include "nimbo/stream/pipeline.h"

namespace nimbo::publication {

/// What is to be published, where and how.
struct PublishOptions {
  std::string input;
  std::string audio;  ///< where the sound comes from if not from `input`; may be empty
  /// Options of the capture source "av" for both; without any, the host reads elementary files
  /// itself.
  std::vector<base::Attribute> inputOptions;
  std::vector<base::Attribute> audioOptions;
  std::string audioBitRate;  ///< of sound that is encoded; empty: as usual
  std::vector<std::string> urls;
  std::string loop;           ///< how often a file is played: a number or "true"; empty: once
  bool fast = false;          ///< as fast as the server takes it, with nothing dropped
  bool copy = true;           ///< frames are copied, not sent from where they lie
  bool enhanced = false;      ///< the server may be sent what takes Enhanced RTMP
  bool silence = false;       ///< where the input has no sound
  std::string keep = "auto";  ///< a live input is opened again: "true", "false", where possible
  std::string slate;          ///< file of what is shown meanwhile; empty: a text
  bool adapt = false;         ///< what is encoded follows what the links hold
  std::string record;         ///< path of a recording; empty: there is none
  double recordSegment = 0;   ///< seconds of it that make a file; 0: all
  std::string maxLag;         ///< seconds that a live stream may be late; empty: as usual
  std::vector<std::string> backups;  ///< where the only client goes on when its server stays away
  unsigned int attempts = 3;         ///< that fail before it goes on at the next address
  std::chrono::nanoseconds longestPause = stream::Backoff::UsualLongest;  ///< between attempts
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

  /// Builds everything and opens the source. What is in the way is told on the console.
  Status Build(const PublishOptions& options, const std::string& source);
  /// Opens client `index` and puts it into play. Fails when its server cannot be published to.
  Status Open(std::size_t index);
  bool Opened(std::size_t index) const { return _clients.at(index).opened; }
  /// Opens the clients that are not open yet, each after a pause that grows while it fails. Returns
  /// when there is one to be opened next.
  Clock::time_point OpenMissing();
  /// Client `index` says goodbye where it is, and opens with OpenMissing elsewhere, unless it has
  /// that address already.
  void Redirect(std::size_t index, const std::string& url);
  /// The address of each client now.
  std::vector<std::string> Addresses() const;
  /// Lets the packets flow. A failure has been told on the console.
  Status Start();

  std::size_t Clients() const noexcept { return _clients.size(); }
  /// Has the bit rate follow what the slowest link holds: of what is encoded here, and as a message
  /// "bit_rate", whose text is the rate, that each client sends up, of what somebody else encodes.
  /// Wanted some times a second.
  void Adapt();
  /// Looks at the connections. Wanted each second or more often, in front of Figures.
  void Measure();
  ClientFigures Figures(std::size_t index) const;
  /// Bytes that the sources have given.
  std::uint64_t Made() const;
  /// True when a source has come to its end. A message tells that.
  bool Ending() const noexcept { return _ended > 0; }
  /// What is still queued counts as lost from now on.
  void End() { _over = true; }
  /// True when every source has come to its end and everything it gave has been published.
  bool Finished() const;
  /// True while something stands in for a source that will be back.
  bool SourceAway() const noexcept { return _away > 0; }
  /// True when a source has ended before its time, or was away.
  bool LostSource() const noexcept { return _lost_source; }
  /// True when a message of a failure came up.
  bool SawFailure() const noexcept { return _saw_failure; }
  /// The messages that came up since the last call: CLIENT-NUMBER and name.
  std::vector<std::pair<std::size_t, std::string>> TakeMessages();

 private:
  struct Client {
    stream::Pipeline* pipeline;
    stream::IElement* element;
    std::vector<std::string> addresses{};
    std::size_t address = 0;  ///< the one that it publishes to
    bool opened = false;
    bool leaves = false;  ///< for another address: its end there is no failure
    std::uint64_t reconnections = 0;
    std::uint64_t attempts = 0;  ///< to connect, that have failed
    unsigned int failed = 0;     ///< attempts at this address, one after the other
    Clock::time_point retry{};   ///< when it is to be opened again
    Link link{};
    double setUp = 0;                     ///< ms
    std::unique_ptr<RateControl> rate{};  ///< while the bit rate follows the links
    std::unique_ptr<stream::Backoff> pauses = std::make_unique<stream::Backoff>();
  };

  /// A pipeline that packets come from.
  struct Source {
    stream::Pipeline* pipeline;
    std::size_t client;  ///< the only one that it feeds; AllClients where it has rings
  };
  static constexpr std::size_t AllClients = static_cast<std::size_t>(-1);

  /// Makes an application of the configuration and opens it.
  bool BuildSource(const std::string& configuration, const std::string& maxLag);
  /// Sets how late live streams may be in all that is not open yet.
  static bool Bound(stream::Application& application, const std::string& maxLag);
  /// Tells sources from clients.
  void Sort(bool shared);
  bool Serves(const Source& source) const;
  /// The elements that capture.
  std::vector<stream::IElement*> Captures() const;
  /// Bits a second of the pictures that all links hold.
  double WantedRate(Clock::time_point now);
  /// Asks the sources, or else those who listen to the clients, for so many.
  void Ask(const std::string& bitRate, bool encoders);
  void Receive(const stream::Message& message);
  /// So many attempts of the client, one after the other, have failed: it may be time for the next
  /// address.
  void Fail(std::size_t index, unsigned int attempts);

  std::vector<stream::Application*> _applications;
  std::vector<Source> _sources;
  std::vector<Client> _clients;
  stream::Pipeline* _recording = nullptr;  ///< what records; null: nothing does
  std::vector<std::pair<std::size_t, std::string>> _messages;
  std::size_t _ended = 0;  ///< sources that have come to their end
  int _away = 0;           ///< sources that something stands in for
  bool _lost_source = false;
  bool _saw_failure = false;
  bool _over = false;
  unsigned int _attempts = 3;
  RateMeter _made;   ///< of what the sources give
  RateMeter _sound;  ///< of those of them that encode no pictures
  Clock::time_point _started{};
  double _full_rate = 0;  ///< bits a second of the pictures before they followed a link
  double _bit_rate = 0;   ///< that was wanted last
  std::vector<std::uint64_t> _foreign;  ///< connections that are no client's
  int _listener;
};

}  // namespace nimbo::publication
