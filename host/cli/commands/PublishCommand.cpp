#include <fmt/format.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <optional>

#include "common/WriteAll.h"
#include "host/base/Guard.h"
#include "host/cli/commands/LoadMonitor.h"
#include "host/cli/commands/StatusText.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/terminal/Console.h"
#include "host/cli/terminal/KeptOutput.h"
#include "host/cli/terminal/StatusLine.h"
#include "host/publication/Publication.h"
#include "host/publication/RateMeter.h"
#include "host/publication/Url.h"

namespace nimbo::cli {

namespace {

using publication::ClientFigures;
using publication::ShownUrl;

using Clock = ControlLoop::Clock;

/// How often it is looked, behind the end of the input, whether everything has been sent.
constexpr std::chrono::milliseconds LookPeriod{100};
/// How long a server that could not be published to is left alone before the next attempt.
constexpr std::chrono::seconds OpenPause{5};
constexpr std::chrono::seconds JsonPeriod{1};
constexpr std::chrono::seconds MonitorPeriod{1};
constexpr char MonitorPort[] = "8089";

struct Options {
  publication::PublishOptions what;
  double duration = 0;  ///< seconds; 0 without limit
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
    if (_options.json) _json.emplace();
    auto source = publication::SourceConfiguration(_options.what);
    if (!source) return source.Failure();
    if (!_options.monitor.empty()) {
      if (Status opened = OpenMonitor(); !opened) return opened;
    }
    Status begun = base::Guarded("publish", Status::Failed(), [&] { return Begin(*source); });
    if (!begun) return begun;
    Serve();
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
    WriteAll(STDERR_FILENO, fmt::format("monitor: {}\n", _monitor->Address()));
    return {};
  }

  /// The clients come first, so that none misses the start. One that fails holds nobody up.
  Status Begin(const std::string& source) {
    if (!_publication.Build(_options.what, source)) {
      return Status::Failed("cannot publish \"" + _options.what.input + "\"");
    }
    bool any = false;
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      const bool opened = _publication.Open(i);
      any = any || opened;
      _failed_once = _failed_once || !opened;
      if (!opened) Complain("nimbo-host: cannot publish to " + ShownUrl(_options.what.urls[i]));
      if (_loop.Signals().Number() != 0) return Status::Failed();
    }
    _retry = Clock::now() + OpenPause;
    return any && _publication.Start() ? Status() : Status::Failed();
  }

  void Serve() {
    _start = Clock::now();
    auto next = _start;
    auto sample = _monitor ? _start : Clock::time_point::max();
    auto end = Clock::time_point::max();
    if (_options.duration > 0) {
      end = _start + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(_options.duration));
    }
    while (true) {
      const auto now = Clock::now();
      TellMessages();
      if (now >= end || _publication.Finished()) break;
      if (now >= next) {
        Show(now);
        next = now + (_options.json ? JsonPeriod : _line.Period());
      }
      if (now >= sample) {
        _monitor->Add(Figures());
        sample = now + MonitorPeriod;
      }
      if (now >= _retry) OpenMissing();
      auto wake = std::min({end, next, sample, _retry});
      if (_publication.Ending()) wake = std::min(wake, now + LookPeriod);
      if (_loop.WaitOrWork(-1, wake, _line.Terminal()) == ControlLoop::Woken::Signal) break;
    }
    Show(Clock::now());
    _line.End();
  }

  /// Servers that could not be published to at the start may be back.
  void OpenMissing() {
    for (std::size_t i = 0; i < _publication.Clients(); ++i) {
      if (!_publication.Opened(i) && !_options.what.fast) _publication.Open(i);
    }
    _retry = Clock::now() + OpenPause;
  }

  void TellMessages() {
    for (const auto& [client, message] : _publication.TakeMessages()) {
      _events.emplace_back(client, message);
      if (_monitor) _monitor->Tell(client, message);
      if (!_json) {
        WriteAll(STDERR_FILENO,
                 fmt::format("{}: {}\n", ShownUrl(_options.what.urls[client]), message));
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
    const auto figures = Figures();
    std::uint64_t bytes = 0;
    for (const ClientFigures& client : figures) bytes += client.bytes;
    _meter.Add(now, bytes);
    const Progress progress = {std::chrono::duration<double>(now - _start).count(),
                               _meter.BitsPerSecond(), _options.what.urls, figures, _events};
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
      complete = complete && _publication.Opened(i) && !figures.refused && !figures.gaps;
    }
    return complete;
  }

  const Options& _options;
  ControlLoop& _loop;
  std::optional<KeptOutput> _json;  ///< for the status objects; outlives what prints
  std::unique_ptr<monitor::Monitor> _monitor;
  publication::Publication _publication;
  publication::RateMeter _meter;
  StatusLine _line;
  std::vector<Event> _events;
  bool _failed_once = false;
  Clock::time_point _start;
  Clock::time_point _retry;
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
  publish->add_flag("--fast", options->what.fast,
                    "As fast as the servers take it; nothing is dropped");
  publish->add_flag(
      "--no-copy", [options](std::int64_t) { options->what.copy = false; },
      "Send frames from where they lie, without copying them");
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
      "Ends at the end of the input or the duration, and cleanly on SIGINT and SIGTERM; a second\n"
      "signal ends it at once. Each address has a client of its own; a lost connection is made\n"
      "again, and a server that fails holds up no other.\n"
      "Exit codes: 0 everything was published, 1 something was not, 2 wrong usage.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host publish test: rtmp://127.0.0.1/live/camera\n"
      "  nimbo-host publish film.mp4 rtmp://one/live/film rtmps://two/live/film --loop\n"
      "  nimbo-host publish rtsp://camera/stream rtmp://server/live/door --no-copy\n"
      "  nimbo-host publish test: rtmp://server/live/camera --monitor");
  publish->final_callback([options, chosen] {
    chosen([options](ControlLoop& loop) { return ExitCodeOf(Publish(*options, loop).Run()); });
  });
}

}  // namespace nimbo::cli
