#include "host/capture/av/KeptSource.h"

#include <algorithm>

#include "base/reflect/Names.h"
#include "host/base/Clock.h"
#include "host/base/Console.h"
#include "host/stream/Media.h"
#include "host/stream/PacketPool.h"

namespace nimbo::capture::av {

namespace {

/// Nothing behind the source may be without a picture for a second.
constexpr std::int64_t ShortestPatience = 600 * NsPerMillisecond;
constexpr std::int64_t LongestPatience = 10 * NsPerSecond;
constexpr int PatienceInPictures = 4;
constexpr std::int64_t StandInPeriod = 500 * NsPerMillisecond;

/// A source that lasts as long is there again; one that ends sooner is asked less and less often.
constexpr std::int64_t Lasting = 10 * NsPerSecond;

/// About what a frame of sound lasts.
constexpr std::int64_t AacFrameTime = 22 * NsPerMillisecond;

/// Packets that may wait for the reader.
constexpr std::size_t MostQueued = 512;

constexpr int ThreadPriority = 19;
constexpr int ThreadPolicy = 10;
constexpr int ThreadStack = 512 * 1024;

Kind KindOf(const stream::Packet& packet) {
  return stream::IsVideo(packet) ? Kind::Video : Kind::Audio;
}

constexpr std::size_t Index(Kind kind) { return static_cast<std::size_t>(kind); }

Clock::time_point AtClock(std::int64_t time) {
  return Clock::time_point(std::chrono::nanoseconds(time));
}

/// The stream that tells whether there is something to see or hear.
stream::IMedia* Leader(const std::vector<stream::IMedia*>& streams) {
  for (stream::IMedia* media : streams) {
    if (stream::IsVideo(media->Codec())) return media;
  }
  return streams.empty() ? nullptr : streams.front();
}

}  // namespace

KeptSource::KeptSource(std::unique_ptr<CaptureSource> first, Maker make, std::string shown,
                       std::string slate)
    : _make(std::move(make)),
      _shown(std::move(shown)),
      _slate_file(std::move(slate)),
      _outputs(first->Outputs()),
      _thread("kept source", ThreadPriority, ThreadPolicy, ThreadStack),
      _source(std::move(first)) {}

KeptSource::~KeptSource() { Close(); }

// ---- control ------------------------------------------------------------------------------------

bool KeptSource::Open() {
  if (const Status loaded = _slate.Load(_slate_file); !loaded) {
    return Refuse("av: the slate ", loaded.Why());
  }
  const sync::Lock lock(_mutex);
  if (!_source) _source = _make();
  if (!_source || !_source->Open()) return false;
  for (stream::IMedia* media : _source->Streams()) {
    if (auto* own = dynamic_cast<stream::Media*>(media)) own->SetInt("varies", 1);
    _media.push_back(Share(*media));
    _streams.push_back(media);
    _described[Index(stream::IsVideo(media->Codec()) ? Kind::Video : Kind::Audio)] = Share(*media);
  }
  _stands = true;
  return true;
}

bool KeptSource::Start() {
  _thread.Join();
  {
    const sync::Lock lock(_mutex);
    _stopped = false;
    if (_stands) {
      if (!_source->Start()) return false;
      _began = _source->Began();
    }
  }
  _due = MonotonicNow() + ShortestPatience;
  return _thread.Once([this] { Keep(); }) ||
         Refuse("av: \"", _shown, "\": its thread cannot be started");
}

void KeptSource::Abort() {
  const sync::Lock lock(_mutex);
  _stopped = true;
  if (_source) _source->Abort();
  _changed.NotifyAll();
}

void KeptSource::Close() {
  Abort();
  _thread.Join();
  const sync::Lock lock(_mutex);
  if (_source) _source->Close();
  _stands = false;
  _queue.clear();
  _streams.clear();
  _media.clear();
  _ready.clear();
  _described = {};
  _joining = false;
  _away = false;
  _behind = false;
  _interval = 0;
  _previous = 0;
}

std::int64_t KeptSource::BitRate() const {
  const sync::Lock lock(_mutex);
  return _stands ? _source->BitRate() : _bit_rate;
}

void KeptSource::SetBitRate(std::int64_t bitRate) {
  const sync::Lock lock(_mutex);
  _bit_rate = bitRate;
  _adapted = true;
  if (_stands) _source->SetBitRate(bitRate);
}

// ---- the thread of the source -------------------------------------------------------------------

void KeptSource::Keep() {
  const auto stands = [this] {
    const sync::Lock lock(_mutex);
    return _stands;
  };
  while (true) {
    if (stands()) Forward();
    if (Stopped()) return;  // it stays as it is
    Leave();
    if (!Pause()) return;
    OpenAgain();
  }
}

void KeptSource::Forward() {
  const std::int64_t began = MonotonicNow();
  CaptureSource* source = nullptr;
  {
    const sync::Lock lock(_mutex);
    source = _source.get();
  }
  while (Held<stream::Packet> packet = source->Read()) {
    if (MonotonicNow() - began > Lasting) _pauses.Reset();
    const sync::Lock lock(_mutex);
    while (_queue.size() >= MostQueued && !_stopped) _changed.Wait(_mutex);
    _queue.push_back({std::move(packet), source->Behind(), _round});
    _changed.NotifyAll();
  }
}

void KeptSource::Leave() {
  std::unique_ptr<CaptureSource> left;
  {
    const sync::Lock lock(_mutex);
    if (_stands) _bit_rate = _source->BitRate();
    _stands = false;
    left = std::move(_source);
  }
  if (left) left->Close();
}

bool KeptSource::Pause() {
  const auto end = Clock::now() + _pauses.Next();
  const sync::Lock lock(_mutex);
  while (!_stopped && Clock::now() < end) _changed.WaitUntil(_mutex, Clock::WakeAt(end));
  return !_stopped;
}

void KeptSource::OpenAgain() {
  const Hush hush;  // why it went has been told
  CaptureSource* source = nullptr;
  {
    auto made = _make();
    const sync::Lock lock(_mutex);
    if (_stopped || !made) return;
    _source = std::move(made);
    source = _source.get();
  }
  // What is stopped meanwhile ends the attempt.
  if (!source->Open() || !Fits(*source)) return;
  const sync::Lock lock(_mutex);
  if (_stopped || !source->Start()) return;
  if (_adapted) source->SetBitRate(_bit_rate);
  ++_round;
  _stands = true;
}

bool KeptSource::Fits(const CaptureSource& source) const {
  const stream::IMedia* wanted = Leader(_streams);
  const stream::IMedia* found = Leader(source.Streams());
  return wanted && found && base::Hash(wanted->Codec()) == base::Hash(found->Codec());
}

// ---- the thread that reads ----------------------------------------------------------------------

Held<stream::Packet> KeptSource::Read() {
  while (!Stopped()) {
    if (!_ready.empty()) {
      Held<stream::Packet> packet = std::move(_ready.front());
      _ready.pop_front();
      return packet;
    }
    Item item;
    if (Take(item)) {
      if (Held<stream::Packet> packet = Pass(item)) return packet;
    } else if (MonotonicNow() >= _due) {
      StandIn();
    }
  }
  return nullptr;
}

bool KeptSource::Stopped() const {
  const sync::Lock lock(_mutex);
  return _stopped;
}

bool KeptSource::Take(Item& item) {
  const sync::Lock lock(_mutex);
  while (_queue.empty()) {
    if (_stopped || !_changed.WaitUntil(_mutex, Clock::WakeAt(AtClock(_due)))) return false;
  }
  if (_queue.size() == MostQueued) _changed.NotifyAll();
  item = std::move(_queue.front());
  _queue.pop_front();
  return true;
}

bool KeptSource::Leads(const stream::Packet& packet) const {
  const stream::IMedia* leader = Leader(_streams);
  return leader && stream::IsVideo(packet) == stream::IsVideo(leader->Codec());
}

Held<stream::Packet> KeptSource::Pass(Item& item) {
  const stream::Packet& packet = *item.packet;
  const std::int64_t own = packet.TimeStamp();
  const bool leads = Leads(packet);
  if (item.round != _joined) _joining = true;
  if (_joining) {
    if (!leads || !packet.IsKey()) return nullptr;
    Return(packet);
    _joined = item.round;
  }
  const std::int64_t now = MonotonicNow();
  if (leads) {
    constexpr int Weight = 8;
    if (_previous != 0) _interval += (own - _previous - _interval) / Weight;
    _previous = own;
    _due = now + std::clamp(PatienceInPictures * _interval, ShortestPatience, LongestPatience);
  }
  _behind = item.behind;
  const Kind kind = KindOf(packet);
  if (packet.Media() && _described[Index(kind)].get() != packet.Media()) {
    _described[Index(kind)] = Share(*packet.Media());
  }
  return Stamp(std::move(item.packet), _times.Pass(kind, own, now));
}

void KeptSource::StandIn() {
  const std::int64_t now = MonotonicNow();
  if (!_away) {
    _away = true;
    _joining = true;
    _since = now;
    const Status begun =
        _slate.Begin(_described[Index(Kind::Video)].get(), _described[Index(Kind::Audio)].get());
    const bool shown = _slate.HasPicture();
    Explain("av: \"", _shown, "\" gives nothing: ",
            shown ? "a still picture is shown until it does" : "the stream stands until it does",
            begun ? "" : "; nothing stands in for it: ", begun.Why());
  }
  _due = now + StandInPeriod;
  _behind = false;
  const std::int64_t time = _times.StandIn(now);
  if (_slate.HasPicture()) {
    _ready.push_back(Stamp(_slate.Picture(time), _times.Use(Kind::Video, time, now)));
  }
  if (!_slate.HasSound()) return;
  // It goes on behind the last sound; one that was silent for longer is not made good.
  const std::int64_t begin =
      std::max(_times.Last(Kind::Audio) + AacFrameTime, time - StandInPeriod);
  while (Held<stream::Packet> packet = _slate.Sound(begin, time)) {
    const std::int64_t due = _times.Use(Kind::Audio, packet->TimeStamp(), now);
    _ready.push_back(Stamp(std::move(packet), due));
  }
}

void KeptSource::Return(const stream::Packet& first) {
  _joining = false;
  _times.Resume(first.TimeStamp());
  _previous = 0;
  if (!_away) return;
  _away = false;
  Tell(log::Colour::Green, "av: \"", _shown, "\" is back after ",
       (MonotonicNow() - _since) / NsPerSecond, " s");
}

Held<stream::Packet> KeptSource::Stamp(Held<stream::Packet> packet, std::int64_t time) {
  auto* own = dynamic_cast<stream::HostPacket*>(packet.get());
  if (!own) return packet;
  const std::uint32_t number = ++_numbers[Index(KindOf(*packet))];
  own->Describe(own->Size(), own->IsKey(), time, number, own->Media());
  return packet;
}

}  // namespace nimbo::capture::av
