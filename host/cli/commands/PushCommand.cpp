#include <fmt/format.h>

#include <cstdlib>
#include <memory>
#include <thread>

#include "host/base/Console.h"
#include "host/base/Outlet.h"
#include "host/base/Thread.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/commands/Values.h"
#include "host/cli/terminal/StatusLine.h"
#include "host/publication/Capture.h"
#include "host/publication/Link.h"
#include "host/publication/RateMeter.h"
#include "host/publication/Url.h"
#include "host/stream/Backoff.h"
#include "nimbo/stream/service.h"

namespace nimbo::cli {

namespace {

using publication::BitRateText;
using publication::ShownUrl;

struct PushOptions {
  std::string url = RTMP_DEFAULT_URL;
  KeyOptions key;
  publication::CaptureOptions capture;
  double duration = 0;  ///< seconds; 0 without limit
  bool wait = false;    ///< for a server that is away at the start
};

/// How long what is left in the rings is waited for when publishing was told to stop.
constexpr std::chrono::seconds StopPatience{2};
/// How often the rings are looked at.
constexpr std::chrono::milliseconds LookPeriod{100};

/// Publishes through a pusher service, which is made as the command "rtmp" makes it.
class Push {
 public:
  Push(const PushOptions& options, ControlLoop& loop) : _options(options), _loop(loop) {}

  Status Run() {
    base::Outlet::Hurry(true);  // a picture is worth more than what is told of it
    auto configuration = publication::CaptureConfiguration(_options.capture);
    if (!configuration) return configuration.Failure();
    if (!StartOrWait(*configuration)) {
      return Status::Failed("could not start publishing to " + ShownUrl(_options.url));
    }
    _start = Clock::now();
    while (!Guarded("push", false, [this] { return Serve(); })) {
      std::this_thread::sleep_for(LookPeriod);
    }
    Drain();
    const bool connected = Property("rtmp_sts") == "true";
    _pusher->Release();
    Summarise();
    if (base::LostThreads() > 0) return Status::Failed(LostThread);
    if (!connected) return Status::Failed("the connection to the server was lost");
    return _view.Lost() ? Status::Failed("not everything was published: the input was lost")
                        : Status();
  }

 private:
  bool StartOrWait(const std::string& configuration) {
    stream::Backoff pauses;
    const auto end = Ends(Clock::now());
    while (!Guarded("push", false, [&] { return Start(configuration); })) {
      const auto again = Clock::now() + pauses.Next();
      if (!_options.wait || again >= end) return false;
      if (_pusher) std::exchange(_pusher, nullptr)->Release();
      if (_loop.Wait(-1, again) == ControlLoop::Woken::Signal) return false;
    }
    return true;
  }

  /// When what began at `start` is over.
  Clock::time_point Ends(Clock::time_point start) const {
    if (_options.duration <= 0) return Clock::time_point::max();
    return start + std::chrono::duration_cast<Clock::duration>(
                       std::chrono::duration<double>(_options.duration));
  }

  bool Start(const std::string& configuration) {
    _pusher = stream::Service::New("RtmpStreamPusher", "rtmp-pusher-service", nullptr);
    return _pusher && _pusher->Set("addr", _options.url.c_str()) &&
           _pusher->Set("cfg", configuration.c_str()) && _pusher->Set("status", "play") &&
           _view.Find();
  }

  /// Until a signal, the end of the duration, or the end of an input that was read to its end.
  /// True.
  bool Serve() {
    const auto end = Ends(_start);
    auto next = Clock::now();
    auto now = next;
    for (; now < end && !(_view.Ended() && _view.Empty()); now = Clock::now()) {
      if (base::LostThreads() > 0) break;
      if (now >= next) {
        Measure(now);
        _line.Show(Sentence(now));
        next = now + _line.Period();
      }
      auto wake = std::min(end, next);
      if (_view.Ended()) wake = std::min(wake, now + LookPeriod);
      if (_loop.WaitOrWork(-1, wake, _line.Terminal()) == ControlLoop::Woken::Signal) break;
    }
    _stop = now;
    return true;
  }

  /// Counts what the server has acknowledged.
  void Measure(Clock::time_point now) {
    auto connections = publication::OwnConnections();
    _link.Follow(connections, publication::PortOf(_options.url), now);
    _meter.Add(now, _link.Acknowledged());
  }

  /// Ends the capture and lets the pusher send what it has been given.
  void Drain() {
    _pusher->Set("status", "ready");
    const auto patience = Clock::now() + StopPatience;
    while (!_view.Empty() && Clock::now() < patience) Wait(LookPeriod);
    _count = _view.Count();
    Measure(Clock::now());
    _line.End();
  }
  /// A signal that came does not shorten this wait; a second one ends the process.
  void Wait(std::chrono::milliseconds duration) {
    const auto until = Clock::now() + duration;
    while (_loop.Wait(-1, until, _line.Terminal(), false) != ControlLoop::Woken::Deadline) continue;
  }

  void Summarise() const {
    const std::chrono::duration<double> time = _stop - _start;
    publication::RateMeter meter;
    meter.Add(_start, 0);
    meter.Add(_stop, _link.Acknowledged());
    const std::string lost =
        _count.lost == 0 ? "" : fmt::format("; {} came too late to be sent", _count.lost);
    Note(fmt::format("Published {:.1f} s: {} video and {} audio packets, {}{}\n", time.count(),
                     _count.videoPackets, _count.audioPackets, BitRateText(meter.BitsPerSecond()),
                     lost));
  }

  std::string Property(const char* name) const {
    std::string value;
    return _pusher->GetStr(name, value) ? value : "?";
  }

  std::string Sentence(Clock::time_point now) const {
    const auto count = _view.Count();
    const std::chrono::duration<double> time = now - _start;
    return fmt::format("{:7.1f} s  video {}  audio {}  {}  rtmp_sts={}  rtmp_quality={}",
                       time.count(), count.videoPackets, count.audioPackets,
                       BitRateText(_meter.BitsPerSecond()), Property("rtmp_sts"),
                       Property("rtmp_quality"));
  }

  const PushOptions& _options;
  ControlLoop& _loop;
  stream::Service* _pusher = nullptr;
  publication::CaptureView _view;
  publication::CaptureCount _count;
  publication::Link _link;
  publication::RateMeter _meter;
  StatusLine _line;
  Clock::time_point _start;
  Clock::time_point _stop;
};

}  // namespace

void AddPush(CLI::App& program, const Choose& chosen) {
  const auto options = std::make_shared<PushOptions>();
  auto* push = program.add_subcommand("push", "Publish through the stand-alone pusher service");
  push->add_option("--url", options->url, "Publish to this address")->capture_default_str();
  AddKeyFile(*push, options->key);
  auto* encoder = push->add_option("--encoder", options->capture.encoder,
                                   "Publish this selection of the camera's encoder");
  encoder->default_str(publication::DefaultEncoder);
  auto* cfg = push->add_option("--cfg", options->capture.configuration,
                               "Publish the rings of this whole capture configuration");
  push->add_option("--input", options->capture.inputs,
                   "Publish this file, device or address; for elementary streams the host reads\n"
                   "*.h264 and *.aac itself, one of each with the option given twice")
      ->allow_extra_args(false)
      ->excludes(encoder)
      ->excludes(cfg);
  cfg->excludes(encoder);
  AddSeconds(*push, "--duration", options->duration, {0, 0, true},
             "Stop after this time: 90, 2.5s, 1h30m");
  push->add_flag("--wait", options->wait,
                 "Wait for a server that is away at the start, at most for the duration");
  push->footer(
      "Ends at the end of the input or the duration, and cleanly on SIGINT, SIGTERM and\n"
      "SIGHUP; a second signal ends it at once. A lost connection is made again without limit.\n"
      "Exit codes: 0 published, 1 could not start, not connected when it ended or the input lost,\n"
      "2 wrong usage.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host push --url rtmp://127.0.0.1/live/camera\n"
      "  nimbo-host push --url rtmp://server/live/name --encoder h264-0,W=1280,H=720,fr=25\n"
      "  nimbo-host push --url rtmps://server/live/clip --input clip.h264 --input clip.aac");
  push->final_callback([options, chosen] {
    auto key = KeyOf(options->key);
    if (!key) throw CLI::ValidationError("--key-file", key.Why());
    auto complete = publication::Complete({options->url}, *key);
    if (!complete) throw CLI::ValidationError("--url", complete.Why());
    options->url = complete->front();
    chosen([options](ControlLoop& loop) { return ExitCodeOf(Push(*options, loop).Run()); });
  });
}

}  // namespace nimbo::cli
