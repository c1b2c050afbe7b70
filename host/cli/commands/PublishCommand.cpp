#include <fmt/format.h>

#include <cstring>
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
#include "host/publication/Publication.h"
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
constexpr char MonitorPort[] = "8089";

struct Options {
  publication::PublishOptions what;
  double duration = 0;  ///< seconds; 0 without limit
  bool wait = false;    ///< for a server that is away at the start
  bool json = false;
  std::string monitor;  ///< the port of its page; empty: there is none
  std::string picture;  ///< address of the playlist that it plays; may be empty
};

std::string PortFault(const std::string& port) {
  constexpr unsigned long Largest = 65535;
  const bool number = !port.empty() && port.find_first_not_of("0123456789") == std::string::npos;
  if (number && port.size() <= sizeof "65535" - 1 && std::stoul(port) <= Largest) return {};
  return "\"" + port + "\" is no port; without one, --monitor belongs behind the addresses";
}

std::string PictureFault(const std::string& url) {
  for (const char* scheme : {"http://", "https://"}) {
    if (url.compare(0, std::strlen(scheme), scheme) == 0) return {};
  }
  return "\"" + ShownUrl(url) + "\" is no address of a playlist: http://... is expected";
}

/// Publishes through the client path: an element for each address.
class Publish {
 public:
  Publish(const Options& options, ControlLoop& loop) : _options(options), _loop(loop) {}

  Status Run() {
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
    return Succeed() ? Status() : Status::Failed("not everything was published");
  }

 private:
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
      if (now >= end || _publication.Finished() || base::LostThreads() > 0) break;
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
      if (_loop.WaitOrWork(-1, wake, _line.Terminal()) == ControlLoop::Woken::Signal) break;
    }
    _publication.End();
    Show(Clock::now());
    _line.End();
    return true;
  }

  void TellMessages() {
    for (const auto& [client, message] : _publication.TakeMessages()) {
      _events.emplace_back(client, message);
      if (_monitor) _monitor->Tell(client, message);
      if (!_json) {
        Note(fmt::format("{}: {}\n", ShownUrl(_publication.Addresses()[client]), message));
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
    const Progress progress = {std::chrono::duration<double>(now - _start).count(),
                               _meter.BitsPerSecond(),
                               _made.BitsPerSecond(),
                               addresses,
                               figures,
                               _events};
    if (_json) {
      _json->Write(StatusJson(progress) + "\n");
    } else {
      _line.Show(StatusSentence(progress));
    }
    _events.clear();
  }

  bool Succeed() {
    TellMessages();
    bool complete = !_failed_once && !_publication.SawFailure();
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      const ClientFigures figures = _publication.Figures(i);
      const publication::Drops& lost = figures.dropped;
      complete = complete && _publication.Opened(i) && !figures.gaps &&
                 lost.gap + lost.lag + lost.refused == 0;
    }
    return complete;
  }

  const Options& _options;
  ControlLoop& _loop;
  std::optional<KeptOutput> _json;  ///< for the status objects; outlives what prints
  std::unique_ptr<monitor::Monitor> _monitor;
  publication::Publication _publication;
  publication::RateMeter _meter;  ///< of what the servers have acknowledged
  publication::RateMeter _made;   ///< of what the sources give
  StatusLine _line;
  std::vector<Event> _events;
  bool _failed_once = false;
  Clock::time_point _start;
};

}  // namespace

void AddPublish(CLI::App& program, const Choose& chosen) {
  const auto options = std::make_shared<Options>();
  auto* publish = program.add_subcommand("publish", "Publish an input to one or several addresses");
  publish
      ->add_option("INPUT", options->what.input,
                   "A file, device, network stream (rtsp://...) or pipe (-), or the simulated\n"
                   "camera: test: or test:W=1280,H=720,fr=30,br=2000000,gop=30")
      ->required();
  publish->add_option("URL", options->what.urls, "rtmp://HOST[:PORT]/APPLICATION/STREAM, or rtmps")
      ->check(publication::UrlFault)
      ->required();
  publish->add_option("--audio", options->what.audio,
                      "An ADTS file to go with an elementary H.264 file");
  publish->add_option("--duration", options->duration, "Stop after so many seconds")
      ->check(CLI::PositiveNumber);
  publish->add_flag(
      "--loop", [options](std::int64_t) { options->what.loop = "true"; },
      "Play a file again and again");
  publish
      ->add_option("--max-lag", options->what.maxLag,
                   "Seconds that a live stream may be late before it goes on at its newest key\n"
                   "frame (2); 0: any")
      ->check(CLI::Range(0.0, 3600.0));
  auto* fast = publish->add_flag("--fast", options->what.fast,
                                 "As fast as the servers take it; nothing is dropped");
  publish
      ->add_flag("--adapt", options->what.adapt,
                 "Encode with no more than the slowest link holds; for what is not encoded here,\n"
                 "the message \"bit_rate\" tells what would fit")
      ->excludes(fast);
  publish->add_flag(
      "--no-copy", [options](std::int64_t) { options->what.copy = false; },
      "Send frames from where they lie, without copying them");
  publish->add_flag("--wait", options->wait,
                    "Wait for a server that is away at the start, at most for the duration");
  publish
      ->add_option(
          "--backup", options->what.backups,
          "Another address of the same stream, where it goes on when the one before stays\n"
          "away; several may be given, and behind the last comes the first")
      ->type_name("URL")
      ->allow_extra_args(false)
      ->check(publication::UrlFault);
  publish
      ->add_option("--attempts", options->what.attempts,
                   "Attempts that fail before it goes on at the next address (3)")
      ->check(CLI::Range(1, 1000));
  publish
      ->add_option_function<double>(
          "--retry-max",
          [options](double seconds) {
            options->what.longestPause = std::chrono::duration_cast<std::chrono::nanoseconds>(
                std::chrono::duration<double>(seconds));
          },
          "Seconds at most between attempts while a server stays away (15)")
      ->check(CLI::Range(1.0, 3600.0));
  publish->add_flag("--json", options->json, "One status object a line, on standard output");
  auto* monitor =
      publish
          ->add_option_function<std::string>(
              "--monitor",
              [options](const std::string& port) {
                options->monitor = port.empty() ? MonitorPort : port;
              },
              "Show on a web page of this machine how it goes: http://127.0.0.1:8089/, or at\n"
              "another PORT; 0 stands for a free one")
          ->type_name("PORT")
          ->expected(0, 1)
          // What CLI11 checks where there is no value.
          ->check([](const std::string& port) { return port == "{}" ? "" : PortFault(port); });
  publish
      ->add_option("--picture", options->picture,
                   "The page plays the HLS playlist at this address, live")
      ->type_name("URL")
      ->check(PictureFault)
      ->needs(monitor);
  publish->footer(
      "Ends at the end of the input or the duration, and cleanly on SIGINT, SIGTERM and\n"
      "SIGHUP; a second signal ends it at once. Each address has a client of its own; a lost "
      "connection is made\n"
      "again, and a server that fails holds up no other.\n"
      "Exit codes: 0 everything was published, 1 something was not, 2 wrong usage.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host publish test: rtmp://127.0.0.1/live/camera\n"
      "  nimbo-host publish film.mp4 rtmp://one/live/film rtmps://two/live/film --loop\n"
      "  nimbo-host publish rtsp://camera/stream rtmp://server/live/door --no-copy\n"
      "  nimbo-host publish test: rtmp://server/live/camera --monitor");
  publish->final_callback([options, chosen] {
    if (!options->what.backups.empty() && options->what.urls.size() != 1) {
      throw CLI::ValidationError("--backup", "belongs to one address, not to several");
    }
    chosen([options](ControlLoop& loop) { return ExitCodeOf(Publish(*options, loop).Run()); });
  });
}

}  // namespace nimbo::cli
