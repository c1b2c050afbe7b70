#include "host/cli/commands/Publish.h"

#include <fmt/format.h>

#include <map>
#include <memory>
#include <optional>
#include <thread>

#include "host/base/Console.h"
#include "host/base/Outlet.h"
#include "host/base/Thread.h"
#include "host/cli/commands/LoadMonitor.h"
#include "host/cli/commands/StatusText.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/terminal/KeptOutput.h"
#include "host/cli/terminal/StatusLine.h"
#include "host/publication/OutageFold.h"
#include "host/publication/RateMeter.h"
#include "host/publication/Url.h"

namespace nimbo::cli {

namespace {

using publication::ClientFigures;
using publication::ShownUrl;

/// How often it is looked, behind the end of the input, whether everything has been sent.
constexpr std::chrono::milliseconds LookPeriod{100};
constexpr std::chrono::seconds JsonPeriod{1};
constexpr std::chrono::seconds MonitorPeriod{1};
/// How often it is looked whether the bit rate fits the links.
constexpr std::chrono::milliseconds AdaptPeriod{250};

/// Publishes through the client path: an element for each address.
class Publish {
 public:
  Publish(const PublishSettings& options, ControlLoop& loop) : _options(options), _loop(loop) {}

  Status Run() {
    Status status = Work();
    if (_json) {
      const auto figures = Figures();
      const auto addresses = _publication.Addresses();
      _json->Write(EndJson(Now(Clock::now(), addresses, figures), _reason, status) + "\n");
    }
    return status;
  }

 private:
  Status Work() {
    base::Outlet::Hurry(true);  // a picture is worth more than what is told of it
    if (_options.json) _json.emplace();
    auto source = publication::SourceConfiguration(_options.what);
    if (!source) return source.Failure();
    if (!_options.monitor.empty()) {
      if (Status opened = OpenMonitor(); !opened) return opened;
    }
    Status begun = Guarded("publish", Status::Failed(), [&] { return Begin(*source); });
    if (!begun) return begun;
    _start = Clock::now();
    while (!Guarded("publish", false, [this] { return Serve(); })) {
      std::this_thread::sleep_for(LookPeriod);
    }
    if (base::LostThreads() > 0) return Status::Failed(LostThread);
    if (Succeed()) return {};
    return Status::Failed(std::string("not everything was published") +
                          (_publication.LostSource() ? ": the input was lost" : ""));
  }

  Status OpenMonitor() {
    monitor::Options page;
    page.port = static_cast<unsigned short>(std::stoul(_options.monitor));
    page.picture = _options.picture;
    for (const std::string& url : _options.what.urls) page.clients.push_back(ShownUrl(url));
    auto opened = LoadMonitor(page);
    if (!opened) return Status::Failed("no monitor: " + opened.Why());
    _monitor = std::move(*opened);
    Note(fmt::format("monitor: {}\n", _monitor->Address()));
    return {};
  }

  /// The clients come first, so that none misses the start. One that fails holds nobody up.
  Status Begin(const std::string& source) {
    if (Status built = _publication.Build(_options.what, source); !built) return built;
    const auto end = Ends(Clock::now());
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      const Status opened = _publication.Open(i);
      if (!opened) Complain("nimbo-host: " + opened.Why());
      if (_loop.Signals().Number() != 0) return Status::Failed();
    }
    auto next = _publication.OpenMissing();
    while (_options.wait && !OpenedAny() && Clock::now() < end) {
      if (_loop.Wait(-1, std::min(end, next)) == ControlLoop::Woken::Signal) {
        return Status::Failed();
      }
      next = _publication.OpenMissing();
    }
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      _failed_once = _failed_once || !_publication.Opened(i);
    }
    return OpenedAny() ? _publication.Start() : Status::Failed();
  }

  bool OpenedAny() const {
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      if (_publication.Opened(i)) return true;
    }
    return false;
  }

  /// When what began at `start` is over.
  Clock::time_point Ends(Clock::time_point start) const {
    if (_options.duration <= 0) return Clock::time_point::max();
    return start + std::chrono::duration_cast<Clock::duration>(
                       std::chrono::duration<double>(_options.duration));
  }

  /// Until the end of what is published, or a signal. True.
  bool Serve() {
    auto next = Clock::now();
    auto sample = _monitor ? next : Clock::time_point::max();
    auto adapt = _options.what.adapt ? next : Clock::time_point::max();
    const auto end = Ends(_start);
    while (true) {
      const auto now = Clock::now();
      TellMessages();
      if (_loop.Signals().TakeReload()) Reload();
      if (IsOver(now >= end)) break;
      if (now >= next) {
        Show(now);
        next = now + (_options.json ? JsonPeriod : _line.Period());
      }
      if (now >= sample) {
        _publication.Measure();
        _monitor->Add(Figures());
        sample = now + MonitorPeriod;
      }
      if (now >= adapt) {
        _publication.Adapt();
        adapt = now + AdaptPeriod;
      }
      // Servers that could not be published to at the start may be back.
      const auto retry = _options.what.fast ? Clock::time_point::max() : _publication.OpenMissing();
      auto wake = std::min({end, next, sample, adapt, retry});
      if (_publication.Ending()) wake = std::min(wake, now + LookPeriod);
      if (_loop.WaitOrWork(-1, wake, _line.Terminal()) == ControlLoop::Woken::Signal) {
        _reason = "signal";
        break;
      }
    }
    _publication.End();
    Show(Clock::now());
    _line.End();
    return true;
  }

  bool IsOver(bool late) {
    if (base::LostThreads() > 0) {
      _reason = "failure";
    } else if (_publication.Finished()) {
      _reason = _publication.LostSource() ? "input_lost" : "end_of_input";
    } else if (late) {
      _reason = "duration";
    } else {
      return false;
    }
    return true;
  }

  /// Goes to the addresses that have changed.
  void Reload() {
    if (!_options.readAddresses) {
      Complain("nimbo-host: SIGUSR1: there is no file of addresses to be read again");
      return;
    }
    auto urls = _options.readAddresses();
    if (urls && urls->size() != _publication.Clients()) {
      urls =
          Status::Failed("there are " + std::to_string(urls->size()) + " addresses now, and " +
                         std::to_string(_publication.Clients()) + " before, which takes a restart");
    }
    if (!urls) {
      Complain("nimbo-host: nothing changes: " + urls.Why());
      return;
    }
    for (std::size_t i = 0; i < urls->size(); ++i) _publication.Redirect(i, (*urls)[i]);
  }

  void TellMessages() {
    for (const auto& [client, message] : _publication.TakeMessages()) {
      _events.emplace_back(client, message);
      const std::string told = _folds[client].Tell(message, Clock::now().time_since_epoch());
      if (_monitor) _monitor->Tell(client, message, told);
      if (!told.empty() && !_json && !_options.quiet) {
        Note(fmt::format("{}: {}\n", ShownUrl(_publication.Addresses()[client]), told));
      }
    }
  }

  std::vector<ClientFigures> Figures() const {
    std::vector<ClientFigures> figures;
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      figures.push_back(_publication.Figures(i));
    }
    return figures;
  }

  void Show(Clock::time_point now) {
    _publication.Measure();
    const auto figures = Figures();
    const auto addresses = _publication.Addresses();
    std::uint64_t bytes = 0;
    for (const ClientFigures& client : figures) bytes += client.link.acknowledged;
    _meter.Add(now, bytes);
    _made.Add(now, _publication.Made());
    const Progress progress = Now(now, addresses, figures);
    if (_json) {
      _json->Write(StatusJson(progress) + "\n");
    } else if (!_options.quiet) {
      _line.Show(StatusSentence(progress, _line.Columns()));
    }
    _events.clear();
  }

  Progress Now(Clock::time_point now, const std::vector<std::string>& addresses,
               const std::vector<ClientFigures>& figures) const {
    const auto time = _start == Clock::time_point() ? Clock::duration::zero() : now - _start;
    return {std::chrono::duration<double>(time).count(),
            _meter.BitsPerSecond(),
            _made.BitsPerSecond(),
            _publication.SourceAway(),
            addresses,
            figures,
            _events};
  }

  bool Succeed() {
    TellMessages();
    bool complete = !_failed_once && !_publication.SawFailure() && !_publication.LostSource();
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      const ClientFigures figures = _publication.Figures(i);
      const publication::Drops& lost = figures.dropped;
      complete = complete && _publication.Opened(i) && !figures.gaps &&
                 lost.gap + lost.lag + lost.refused == 0;
    }
    return complete;
  }

  const PublishSettings& _options;
  ControlLoop& _loop;
  std::optional<KeptOutput> _json;  ///< for the status objects; outlives what prints
  std::unique_ptr<monitor::Monitor> _monitor;
  publication::Publication _publication;
  publication::RateMeter _meter;  ///< of what the servers have acknowledged
  publication::RateMeter _made;   ///< of what the sources give
  StatusLine _line;
  std::vector<Event> _events;
  std::map<std::size_t, publication::OutageFold> _folds;  ///< of each client
  const char* _reason = "not_started";
  bool _failed_once = false;
  Clock::time_point _start;
};

}  // namespace

Status RunPublish(const PublishSettings& settings, ControlLoop& loop) {
  return Publish(settings, loop).Run();
}

}  // namespace nimbo::cli
