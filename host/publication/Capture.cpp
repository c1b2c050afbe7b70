#include "host/publication/Capture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "host/base/Nearest.h"
#include "host/base/Pin.h"
#include "host/base/ShownAddress.h"
#include "host/stream/Message.h"
#include "host/stream/State.h"
#include "nimbo/stream/factory.h"

namespace nimbo::publication {

const char* const DefaultEncoder = "h264-0,W=1920,H=1080,fr=30,br=6000000,gopTypeStr=ibbp,gop=30";

namespace {

/// Files that hold nothing but one stream, which the host reads itself, by the end of their names.
struct Elementary {
  const char* suffix;
  const char* key;
};
constexpr Elementary ElementaryFiles[] = {
    {".h264", "video"}, {".264", "video"}, {".aac", "audio"}, {".adts", "audio"}};

const char* ElementaryKey(const std::string& input) {
  for (const auto& file : ElementaryFiles) {
    const std::string suffix = file.suffix;
    if (input.size() > suffix.size() &&
        std::equal(suffix.rbegin(), suffix.rend(), input.rbegin(),
                   [](char a, char b) { return a == std::tolower(static_cast<unsigned char>(b)); }))
      return file.key;
  }
  return nullptr;
}

/// Texts in braces are taken as they are, so long as their own braces match.
bool BracesMatch(const std::string& text) {
  int depth = 0;
  for (const char character : text) {
    if (character == '{') ++depth;
    if (character == '}' && --depth < 0) return false;
  }
  return depth == 0;
}

/// The end of a line about a file that cannot be opened: one beside it that was meant, if any.
std::string NearbyFile(const std::string& input) {
  namespace fs = std::filesystem;
  const fs::path folder = fs::path(input).parent_path();
  std::vector<std::string> files;
  std::error_code error, unclear;
  fs::directory_iterator entry(folder.empty() ? "." : folder, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    if (entry->is_directory(unclear)) continue;
    // Among the devices only those are inputs whose names stand for pictures.
    if (folder == "/dev" && !entry->path().filename().string().starts_with("video")) continue;
    files.push_back((folder / entry->path().filename()).string());
  }
  return base::DidYouMean(input, files);
}

Status CheckBraces(const std::string& input) {
  if (BracesMatch(input)) return {};
  return Status::Failed("the name \"" + base::ShownAddress(input) +
                        "\" has a brace without its other half, which cannot be given");
}

Status CheckInput(const std::string& input) {
  if (Status fits = CheckBraces(input); !fits) return fits;
  if (input == "-" || input.find("://") != std::string::npos) return {};
  // It is not opened yet: that would wait for the writer of a named pipe, and then end it.
  if (access(input.c_str(), R_OK) == 0) return {};
  const std::string reason = std::strerror(errno);
  return Status::Failed("cannot open \"" + input + "\": " + reason + NearbyFile(input));
}

std::string CameraText(const std::string& encoder) {
  return CapturePipeline(encoder + ",plenckeys=vfrc-fifo", "+fifofilter:max=60+RingSink") + "+" +
         CapturePipeline("aac-1,plenckeys=fifo", "+fifofilter:max=128+RingSink");
}

}  // namespace

std::string CapturePipeline(const std::string& source, const std::string& behind) {
  return "type=pipeline,serialize={shm-source:connect={pv:" + source + "}" + behind + "}";
}

Result<std::string> LibavConnection(const std::string& input,
                                    const std::vector<base::Attribute>& options) {
  // What a device is called need be no file.
  const bool named = std::any_of(options.begin(), options.end(),
                                 [](const auto& option) { return option.first == "format"; });
  if (Status readable = named ? CheckBraces(input) : CheckInput(input); !readable) return readable;
  std::string text = "av";
  for (const auto& [key, value] : options) {
    if (Status fits = CheckBraces(value); !fits) return fits;
    text += "," + key + "={" + value + "}";
  }
  return text + ",url={" + input + "}";
}

bool IsElementary(const std::string& input) { return ElementaryKey(input) != nullptr; }

bool IsPipe(const std::string& input) {
  struct stat status = {};
  return input == "-" || input.starts_with("pipe:") ||
         (stat(input.c_str(), &status) == 0 && S_ISFIFO(status.st_mode));
}

Result<std::string> InputConnection(const std::vector<std::string>& inputs) {
  std::string elementary;
  for (const auto& input : inputs) {
    if (Status readable = CheckInput(input); !readable) return readable;
    const char* key = ElementaryKey(input);
    if (!key && inputs.size() > 1) {
      return Status::Failed(
          "several inputs are one elementary video and one elementary audio file, which \"" +
          input + "\" is not");
    }
    if (key && elementary.find("," + std::string(key) + "=") != std::string::npos) {
      return Status::Failed("\"" + input + "\" is a second " + key + " file");
    }
    if (key) elementary += "," + std::string(key) + "={" + input + "}";
  }
  return elementary.empty() ? "av,url={" + inputs.at(0) + "}" : "es" + elementary;
}

Result<std::string> CaptureConfiguration(const CaptureOptions& options) {
  if (!options.configuration.empty()) return options.configuration;
  if (options.inputs.empty()) {
    return CameraText(options.encoder.empty() ? DefaultEncoder : options.encoder);
  }
  auto connection = InputConnection(options.inputs);
  if (!connection) return connection.Failure();
  return CapturePipeline(*connection);
}

CaptureView::CaptureView()
    : _listener(stream::MessageListeners::Global().Add([this](const stream::Message& message) {
        if (message.name == "end_of_stream") ++_ended;
        if (message.name == "source_lost") _lost = true;
      })) {}

CaptureView::~CaptureView() { stream::MessageListeners::Global().Remove(_listener); }

bool CaptureView::Find() {
  for (auto& pin : base::Pin::All(stream::Factory::Globle()))
    if (auto* application = dynamic_cast<stream::Application*>(&*pin)) _application = application;
  return _application != nullptr;
}

CaptureCount CaptureView::Count() const {
  CaptureCount count;
  for (auto* ring : Rings()) {
    const auto* media = ring->Media(std::chrono::nanoseconds(1));
    if (!media) continue;
    const bool video = base::Hash(media->Codec()) == base::Hash("h264");
    auto* buffer = dynamic_cast<stream::RingBuffer*>(ring);
    const auto dropped = buffer ? buffer->LostPackets() : stream::RingBuffer::Lost();
    const std::uint64_t lost = dropped.overwritten + dropped.late;
    const std::uint64_t open = lost + (buffer ? buffer->Unread() : 0);
    const std::uint64_t written = ring->WritePosition();
    (video ? count.videoPackets : count.audioPackets) += written - std::min(open, written);
    count.lost += lost;
  }
  return count;
}

bool CaptureView::Ended() const {
  const auto elements = Elements();
  // Sources are the elements that nothing is delivered to.
  return _ended >= std::count_if(elements.begin(), elements.end(),
                                 [](auto* element) { return HostState(*element).inputs.empty(); });
}

bool CaptureView::Empty() const {
  const auto elements = Elements();
  return std::all_of(elements.begin(), elements.end(), [](auto* element) {
    std::string queued;
    return !element->GetStr("queued", queued) || queued == "0";
  });
}

std::vector<stream::PacketRing*> CaptureView::Rings() const {
  std::vector<stream::PacketRing*> rings;
  _application->OutputList(rings, true);
  return rings;
}

std::vector<stream::IElement*> CaptureView::Elements() const {
  std::vector<stream::IElement*> elements;
  for (auto* pipeline : HostState(*_application).pipelines) {
    const auto& own = HostState(*pipeline).elements;
    elements.insert(elements.end(), own.begin(), own.end());
  }
  return elements;
}

}  // namespace nimbo::publication
