#include "tests/plugin/rtmp/Publisher.h"

#include "nimbo/stream/element.h"

namespace nimbo::test {
namespace {

class PusherPublisher final : public Publisher {
 public:
  PusherPublisher(const std::string& url, const std::string& ring)
      : _pusher(url, RingConfiguration({"h264-fed", "aac-fed"}, ring)) {}
  ~PusherPublisher() override { StopFeeding(); }

  void SetUrl(const std::string& url) override { (*_pusher).Set("addr", url.c_str()); }
  bool Open() override { return _pusher.SetStatus("play"); }
  void Close() override {
    _pusher.SetStatus("null");
    StopFeeding();
  }
  std::string Get(const char* property) override { return _pusher.Get(property); }

 protected:
  void Deliver(Bytes video, Bytes audio) override {
    for (auto& [bytes, feed] : {std::pair(&video, &_videoFeed), {&audio, &_audioFeed}}) {
      if (!bytes->empty()) feed->Push(std::move(*bytes), true, time * Millisecond, sequence);
    }
  }

 private:
  Feed _videoFeed{"h264-fed", VideoMedia()};
  Feed _audioFeed{"aac-fed", AudioMedia()};
  Pusher _pusher;
};

class ClientPublisher final : public Publisher {
 public:
  ClientPublisher(const std::string& url, Kind kind)
      : _client(stream::IElement::New(kind == Kind::Live ? "EleRtmpLive" : "EleRtmpClient",
                                      "client", nullptr, nullptr)) {
    SetUrl(url);
    if (kind == Kind::Live) return;
    for (const char* copy : {"vcopy", "acopy"}) {
      _client->Set(copy, kind == Kind::Client ? "true" : "false");
    }
  }
  ~ClientPublisher() override { StopFeeding(); }

  void SetUrl(const std::string& url) override { _client->Set("url", url.c_str()); }
  bool Open() override { return _client->StatusSet("play"); }
  void Close() override {
    _client->StatusSet("ready");
    StopFeeding();
    _client->StatusSet("null");
  }
  std::string Get(const char* property) override { return GetText(*_client, property); }

 protected:
  void Deliver(Bytes video, Bytes audio) override {
    for (auto& [bytes, media] : {std::pair(&video, _video.get()), {&audio, _audio.get()}}) {
      if (bytes->empty()) continue;
      const auto packet = NewPacket({std::move(*bytes), true, time * Millisecond, sequence, media});
      _client->ReceivePacket(*packet, nullptr);
    }
  }

 private:
  Owned<stream::IElement> _client;
};

}  // namespace

std::unique_ptr<Publisher> Publisher::New(Kind kind, const std::string& url,
                                          const std::string& ring) {
  if (kind == Kind::Pusher) return std::make_unique<PusherPublisher>(url, ring);
  return std::make_unique<ClientPublisher>(url, kind);
}

const char* NameOf(Publisher::Kind kind) {
  constexpr const char* Names[] = {"Pusher", "Client", "ClientInPlace", "Live"};
  return Names[static_cast<int>(kind)];
}

void Publisher::FeedOnce(std::size_t video, std::size_t audio) {
  constexpr std::int64_t Step = 20;
  Deliver(video ? AccessUnit(true, video) : Bytes(), audio ? AdtsFrame(audio) : Bytes());
  time += Step;
  // No number of a picture is left out.
  if (video) ++sequence;
}

void Publisher::StartFeeding(std::size_t size, std::chrono::milliseconds pace) {
  StopFeeding();
  _feeding = true;
  _feeder = std::thread([this, size, pace] {
    while (_feeding) {
      FeedOnce(size, 100);
      std::this_thread::sleep_for(pace);
    }
  });
}

void Publisher::StopFeeding() {
  _feeding = false;
  if (_feeder.joinable()) _feeder.join();
}

}  // namespace nimbo::test
