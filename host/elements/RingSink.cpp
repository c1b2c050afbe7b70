#include <atomic>
#include <cstring>
#include <memory>
#include <vector>

#include "host/base/Console.h"
#include "host/elements/FlowElement.h"
#include "host/elements/Properties.h"
#include "host/stream/RingBuffer.h"
#include "host/stream/State.h"
#include "sync/Mutex.h"

namespace nimbo::stream {

namespace {

constexpr int DefaultSize = 64;
/// What was taken in before the start waits for its readers no longer than this.
constexpr std::chrono::seconds StartPatience{2};

/// Ends a pipeline in packet rings, one for each input: "RingSink". The media of a ring is known
/// when the source of its packets has been opened; a closed one has none. Where no source will tell
/// it (an unlinked input, an element that is not the host's) there is none either, until the first
/// packet states it. Properties "size": packets that a ring holds; "max-lag": seconds that a reader
/// may be late.
class RingSink final : public FlowElement {
 public:
  RingSink() { AddStream(""); }
  ~RingSink() override { StatusTakeDown(); }

  IPort* PortAdd(const char* caps, const char* direction) override {
    if (!direction || std::strcmp(direction, "in") != 0) {
      Explain("\"", Name(), "\" only adds inputs, each of which brings its ring");
      return nullptr;
    }
    return &AddStream(caps);
  }

  void MediaKnown(Port& input) override {
    Stream* stream = Find(&input);
    if (!stream) return;
    StateMedia(*stream, input.Media());
    for (const auto& output : HostState(*this).outputs) {
      if (output->Ring() == stream->ring.get()) TellMedia(*output);
    }
  }

  /// Whoever reads a ring can wait: what it misses has been overwritten in the ring.
  bool CanWait(const Port&) const override { return true; }

  bool Open() override {
    {
      const sync::Lock lock(_mutex);
      for (const auto& stream : _streams) stream->ring->SetMaxLag(_max_lag, SharedGoOn());
    }
    StateMedias();
    return FlowElement::Open();
  }

  bool Close() override {
    {
      const sync::Lock lock(_mutex);
      for (const auto& stream : _streams) {
        StateMedia(*stream, nullptr);
        stream->ring->Clear();
      }
    }
    return FlowElement::Close();
  }

  bool Start() override {
    Hurry(false);
    _patience_ends = Clock::time_point();
    return FlowElement::Start();
  }

  bool Stop() override {
    Hurry(true);
    return FlowElement::Stop();
  }

  bool ReceivePacket(Packet& packet, void* from) override {
    Stream* stream = Find(from);
    if (!stream) return false;
    if (SourceBehind(*stream->input)) WaitForReaders(*stream->ring);
    // A source of another kind does not tell its media beforehand.
    if (!stream->mediaKnown && packet.Media()) StateMedia(*stream, packet.Media());
    stream->ring->Write(packet);
    ++_packets;
    _bytes += packet.Size();
    return true;
  }

  bool SetSize(const char* text) {
    if (!StatusIsNull()) return Refuse("\"", Name(), "\" is open: its size cannot change");
    if (!SetPacketCount(*this, "size", text, _size)) return false;
    const sync::Lock lock(_mutex);
    for (const auto& stream : _streams) stream->ring->Resize(_size);
    return true;
  }
  int GetSize() const { return _size; }
  bool SetMaxLag(const char* text) {
    if (!StatusIsNull()) return Refuse("\"", Name(), "\" is open: its max-lag cannot change");
    return SetSeconds(*this, "max-lag", text, _max_lag);
  }
  std::string GetMaxLag() const { return SecondsText(_max_lag); }
  /// [any] Packets that readers which wait have not got.
  unsigned int GetDropped() const { return static_cast<unsigned int>(Lost().overwritten); }
  unsigned int GetLate() const { return static_cast<unsigned int>(Lost().late); }
  unsigned int GetPackets() const { return _packets; }
  unsigned long long GetBytes() const { return _bytes; }
  /// [any] Packets of all rings that the slowest reader has not taken yet.
  unsigned int GetQueued() const {
    const sync::Lock lock(_mutex);
    unsigned int queued = 0;
    for (const auto& stream : _streams) queued += stream->ring->Unread();
    return queued;
  }

 private:
  struct Stream {
    Stream(Port& port, int size) : input(&port), ring(std::make_shared<RingBuffer>(size)) {}
    Port* input;
    std::shared_ptr<RingBuffer> ring;     ///< shared with readers of other applications
    std::atomic<bool> mediaKnown{false};  ///< stated by its source, or by a packet
  };

  /// The input of the new stream.
  Port& AddStream(const char* caps) {
    auto stream = std::make_unique<Stream>(HostState(*this).Add(this, caps, false), _size);
    Port& output = HostState(*this).Add(this, "", true);
    Port& input = *stream->input;
    output.Follow(input);
    output.SetRing(stream->ring.get());
    stream->ring->SetMedia(nullptr);
    const sync::Lock lock(_mutex);
    _streams.push_back(std::move(stream));
    return input;
  }

  Stream* Find(const void* input) const {
    const sync::Lock lock(_mutex);
    for (const auto& stream : _streams) {
      if (stream->input == input) return stream.get();
    }
    return nullptr;
  }

  std::shared_ptr<GoOn> SharedGoOn() const {
    const Pipeline* pipeline = Framework::Pipeline(*this);
    Application* application = pipeline ? HostState(*pipeline).application : nullptr;
    return application ? HostState(*application).goOn : nullptr;
  }

  void Hurry(bool hurry) {
    const sync::Lock lock(_mutex);
    for (const auto& stream : _streams) stream->ring->Hurry(hurry);
  }

  void WaitForReaders(RingBuffer& ring) {
    const auto none = Clock::time_point();
    if (_patience_ends == none) _patience_ends = Clock::now() + StartPatience;
    ring.WaitForRoom(_patience_ends);
  }

  RingBuffer::Lost Lost() const {
    const sync::Lock lock(_mutex);
    RingBuffer::Lost all;
    for (const auto& stream : _streams) {
      const RingBuffer::Lost lost = stream->ring->LostPackets();
      all.overwritten += lost.overwritten;
      all.late += lost.late;
    }
    return all;
  }

  void StateMedias() {
    const sync::Lock lock(_mutex);
    for (const auto& stream : _streams) {
      stream->mediaKnown = false;
      // Known already where the source was opened before this element.
      if (IMedia* media = stream->input->Media()) {
        StateMedia(*stream, media);
      } else if (MediaWillBeKnown(*stream->input)) {
        stream->ring->ForgetMedia();
      } else {
        stream->ring->SetMedia(nullptr);  // nobody may wait for what nobody will tell
      }
    }
  }

  static void StateMedia(Stream& stream, IMedia* media) {
    stream.ring->SetMedia(media);
    stream.mediaKnown = true;
  }

  mutable sync::Mutex _mutex;  ///< taken before the mutex of a ring
  std::vector<std::unique_ptr<Stream>> _streams GUARDED_BY(_mutex);
  std::atomic<int> _size{DefaultSize};
  std::atomic<std::chrono::nanoseconds> _max_lag{DefaultMaxLag};
  Clock::time_point _patience_ends;  ///< [delivering] and while nothing is delivered
  std::atomic<unsigned int> _packets{0};
  std::atomic<unsigned long long> _bytes{0};
};

[[maybe_unused]] base::IClass* const Registered = RegisterElement<RingSink>(
    "RingSink-ring-sink", "ends a pipeline in packet rings, one for each stream",
    {Setting("size", &RingSink::SetSize, &RingSink::GetSize, "packets that a ring holds"),
     Setting("max-lag", &RingSink::SetMaxLag, &RingSink::GetMaxLag, MaxLagText),
     Figure("packets", &RingSink::GetPackets, "packets written"),
     Figure("bytes", &RingSink::GetBytes, "bytes written"),
     Figure("dropped", &RingSink::GetDropped,
            "packets overwritten before a waiting reader got them"),
     Figure("late", &RingSink::GetLate, "packets that late readers were moved past"),
     Figure("queued", &RingSink::GetQueued, "packets that the slowest reader has not done with")});

}  // namespace

}  // namespace nimbo::stream
