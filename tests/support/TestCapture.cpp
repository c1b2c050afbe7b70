#include "tests/support/TestCapture.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <set>

#include "host/capture/CaptureRegistry.h"
#include "log/Line.h"

namespace nimbo::test {

struct Feed::State {
  Held<stream::IMedia> media;
  std::vector<stream::IMedia*> streams;
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Held<stream::Packet>> packets;
  bool aborted = false;
  bool broken = false;
  bool idle = false;
  bool behind = false;
};

namespace {

/// The feeds that live, by name. [control]
std::map<std::string, std::shared_ptr<Feed::State>>& Feeds() {
  static std::map<std::string, std::shared_ptr<Feed::State>> feeds;
  return feeds;
}

class FeedSource final : public capture::CaptureSource {
 public:
  explicit FeedSource(std::shared_ptr<Feed::State> state) : _state(std::move(state)) {}

  bool Open() override {
    if (_state->broken) log::Line(log::Colour::Red) << "the test's source is broken";
    return !_state->broken;
  }
  const std::vector<stream::IMedia*>& Streams() const override { return _state->streams; }
  bool Start() override {
    const std::lock_guard<std::mutex> lock(_state->mutex);
    _state->aborted = false;
    return !_state->idle;
  }
  Held<stream::Packet> Read() override {
    std::unique_lock<std::mutex> lock(_state->mutex);
    _state->changed.wait(lock, [this] { return _state->aborted || !_state->packets.empty(); });
    if (_state->aborted) return nullptr;
    Held<stream::Packet> packet = std::move(_state->packets.front());
    _state->packets.pop_front();
    return packet;
  }
  void Abort() override {
    {
      const std::lock_guard<std::mutex> lock(_state->mutex);
      _state->aborted = true;
    }
    _state->changed.notify_all();
  }
  void Close() override {}
  bool Behind() const override { return _state->behind; }

 private:
  std::shared_ptr<Feed::State> _state;
};

/// The registry keeps its entries for good, so each name is registered once and looked up anew.
void RegisterOnce(const std::string& name) {
  static std::set<std::string> registered;
  if (!registered.insert(name).second) return;
  capture::CaptureRegistry::Global().Add(name, [](const std::string& asked, const base::AttrSet&) {
    const auto found = Feeds().find(asked);
    if (found != Feeds().end()) return std::make_unique<FeedSource>(found->second);
    log::Line(log::Colour::Red) << "no feed \"" << asked << "\"";
    return std::unique_ptr<FeedSource>();
  });
}

}  // namespace

Feed::Feed(std::string name, Held<stream::IMedia> media)
    : _name(std::move(name)), _state(std::make_shared<State>()) {
  _state->streams.push_back(media.get());
  _state->media = std::move(media);
  Feeds()[_name] = _state;
  RegisterOnce(_name);
}

Feed::~Feed() { Feeds().erase(_name); }

stream::IMedia* Feed::Media() const { return _state->media.get(); }

void Feed::Push(Held<stream::Packet> packet) {
  {
    const std::lock_guard<std::mutex> lock(_state->mutex);
    _state->packets.push_back(std::move(packet));
  }
  _state->changed.notify_all();
}

void Feed::Push(Bytes bytes, bool key, std::int64_t time, std::uint32_t sequence) {
  Push(NewPacket({std::move(bytes), key, time, sequence, Media()}));
}

void Feed::FailToOpen() { _state->broken = true; }

void Feed::FallBehind() { _state->behind = true; }

void Feed::FailToStart() { _state->idle = true; }

std::string RingConfiguration(const std::vector<std::string>& sources, const std::string& ring) {
  std::string text;
  for (const std::string& source : sources) {
    if (!text.empty()) text += "+";
    text += "type=pipeline,serialize={shm-source:connect={pv:" + source + "}+" + ring + "}";
  }
  return text;
}

}  // namespace nimbo::test
