#include <memory>
#include <string>
#include <vector>

#include "base/reflect/Names.h"
#include "host/base/ConfigText.h"
#include "host/base/Console.h"
#include "host/capture/CaptureRegistry.h"
#include "host/elements/Properties.h"
#include "host/elements/SourceElement.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"

namespace nimbo::stream {

namespace {

/// Codecs that the name of a source can start with: "h264-0" is a stream of the first.
constexpr const char* NamedCodecs[] = {"h264", "aac"};

std::string CodecOfName(const std::string& name) {
  const std::string start = name.substr(0, name.find('-'));
  for (const char* codec : NamedCodecs) {
    if (base::Hash(codec) == base::Hash(start.c_str())) return codec;
  }
  return "";
}

/// Brings the packets of a capture source into a pipeline: "shm-source", with one output for each
/// stream. Property "connect": "pv:NAME[,key=value]...", the source and its options.
class ShmSource final : public SourceElement {
 public:
  ShmSource() : SourceElement("capture") {}
  ~ShmSource() override { StatusTakeDown(); }

  bool Open() override {
    if (!_source) return Refuse("\"", Name(), "\" has nothing to capture: set its \"connect\"");
    const bool opened = _source->Open();
    if (opened) AssignStreams();
    for (const auto& output : HostState(*this).outputs) TellMedia(*output);
    return opened && SourceElement::Open();
  }

  bool Close() override {
    if (_source) _source->Close();
    _streams.clear();
    for (const auto& output : HostState(*this).outputs) output->SetMedia(nullptr);
    return SourceElement::Close();
  }

  bool SetConnect(const char* text) {
    if (!StatusIsNull()) return Refuse("\"", Name(), "\" is open: \"connect\" cannot change");
    base::ConnectText connect;
    if (!base::ParseConnect(text, connect)) return false;
    auto source = capture::CaptureRegistry::Global().Make(connect.name, connect.options);
    if (!source) return false;
    std::vector<std::string> codecs = source->Outputs();
    if (codecs.empty()) codecs.push_back(CodecOfName(connect.name));
    if (!MakeOutputs(codecs)) return false;
    _source = std::move(source);
    HostState(*this).live = !_source->Unpaced();
    const sync::Lock lock(TreeMutex());
    _connect = text;
    return true;
  }
  std::string GetConnect() const {
    const sync::Lock lock(TreeMutex());
    return _connect;
  }

 private:
  struct Stream {
    IMedia* media;
    Port* output;
  };

  /// Makes one output for each codec, unless they are there already.
  bool MakeOutputs(const std::vector<std::string>& codecs) {
    auto& outputs = HostState(*this).outputs;
    if (_codecs == codecs) return true;
    for (const auto& output : outputs) {
      if (output->Linked()) {
        return Refuse("\"", Name(), "\" is linked: \"connect\" can only name a source of the ",
                      "same streams");
      }
    }
    {
      const sync::Lock lock(TreeMutex());
      outputs.Change().clear();
    }
    for (const std::string& codec : codecs) HostState(*this).Add(this, codec.c_str(), true);
    _codecs = codecs;
    return true;
  }

  /// Gives each stream of the opened source the first output left that takes its codec.
  void AssignStreams() {
    for (IMedia* media : _source->Streams()) {
      Port* free = nullptr;
      for (const auto& output : HostState(*this).outputs) {
        const bool fits = CapsFit(output->Caps(), media->Codec());
        if (!free && fits && !output->Media()) free = output.get();
      }
      if (free) {
        free->SetMedia(media);
        _streams.push_back({media, free});
      } else {
        Explain("\"", Name(), "\" has no output for the \"", media->Codec(),
                "\" stream of its source: it is dropped");
      }
    }
  }

  Port* OutputFor(const Packet& packet) const override {
    const IMedia* media = packet.Media();
    for (const Stream& stream : _streams) {
      if (stream.media == media) return stream.output;
    }
    // A stream whose parameters changed goes on under a new media.
    for (const Stream& stream : _streams) {
      if (media && base::Hash(stream.media->Codec()) == base::Hash(media->Codec())) {
        return stream.output;
      }
    }
    return nullptr;
  }

  std::vector<std::string> _codecs;  ///< of the outputs
  std::vector<Stream> _streams;
  std::string _connect GUARDED_BY(TreeMutex());
};

[[maybe_unused]] base::IClass* const Registered = RegisterElement<ShmSource>(
    "ShmSource-shm-source", "brings the packets of a capture source into a pipeline",
    {Setting("connect", &ShmSource::SetConnect, &ShmSource::GetConnect,
             "the capture source, as pv:NAME[,key=value]..."),
     Setting("bit-rate", &ShmSource::SetBitRate, &ShmSource::GetBitRate, ShmSource::BitRateText),
     Figure("packets", &ShmSource::GetPackets, "packets delivered"),
     Figure("bytes", &ShmSource::GetBytes, "bytes delivered")});

}  // namespace

}  // namespace nimbo::stream
