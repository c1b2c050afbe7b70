#include "host/publication/Publication.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <utility>

#include "host/base/Nearest.h"
#include "host/base/ShownAddress.h"
#include "host/publication/Capture.h"
#include "host/publication/Url.h"
#include "host/stream/Builder.h"
#include "host/stream/Media.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"

namespace nimbo::publication {

namespace {

using stream::Application;
using stream::IElement;
using stream::IMedia;
using stream::IStatus;
using stream::MessageListeners;
using stream::Pipeline;

constexpr char TestInput[] = "test:";
constexpr char AsPossible[] = "auto";
constexpr char DefaultPicture[] = "W=1280,H=720,fr=30";

/// Messages after which something of the stream is missing at the server.
constexpr const char* FailureMessages[] = {"rtmp_disconnected", "rtmp_send_data_fail",
                                           "rtmp_reconnect_fail"};

/// Attempts that a client has made when it tells that it could not reconnect.
constexpr unsigned int AttemptsOfClient = 3;

/// The classes of the plug-ins' clients: one for what its messages describe, one for everything.
constexpr char ClassicClient[] = "EleRtmpClient-ele-rtmp-client-muxer-sink";
constexpr char LiveClient[] = "EleRtmpLive-ele-rtmp-live-sink";

bool IsLoaded(const char* client) { return base::IClass::Find(client, true) != nullptr; }

/// A client that publishes what stands before it in the same application.
std::string ClientText(const PublishOptions& options, const std::string& url, bool live) {
  const std::string copy = options.copy ? "true" : "false";
  const std::string head =
      live ? std::string("rtmp-live:link=all") + (options.enhanced ? ",enhanced=true" : "")
           : "rtmp-client:link=all,vcopy=" + copy + ",acopy=" + copy;
  return head + ",url={" + url + "}";
}

bool IsClassic(const char* codec) {
  return base::Hash(codec) == base::Hash("h264") || base::Hash(codec) == base::Hash("aac");
}

/// Whether a stream needs the client that carries everything: its media tells more than the other
/// one's messages can say.
bool NeedsLive(Application& application) {
  for (Pipeline* pipeline : HostState(application).pipelines) {
    for (IElement* element : HostState(*pipeline).elements) {
      for (const auto& output : HostState(*element).outputs) {
        unsigned char* config = nullptr;
        IMedia* media = output->Media();
        int varies = 0;
        if (media && (media->Get("config", config) || media->GetIntT("varies", varies) ||
                      !IsClassic(media->Codec()))) {
          return true;
        }
      }
    }
  }
  return false;
}

/// What records all that stands before it in the same text.
std::string RecorderText(const PublishOptions& options) {
  return "recorder:link=all,file={" + options.record +
         "},segment=" + std::to_string(options.recordSegment);
}

std::string TestConfiguration(const std::string& picture) {
  return CapturePipeline("h264-0," + (picture.empty() ? DefaultPicture : picture)) + "+" +
         CapturePipeline("aac-0");
}

std::uint64_t Number(IElement& element, const char* property) {
  std::string text;
  return element.GetStr(property, text) ? std::strtoull(text.c_str(), nullptr, 10) : 0;
}

bool IsClient(const IElement& element) {
  return Framework::Property(element, "url") && Framework::Property(element, "rtmp_sts");
}

bool IsRecorder(const IElement* element) {
  return Framework::Property(*element, "file") && Framework::Property(*element, "segment");
}

std::string Text(IElement& element, const char* property) {
  std::string text;
  element.GetStr(property, text);
  return text;
}

/// The capture sources of the input, as the texts behind "pv:".
Result<std::vector<std::string>> Connections(const PublishOptions& options) {
  auto ofInput = options.inputOptions;
  auto ofSound = options.audioOptions;
  if (!options.audioBitRate.empty()) {
    (options.audio.empty() ? ofInput : ofSound).emplace_back("audio_bitrate", options.audioBitRate);
  }
  if (options.silence && options.audio.empty()) ofInput.emplace_back("silence", "true");
  if (options.keep == "true") {
    ofInput.emplace_back("keep", "true");
    if (!options.audio.empty()) ofSound.emplace_back("keep", "true");
  }
  if (!options.slate.empty()) ofInput.emplace_back("slate", options.slate);
  const bool elementary = IsElementary(options.input) && ofInput.empty() && ofSound.empty();
  if (elementary || options.audio.empty()) {
    std::vector<std::string> inputs = {options.input};
    if (!options.audio.empty()) inputs.push_back(options.audio);
    auto connection =
        elementary ? InputConnection(inputs) : LibavConnection(options.input, ofInput);
    if (!connection) return connection.Failure();
    return std::vector{*connection};
  }
  if (options.fast) {
    return Status::Failed("sound from an input of its own runs in real time: --fast is for one");
  }
  auto pictures = LibavConnection(options.input, ofInput);
  if (!pictures) return pictures.Failure();
  auto sound = LibavConnection(options.audio, ofSound);
  if (!sound) return sound.Failure();
  return std::vector{*pictures + ",streams=video", *sound + ",streams=audio"};
}

}  // namespace

Result<std::string> SourceConfiguration(const PublishOptions& options) {
  const std::string& input = options.input;
  if (options.enhanced && !IsLoaded(LiveClient)) {
    return Status::Failed("--enhanced takes the live client: --plugin live, or none");
  }
  if (options.keep == "true" && (options.fast || !IsLoaded(LiveClient))) {
    return Status::Failed("--keep takes a live input and the live client");
  }
  if (input.starts_with(TestInput)) {
    if (options.keep == "true" || !options.slate.empty()) {
      return Status::Failed("the simulated camera never goes: --keep and --slate are for others");
    }
    if (options.fast || !options.loop.empty()) {
      return Status::Failed(
          "the simulated camera runs in real time: --fast and --loop are for files");
    }
    if (!options.audio.empty() || !options.inputOptions.empty() || !options.audioOptions.empty() ||
        !options.audioBitRate.empty()) {
      return Status::Failed(
          "the simulated camera has sound and settings of its own (test:W=1280,br=2000000): "
          "--audio and the options of inputs and encoders are for others");
    }
    return TestConfiguration(input.substr(sizeof TestInput - 1));
  }
  auto connection = Connections(options);
  if (!connection) {
    const bool meant = !base::Nearest(input.substr(0, input.find(':')) + ":", {TestInput}).empty();
    return Status::Failed(connection.Why() + (meant ? "; the simulated camera is \"test:\"" : ""));
  }
  std::string text;
  for (std::string source : *connection) {
    // A source of elementary streams passes everything on as it is.
    if (source.starts_with("av,") && IsLoaded(LiveClient)) {
      source += IsLoaded(ClassicClient) ? ",carry=any" : ",carry=live";
      if (options.enhanced) source += ",enhanced=true";
      if (options.keep == AsPossible && !options.fast) source += ",keep=auto";
    }
    if (!options.loop.empty()) source += ",loop=" + options.loop;
    if (options.fast) source += ",pace=fast";
    text += (text.empty() ? "" : "+") + CapturePipeline(source, options.fast ? "" : "+RingSink");
  }
  return text;
}

Publication::Publication()
    : _listener(MessageListeners::Global().Add(
          [this](const stream::Message& message) { Receive(message); })) {}

Publication::~Publication() {
  MessageListeners::Global().Remove(_listener);
  // What ends first are the clients, so that they say goodbye while the source still stands.
  for (const Client& client : _clients) client.pipeline->StatusChange(IStatus::null);
  for (const Source& source : _sources) source.pipeline->StatusChange(IStatus::null);
  if (_recording) _recording->StatusChange(IStatus::null);
  for (Application* application : _applications) application->Release();
}

Status Publication::Build(const PublishOptions& options, const std::string& source) {
  Status failed = Status::Failed("cannot publish \"" + base::ShownAddress(options.input) + "\"");
  // An output without a ring has one taker, so each address then gets a source of its own.
  if (!options.fast && !BuildSource(source, options.maxLag)) return failed;
  for (const std::string& url : options.urls) {
    if (options.fast && !BuildSource(source, options.maxLag)) return failed;
    Application& application = *_applications.back();
    const bool live = !IsLoaded(ClassicClient) || (IsLoaded(LiveClient) && NeedsLive(application));
    if (!stream::BuildApplication(application, ClientText(options, url, live))) return failed;
  }
  if (!options.record.empty() &&
      !stream::BuildApplication(*_applications.back(), RecorderText(options))) {
    return failed;
  }
  for (Application* application : _applications) {
    if (!Bound(*application, options.maxLag)) return failed;
  }
  Sort(!options.fast);
  _attempts = options.attempts;
  for (std::size_t i = 0; i < _clients.size(); ++i) {
    _clients[i].addresses = options.backups;
    _clients[i].addresses.insert(_clients[i].addresses.begin(), options.urls.at(i));
    _clients[i].pauses->SetLongest(options.longestPause);
    HostState(*_clients[i].element).pauses.SetLongest(options.longestPause);
  }
  for (const Connection& connection : OwnConnections()) _foreign.push_back(connection.inode);
  return !_recording || _recording->StatusChange(IStatus::ready) ? Status() : failed;
}

bool Publication::BuildSource(const std::string& configuration, const std::string& maxLag) {
  const std::string name =
      "publish" +
      (_applications.empty() ? std::string() : "-" + std::to_string(_applications.size() + 1));
  Application* application = stream::CreateApplication(name, configuration);
  if (!application) return false;
  _applications.push_back(application);
  if (!Bound(*application, maxLag)) return false;
  // Which client it takes is known when its media are.
  const auto& pipelines = HostState(*application).pipelines;
  return std::all_of(pipelines.begin(), pipelines.end(),
                     [](Pipeline* pipeline) { return pipeline->StatusChange(IStatus::ready); });
}

bool Publication::Bound(Application& application, const std::string& maxLag) {
  if (maxLag.empty()) return true;
  for (Pipeline* pipeline : HostState(application).pipelines) {
    for (IElement* element : HostState(*pipeline).elements) {
      const bool bounded = element->StatusIsNull() && Framework::Property(*element, "max-lag");
      if (bounded && !element->SetStr("max-lag", maxLag.c_str())) return false;
    }
  }
  return true;
}

void Publication::Sort(bool shared) {
  for (Application* application : _applications) {
    const std::size_t next = _clients.size();
    for (Pipeline* pipeline : HostState(*application).pipelines) {
      const auto& elements = HostState(*pipeline).elements;
      if (std::ranges::any_of(elements, IsRecorder)) {
        _recording = pipeline;
        continue;
      }
      const auto client = std::find_if(elements.begin(), elements.end(),
                                       [](const IElement* element) { return IsClient(*element); });
      if (client == elements.end()) {
        _sources.push_back({pipeline, shared ? AllClients : next});
      } else {
        _clients.push_back({pipeline, *client});
      }
    }
  }
}

bool Publication::Serves(const Source& source) const {
  return source.client == AllClients || _clients.at(source.client).opened;
}

Status Publication::Open(std::size_t index) {
  Client& client = _clients.at(index);
  const auto start = Clock::now();
  client.opened = client.pipeline->StatusChange(IStatus::play);
  client.setUp = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  Measure();
  if (client.opened) return {};
  const std::string shown = ShownUrl(client.addresses[client.address]);
  client.retry = Clock::now() + client.pauses->Next();
  Fail(index, 1);
  return Status::Failed("cannot publish to " + shown);
}

void Publication::Measure() {
  auto free = OwnConnections();
  std::erase_if(free, [this](const Connection& connection) {
    return std::ranges::find(_foreign, connection.inode) != _foreign.end();
  });
  // Those that have a connection keep it before others look for theirs.
  for (const bool stands : {true, false}) {
    for (Client& client : _clients) {
      if (!client.opened || client.link.Stands() != stands) continue;
      client.link.Follow(free, PortOf(client.addresses[client.address]), Clock::now());
    }
  }
}

std::vector<IElement*> Publication::Captures() const {
  std::vector<IElement*> captures;
  for (const Source& source : _sources) {
    for (IElement* element : HostState(*source.pipeline).elements) {
      if (HostState(*element).inputs.empty()) captures.push_back(element);
    }
  }
  return captures;
}

std::uint64_t Publication::Made() const {
  std::uint64_t bytes = 0;
  for (IElement* capture : Captures()) bytes += Number(*capture, "bytes");
  return bytes;
}

void Publication::Adapt() {
  constexpr double Change = 0.02;  // that is worth telling
  const auto now = Clock::now();
  std::uint64_t sound = 0;
  double encoded = 0;
  for (IElement* capture : Captures()) {
    const auto pictures = static_cast<double>(Number(*capture, "bit-rate"));
    encoded += pictures;
    if (pictures == 0) sound += Number(*capture, "bytes");
  }
  const bool encodes = encoded > 0;
  _sound.Add(now, encodes ? sound : 0);
  _made.Add(now, Made());
  if (_full_rate == 0) {
    // What somebody else encodes is taken as it comes at first.
    if (!encodes && now < _started + RateMeter::Window) return;
    _bit_rate = _full_rate = encodes ? encoded : _made.BitsPerSecond();
  }
  const double wanted = WantedRate(now);
  if (std::abs(wanted - _bit_rate) < Change * wanted) return;
  _bit_rate = wanted;
  Ask(std::to_string(std::llround(wanted)), encodes);
}

double Publication::WantedRate(Clock::time_point now) {
  constexpr double Least = 0.05;  // of the full rate
  constexpr double AndSound = 1.1;
  Measure();
  double wanted = _full_rate;
  for (std::size_t i = 0; i < _clients.size(); ++i) {
    Client& client = _clients[i];
    const ClientFigures figures = Figures(i);
    if (!client.opened || !figures.connected) continue;
    if (!client.rate) {
      client.rate = std::make_unique<RateControl>(Least * _full_rate, AndSound * _full_rate);
    }
    client.rate->Add(now, figures.link);
    wanted = std::min(wanted, client.rate->BitRate() - _sound.BitsPerSecond());
  }
  return std::max(wanted, Least * _full_rate);
}

void Publication::Ask(const std::string& bitRate, bool encoders) {
  for (IElement* capture : Captures()) {
    if (Number(*capture, "bit-rate") > 0) capture->SetStr("bit-rate", bitRate.c_str());
  }
  if (encoders) return;
  for (const Client& client : _clients) {
    if (client.opened) client.element->SendMessageUp("bit_rate", bitRate.c_str(), nullptr);
  }
}

Clock::time_point Publication::OpenMissing() {
  auto next = Clock::time_point::max();
  for (std::size_t i = 0; i < _clients.size(); ++i) {
    if (!_clients[i].opened && Clock::now() >= _clients[i].retry) (void)Open(i);
    if (!_clients[i].opened) next = std::min(next, _clients[i].retry);
  }
  return next;
}

void Publication::Redirect(std::size_t index, const std::string& url) {
  Client& client = _clients.at(index);
  if (client.addresses.front() == url) return;
  client.leaves = true;
  client.pipeline->StatusChange(IStatus::null);
  client.addresses.front() = url;
  client.address = 0;
  client.failed = 0;
  client.element->SetStr("url", url.c_str());
  client.link = {};
  client.opened = false;
  client.retry = Clock::now();
  _messages.emplace_back(index, "address_changed");
}

std::vector<std::string> Publication::Addresses() const {
  std::vector<std::string> addresses;
  for (const Client& client : _clients) addresses.push_back(client.addresses[client.address]);
  return addresses;
}

void Publication::Fail(std::size_t index, unsigned int attempts) {
  Client& client = _clients.at(index);
  client.attempts += attempts;
  client.failed += attempts;
  if (client.addresses.size() == 1 || client.failed < _attempts) return;
  client.failed = 0;
  client.address = (client.address + 1) % client.addresses.size();
  // While it plays the client takes the address for its next attempt, and says that it is late.
  client.element->SetStr("url", client.addresses[client.address].c_str());
  _messages.emplace_back(index, "address_changed");
}

Status Publication::Start() {
  _started = Clock::now();
  _saw_failure = false;  // nothing of the stream is missing yet
  if (_recording && !_recording->StatusChange(IStatus::play)) return Status::Failed();
  const bool started = std::all_of(_sources.begin(), _sources.end(), [this](const Source& source) {
    return !Serves(source) || source.pipeline->StatusChange(IStatus::play);
  });
  return started ? Status() : Status::Failed();
}

ClientFigures Publication::Figures(std::size_t index) const {
  const Client& client = _clients.at(index);
  ClientFigures figures;
  for (const auto& input : HostState(*client.element).inputs) {
    const stream::PortFigures& port = input->Figures();
    // What may be of any codec tells by its media which one it is.
    const IMedia* media = *input->Caps() ? nullptr : input->Media();
    const bool video = stream::IsVideo(media ? media->Codec() : input->Caps());
    (video ? figures.videoPackets : figures.audioPackets) += port.packets;
    figures.bytes += port.bytes;
    figures.dropped.refused += port.refused;
    figures.gaps += port.gaps;
  }
  for (IElement* element : HostState(*client.pipeline).elements) {
    figures.dropped.gap += Number(*element, "dropped");
    figures.dropped.lag += Number(*element, "late");
    figures.dropped.ended += Number(*element, "ended") + (_over ? Number(*element, "queued") : 0);
  }
  figures.reconnections = client.reconnections;
  figures.attempts = client.attempts;
  figures.setUp = client.setUp;
  figures.link.acknowledged = client.link.Acknowledged();
  figures.link.unsent = client.link.Outstanding();
  figures.link.retransmits = client.link.Retransmits();
  figures.link.roundTrip =
      std::chrono::duration<double, std::milli>(client.link.RoundTrip()).count();
  figures.link.lag = std::chrono::duration<double, std::milli>(client.link.Age()).count();
  for (IElement* element : HostState(*client.pipeline).elements) {
    // The client's own is that of its connection, which was measured above.
    if (element == client.element) continue;
    figures.link.lag += static_cast<double>(Number(*element, "lag"));
  }
  figures.connected = Text(*client.element, "rtmp_sts") == "true";
  figures.quality = static_cast<int>(Number(*client.element, "rtmp_quality"));
  return figures;
}

bool Publication::Finished() const {
  const auto drained = [](Pipeline& pipeline) {
    const auto& elements = HostState(pipeline).elements;
    return std::all_of(elements.begin(), elements.end(), [](IElement* element) {
      const std::string queued = Text(*element, "queued");
      return queued.empty() || queued == "0";
    });
  };
  std::size_t sources = 0;
  for (const Source& source : _sources) {
    if (!Serves(source)) continue;
    // The source itself is the element that nothing is delivered to.
    for (const IElement* element : HostState(*source.pipeline).elements) {
      if (HostState(*element).inputs.empty()) ++sources;
    }
    if (!drained(*source.pipeline)) return false;
  }
  if (_recording && !drained(*_recording)) return false;
  return _ended >= sources && std::all_of(_clients.begin(), _clients.end(), [&](const Client& c) {
           return !c.opened || drained(*c.pipeline);
         });
}

std::vector<std::pair<std::size_t, std::string>> Publication::TakeMessages() {
  return std::exchange(_messages, {});
}

void Publication::Receive(const stream::Message& message) {
  if (message.name == "end_of_stream") {
    ++_ended;
    return;
  }
  if (message.name == "source_away") ++_away;
  if (message.name == "source_back") --_away;
  _lost_source = _lost_source || message.name == "source_lost" || SourceAway();
  for (std::size_t i = 0; i < _clients.size(); ++i) {
    if (stream::PathOf(*_clients[i].element) != message.path) continue;
    if (message.name == "bit_rate") continue;  // sent by Adapt
    _messages.emplace_back(i, message.name);
    if (message.name == "rtmp_reconnect_fail") Fail(i, AttemptsOfClient);
    if (message.name == "rtmp_reconnect_success") {
      ++_clients[i].reconnections;
      _clients[i].failed = 0;
    }
  }
  for (Client& client : _clients) {
    if (stream::PathOf(*client.element) != message.path) continue;
    if (message.name == "rtmp_connected") client.leaves = false;
    if (client.leaves) return;
  }
  _saw_failure =
      _saw_failure || std::any_of(std::begin(FailureMessages), std::end(FailureMessages),
                                  [&](const char* name) { return message.name == name; });
}

}  // namespace nimbo::publication
