#include "host/publication/Publication.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "host/publication/Capture.h"
#include "host/stream/Builder.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"

namespace nimbo::publication {

namespace {

using stream::Application;
using stream::IElement;
using stream::IStatus;
using stream::MessageListeners;
using stream::Pipeline;

constexpr char TestInput[] = "test:";
constexpr char DefaultPicture[] = "W=1280,H=720,fr=30";

/// Messages after which something of the stream is missing at the server.
constexpr const char* FailureMessages[] = {"rtmp_disconnected", "rtmp_send_data_fail",
                                           "rtmp_reconnect_fail"};

std::string Brace(const std::string& text) { return "{" + text + "}"; }

/// A client that publishes what stands before it in the same text.
std::string ClientText(const PublishOptions& options, const std::string& url) {
  const char* copy = options.copy ? "true" : "false";
  return std::string("+rtmp-client:link=all,vcopy=") + copy + ",acopy=" + copy +
         ",url=" + Brace(url);
}

std::string TestConfiguration(const std::string& picture) {
  return "type=pipeline,serialize={shm-source:connect={pv:h264-0," +
         (picture.empty() ? DefaultPicture : picture) +
         "}+RingSink}+type=pipeline,serialize={shm-source:connect={pv:aac-0}+RingSink}";
}

bool IsClient(const IElement& element) {
  return element.Class() && element.Class()->Property("url") && element.Class()->Property("vcopy");
}

std::string Text(IElement& element, const char* property) {
  std::string text;
  element.GetStr(property, text);
  return text;
}

}  // namespace

Result<std::string> SourceConfiguration(const PublishOptions& options) {
  const std::string& input = options.input;
  if (input.starts_with(TestInput)) {
    if (options.fast || !options.loop.empty()) {
      return Status::Failed(
          "the simulated camera runs in real time: --fast and --loop are for files");
    }
    if (!options.audio.empty()) {
      return Status::Failed(
          "the simulated camera has sound of its own: --audio is for elementary streams");
    }
    return TestConfiguration(input.substr(sizeof TestInput - 1));
  }
  std::vector<std::string> inputs = {input};
  if (!options.audio.empty()) inputs.push_back(options.audio);
  auto connection = InputConnection(inputs);
  if (!connection) {
    const bool meant = input + ":" == TestInput;
    return Status::Failed(connection.Why() + (meant ? "; the simulated camera is \"test:\"" : ""));
  }
  std::string connect = "pv:" + *connection;
  if (!options.loop.empty()) connect += ",loop=" + options.loop;
  if (options.fast) connect += ",pace=fast";
  return "shm-source:connect=" + Brace(connect) + (options.fast ? "" : "+RingSink");
}

Publication::Publication()
    : _listener(MessageListeners::Globle().Add(
          [this](const stream::Message& message) { Receive(message); })) {}

Publication::~Publication() {
  MessageListeners::Globle().Remove(_listener);
  // What ends first are the clients, so that they say goodbye while the source still stands.
  for (const Client& client : _clients) client.pipeline->StatusChange(IStatus::null);
  for (const Source& source : _sources) source.pipeline->StatusChange(IStatus::null);
  for (Application* application : _applications) application->Release();
}

bool Publication::Build(const PublishOptions& options, const std::string& source) {
  // An output without a ring has one taker, so each address then gets a source of its own.
  std::string text = source;
  for (const std::string& url : options.urls) {
    text += ClientText(options, url);
    if (options.fast) {
      if (!BuildApplication(text)) return false;
      text = source;
    }
  }
  if (!options.fast && !BuildApplication(text)) return false;
  Sort(!options.fast);
  return std::all_of(_sources.begin(), _sources.end(), [](const Source& from) {
    return from.pipeline->StatusChange(IStatus::ready);
  });
}

bool Publication::BuildApplication(const std::string& configuration) {
  const std::string name =
      "publish" +
      (_applications.empty() ? std::string() : "-" + std::to_string(_applications.size() + 1));
  Application* application = stream::CreateApplication(name, configuration);
  if (application) _applications.push_back(application);
  return application != nullptr;
}

void Publication::Sort(bool shared) {
  for (Application* application : _applications) {
    const std::size_t next = _clients.size();
    for (Pipeline* pipeline : HostState(*application).pipelines) {
      const auto& elements = HostState(*pipeline).elements;
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

bool Publication::Open(std::size_t index) {
  Client& client = _clients.at(index);
  client.opened = client.pipeline->StatusChange(IStatus::play);
  return client.opened;
}

bool Publication::Start() {
  return std::all_of(_sources.begin(), _sources.end(), [this](const Source& source) {
    return !Serves(source) || source.pipeline->StatusChange(IStatus::play);
  });
}

ClientFigures Publication::Figures(std::size_t index) const {
  const Client& client = _clients.at(index);
  ClientFigures figures;
  for (const auto& input : HostState(*client.element).inputs) {
    const stream::PortFigures& port = input->Figures();
    const bool video = base::Hash(input->Caps()) == base::Hash("h264");
    (video ? figures.videoPackets : figures.audioPackets) += port.packets;
    figures.bytes += port.bytes;
    figures.refused += port.refused;
    figures.gaps += port.gaps;
  }
  figures.reconnections = client.reconnections;
  figures.connected = Text(*client.element, "rtmp_sts") == "true";
  figures.quality = std::atoi(Text(*client.element, "rtmp_quality").c_str());
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
  for (std::size_t i = 0; i < _clients.size(); ++i) {
    if (stream::PathOf(*_clients[i].element) != message.path) continue;
    if (message.name == "rtmp_reconnect_success") ++_clients[i].reconnections;
    _messages.emplace_back(i, message.name);
  }
  _saw_failure =
      _saw_failure || std::any_of(std::begin(FailureMessages), std::end(FailureMessages),
                                  [&](const char* name) { return message.name == name; });
}

}  // namespace nimbo::publication
