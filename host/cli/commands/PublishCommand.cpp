#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "host/cli/commands/Configuration.h"
#include "host/cli/commands/Publish.h"
#include "host/cli/commands/SourceOptions.h"
#include "host/cli/commands/Subcommand.h"
#include "host/cli/commands/Values.h"
#include "host/publication/Capture.h"
#include "host/publication/Url.h"

namespace nimbo::cli {

namespace {

constexpr char MonitorPort[] = "8089";

/// The settings with what they are put together from.
struct Options : PublishSettings {
  std::string config;
  std::string urlFile;
  KeyOptions key;
  double maxLag = -1;       ///< seconds; below zero: as usual
  double longestPause = 0;  ///< seconds; 0: as usual
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
  return "\"" + publication::ShownUrl(url) +
         "\" is no address of a playlist: http://... is expected";
}

/// Adds the addresses of the file that has nothing else.
Status AddListed(const Options& options, std::vector<std::string>& urls) {
  if (options.urlFile.empty()) return {};
  auto listed = publication::ReadUrls(options.urlFile);
  if (!listed) return listed.Failure();
  urls.insert(urls.end(), listed->begin(), listed->end());
  return {};
}

/// All addresses anew: `own` are those of the command line, `before` is what the configuration said
/// at the start.
Result<std::vector<std::string>> ReadAgain(const Options& options,
                                           const std::vector<std::string>& own,
                                           const std::vector<Setting>& before) {
  auto urls = own;
  if (!options.config.empty()) {
    auto settings = ReadConfiguration(options.config);
    if (!settings) return settings.Failure();
    const auto others = [](std::vector<Setting> all) {
      std::erase_if(all, [](const Setting& one) { return one.name == UrlSetting; });
      return all;
    };
    if (others(*settings) != others(before)) {
      return Status::Failed("\"" + options.config +
                            "\" has changed in more than its addresses, which takes a restart");
    }
    for (const auto& url : ValuesOf(*settings, UrlSetting)) urls.push_back(url);
  }
  if (Status added = AddListed(options, urls); !added) return added;
  auto key = KeyOf(options.key);
  return key ? publication::Complete(urls, *key) : key.Failure();
}

/// Puts the addresses together.
void TakeAddresses(const std::shared_ptr<Options>& shared) {
  Options& options = *shared;
  auto& what = options.what;
  if (!options.config.empty() || !options.urlFile.empty()) {
    std::vector<Setting> settings;
    if (!options.config.empty()) settings = *ReadConfiguration(options.config);
    // Those of the configuration were put behind the words of the command line.
    auto own = what.urls;
    own.resize(own.size() - std::min(own.size(), ValuesOf(settings, UrlSetting).size()));
    options.readAddresses = [&options, own, settings] { return ReadAgain(options, own, settings); };
  }
  if (const Status added = AddListed(options, what.urls); !added) {
    throw CLI::ValidationError("--url-file", added.Why());
  }
  if (what.urls.empty()) throw CLI::RequiredError("URL");
  if (!what.backups.empty() && what.urls.size() != 1) {
    throw CLI::ValidationError("--backup", "belongs to one address, not to several");
  }
  auto key = KeyOf(options.key);
  if (!key) throw CLI::ValidationError("--key-file", key.Why());
  for (auto* urls : {&what.urls, &what.backups}) {
    auto complete = publication::Complete(*urls, *key);
    if (!complete)
      throw CLI::ValidationError(urls == &what.urls ? "URL" : "--backup", complete.Why());
    *urls = std::move(*complete);
  }
}

}  // namespace

void AddPublish(CLI::App& program, const Choose& chosen) {
  const auto options = std::make_shared<Options>();
  auto* publish = program.add_subcommand("publish", "Publish an input to one or several addresses");
  publish
      ->add_option("INPUT", options->what.input,
                   "A file, device, network stream (rtsp://...) or pipe (-), or the simulated\n"
                   "camera: test: or test:W=1280,H=720,fr=30,br=2000000,gop=30")
      ->required();
  publish->add_option("URL", options->what.urls, "rtmp://HOST[:PORT]/APPLICATION/STREAM, or rtmps");
  publish
      ->add_option(
          ConfigurationOption, options->config,
          "A file in TOML that says what else would stand here: input = \"...\",\n"
          "url = [\"...\", \"...\"], and any option without its dashes, size = \"640x360\"")
      ->type_name("FILE");
  publish
      ->add_option("--url-file", options->urlFile,
                   "A file of addresses, one a line, beside those in the command line")
      ->type_name("FILE");
  AddKeyFile(*publish, options->key);
  AddSourceOptions(*publish, options->what);
  AddSeconds(*publish, "--duration", options->duration, {0, 0, true},
             "Stop after this time: 90, 2.5s, 1h30m");
  publish->add_flag(
      "--loop", [options](std::int64_t) { options->what.loop = "true"; },
      "Play a file again and again");
  AddSeconds(*publish, "--max-lag", options->maxLag, {0, 3600},
             "How late a live stream may be before it goes on at its newest key frame (2s);\n"
             "0: any");
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
  auto* record =
      publish
          ->add_option(
              "--record", options->what.record,
              "Record what is published to this file, too, in fragmented MP4; %Y, %m, %d, %H,\n"
              "%M and %S stand for the time of day")
          ->type_name("FILE")
          ->excludes(fast);
  AddSeconds(*publish, "--record-segment", options->what.recordSegment, {1, 3600},
             "Begin another file behind this time, at a key frame")
      ->needs(record);
  publish
      ->add_flag("--enhanced", options->what.enhanced,
                 "HEVC, AV1, Opus, FLAC and AC-3 go through as they are, to a server that knows\n"
                 "Enhanced RTMP")
      ->excludes(record);
  publish->add_flag("--wait", options->wait,
                    "Wait for a server that is away at the start, at most for the duration");
  publish
      ->add_option(
          "--backup", options->what.backups,
          "Another address of the same stream, where it goes on when the one before stays\n"
          "away; several may be given, and behind the last comes the first")
      ->type_name("URL")
      ->allow_extra_args(false);
  publish
      ->add_option("--attempts", options->what.attempts,
                   "Attempts that fail before it goes on at the next address (3)")
      ->check(CLI::Range(1, 1000));
  AddSeconds(*publish, "--retry-max", options->longestPause, {1, 3600},
             "At most so long between attempts while a server stays away (15s)");
  publish->add_flag(
      "--json", options->json,
      "One status object a line, on standard output; the last one tells how it ended");
  publish->add_flag("--quiet", options->quiet, "No status line, and nothing told that is in order");
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
      "SIGUSR1: addresses that have changed in the files of --config and --url-file are gone to;\n"
      "the other sessions go on.\n"
      "Exit codes: 0 everything was published, 1 something was not (a live input that ends is\n"
      "lost, too), 2 wrong usage.\n"
      "Environment: NIMBO_KEY, the stream key where there is no --key-file; RTMP_CA_FILE, a file\n"
      "of trusted certificates; RTMP_TLS_VERIFY=0, servers are not checked.\n"
      "\n"
      "Examples:\n"
      "  nimbo-host publish test: rtmp://127.0.0.1/live/camera\n"
      "  nimbo-host publish film.mp4 rtmp://one/live/film rtmps://two/live/film --loop\n"
      "  nimbo-host publish rtsp://camera/stream rtmp://server/live/door --no-copy\n"
      "  nimbo-host publish test: rtmp://server/live/camera --monitor");
  publish->final_callback([options, chosen] {
    auto& what = options->what;
    TakeAddresses(options);
    if (!what.loop.empty() && publication::IsPipe(what.input)) {
      throw CLI::ValidationError("--loop",
                                 "\"" + what.input + "\" cannot be played again: it is a pipe");
    }
    if (options->maxLag >= 0) what.maxLag = fmt::format("{}", options->maxLag);
    if (options->longestPause > 0) {
      what.longestPause = std::chrono::duration_cast<std::chrono::nanoseconds>(
          std::chrono::duration<double>(options->longestPause));
    }
    chosen([options](ControlLoop& loop) { return ExitCodeOf(RunPublish(*options, loop)); });
  });
}

}  // namespace nimbo::cli
