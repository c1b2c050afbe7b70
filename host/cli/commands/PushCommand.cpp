#include <fmt/format.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "common/WriteAll.h"
#include "host/base/Guard.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/terminal/StatusLine.h"
#include "host/publication/Capture.h"
#include "host/publication/RateMeter.h"
#include "host/publication/Url.h"
#include "nimbo/stream/service.h"

namespace nimbo::cli {

namespace {

using publication::BitRateText;
using publication::ShownUrl;

struct PushOptions {
  std::string url = RTMP_DEFAULT_URL;
  publication::CaptureOptions capture;
  double duration = 0;  ///< seconds; 0 without limit
};

using Clock = ControlLoop::Clock;

/// How long after the last packet was taken out of the rings the pusher may still be sending it: it
/// waits up to half a second for a packet of the other stream before it sends one.
constexpr std::chrono::milliseconds Lag{600};
/// How long what is left in the rings is waited for when publishing was told to stop.
constexpr std::chrono::seconds StopPatience{2};
/// How often the rings are looked at.
constexpr std::chrono::milliseconds LookPeriod{100};

/// Publishes through a pusher service, which is made as the command "rtmp" makes it.
class Push {
 public:
  Push(const PushOptions& options, ControlLoop& loop) : _options(options), _loop(loop) {}

  Status Run() {
    auto configuration = publication::CaptureConfiguration(_options.capture);
    if (!configuration) return configuration.Failure();
    if (!base::Guarded("push", false, [&] { return Start(*configuration); })) {
      return Status::Failed("could not start publishing to " + ShownUrl(_options.url));
    }
    Serve();
    Drain();
    const bool connected = Property("rtmp_sts") == "true";
    _pusher->Release();
    Summarise();
    return connected ? Status() : Status::Failed("the connection to the server was lost");
  }

 private:
  bool Start(const std::string& configuration) {
    _pusher = stream::Service::New("RtmpStreamPusher", "rtmp-pusher-service", nullptr);
    return _pusher && _pusher->Set("addr", _options.url.c_str()) &&
           _pusher->Set("cfg", configuration.c_str()) && _pusher->Set("status", "play") &&
           _view.Find();
  }

  /// Until a signal, the end of the duration, or the end of an input that was read to its end.
  void Serve() {
    _start = Clock::now();
    auto end = Clock::time_point::max();
    if (_options.duration > 0)
      end = _start + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(_options.duration));
    auto next = _start;
    auto now = _start;
    for (; now < end && !(_view.Ended() && _view.Empty()); now = Clock::now()) {
      if (now >= next) {
        _meter.Add(now, _view.Count().bytes);
        _line.Show(Sentence(now));
        next = now + _line.Period();
      }
      auto wake = std::min(end, next);
      if (_view.Ended()) wake = std::min(wake, now + LookPeriod);
      if (_loop.WaitOrWork(-1, wake, _line.Terminal()) == ControlLoop::Woken::Signal) break;
    }
    _stop = now;
  }

  /// Ends the capture and lets the pusher send what it has been given.
  void Drain() {
    _pusher->Set("status", "ready");
    _count = _view.Count();
    const auto patience = Clock::now() + StopPatience;
    while (!_view.Empty() && Clock::now() < patience) Wait(LookPeriod);
    Wait(Lag);
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
    meter.Add(_stop, _count.bytes);
    WriteAll(STDERR_FILENO, fmt::format("Published {:.1f} s: {} video and {} audio packets, {}\n",
                                        time.count(), _count.videoPackets, _count.audioPackets,
                                        BitRateText(meter.BitsPerSecond())));
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
  publication::RateMeter _meter;
  StatusLine _line;
  Clock::time_point _start;
  Clock::time_point _stop;
};

}  // namespace

void AddPush(CLI::App& program, const Choose& chosen) {
  const auto options = std::make_shared<PushOptions>();
  auto* push = program.add_subcommand("push", "Publish through the stand-alone pusher service");
  push->add_option("--url", options->url, "Publish to this address")
      ->check(publication::UrlFault)
      ->capture_default_str();
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
  push->add_option("--duration", options->duration, "Stop after so many seconds")
      ->check(CLI::PositiveNumber);
  push->footer(
      "Ends at the end of the input or the duration, and cleanly on SIGINT and SIGTERM; a second\n"
      "signal ends it at once. A lost connection is made again without limit.\n"
      "Exit codes: 0 published, 1 could not start, or not connected when it ended, 2 wrong usage.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host push --url rtmp://127.0.0.1/live/camera\n"
      "  nimbo-host push --url rtmp://server/live/name --encoder h264-0,W=1280,H=720,fr=25\n"
      "  nimbo-host push --url rtmps://server/live/clip --input clip.h264 --input clip.aac");
  push->final_callback([options, chosen] {
    chosen([options](ControlLoop& loop) { return ExitCodeOf(Push(*options, loop).Run()); });
  });
}

}  // namespace nimbo::cli
