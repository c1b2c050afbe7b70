#include "host/capture/av/KeptSource.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>

#include "host/base/Console.h"
#include "host/capture/av/LibavLog.h"
#include "host/stream/Media.h"
#include "host/stream/PacketPool.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/Eventually.h"
#include "tests/support/MediaSamples.h"

namespace nimbo::test {
namespace {

using namespace capture;
using namespace capture::av;

constexpr std::int64_t PicturePeriod = 33 * NsPerMillisecond;

/// A camera that the test ends, freezes and lets come back.
class Camera {
 public:
  Camera() { Describe(VideoMedia()); }

  /// What its packets have from now on.
  void Describe(Held<stream::Media> video) {
    const std::lock_guard<std::mutex> lock(_mutex);
    _video = std::move(video);
    _audio = AudioMedia();
    _streams = {_video.get(), _audio.get()};
  }
  void Give(bool key, std::int64_t time = MonotonicNow()) { Give(key, time, _video.get()); }
  void GiveSound() { Give(true, MonotonicNow(), _audio.get()); }
  void End() { Change(_ended); }
  /// It can be opened again.
  void Return() {
    const std::lock_guard<std::mutex> lock(_mutex);
    _ended = false;
  }
  int Opened() const { return _opened; }

  std::unique_ptr<CaptureSource> Make() { return std::make_unique<Source>(*this); }

 private:
  class Source final : public CaptureSource {
   public:
    explicit Source(Camera& camera) : _camera(camera) {}

    bool Open() override {
      ++_camera._opened;
      const std::lock_guard<std::mutex> lock(_camera._mutex);
      if (!_camera._ended) return true;
      return Refuse("the camera is not there");
    }
    const std::vector<stream::IMedia*>& Streams() const override { return _camera._streams; }
    bool Start() override { return true; }
    Held<stream::Packet> Read() override {
      std::unique_lock<std::mutex> lock(_camera._mutex);
      _camera._changed.wait(
          lock, [this] { return _camera._aborted || _camera._ended || !_camera._packets.empty(); });
      if (_camera._aborted || _camera._packets.empty()) return nullptr;
      auto packet = std::move(_camera._packets.front());
      _camera._packets.pop_front();
      return packet;
    }
    void Abort() override { _camera.Change(_camera._aborted); }
    void Close() override {}

   private:
    Camera& _camera;
  };

  void Change(bool& flag) {
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      flag = true;
    }
    _changed.notify_all();
  }
  void Give(bool key, std::int64_t time, stream::IMedia* media) {
    const Bytes bytes = stream::IsVideo(media->Codec()) ? AccessUnit(key) : AdtsFrame(50);
    auto packet = _pool.New(static_cast<unsigned int>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), packet->Bytes());
    // A source that is opened again counts anew.
    packet->Describe(static_cast<unsigned int>(bytes.size()), key, time, 0, media);
    {
      const std::lock_guard<std::mutex> lock(_mutex);
      _packets.push_back(std::move(packet));
    }
    _changed.notify_all();
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  stream::PacketPool _pool;
  std::deque<Held<stream::Packet>> _packets;
  Held<stream::Media> _video, _audio;
  std::vector<stream::IMedia*> _streams;
  std::atomic<int> _opened{0};
  bool _ended = false;
  bool _aborted = false;
};

/// What comes out of a kept camera, read in a thread of its own.
class Kept {
 public:
  explicit Kept(Camera& camera)
      : _source(
            camera.Make(), [&camera] { return camera.Make(); }, "camera", "") {
    InstallLogFilter();
    EXPECT_TRUE(_source.Open());
    EXPECT_TRUE(_source.Start());
    _reader = std::thread([this] {
      while (auto packet = _source.Read()) {
        const std::lock_guard<std::mutex> lock(_mutex);
        _packets.push_back(std::move(packet));
        _away = _source.Away();
      }
    });
  }
  ~Kept() {
    _source.Abort();
    _reader.join();
    _source.Close();
  }

  CaptureSource& Source() { return _source; }
  bool Away() const {
    const std::lock_guard<std::mutex> lock(_mutex);
    return _away;
  }
  std::vector<Held<stream::Packet>> Pictures() const { return OfKind(true); }
  std::vector<Held<stream::Packet>> Sound() const { return OfKind(false); }

 private:
  std::vector<Held<stream::Packet>> OfKind(bool video) const {
    const std::lock_guard<std::mutex> lock(_mutex);
    std::vector<Held<stream::Packet>> chosen;
    for (const auto& packet : _packets) {
      if (stream::IsVideo(*packet) == video) chosen.push_back(Share(*packet));
    }
    return chosen;
  }

  KeptSource _source;
  mutable std::mutex _mutex;
  std::vector<Held<stream::Packet>> _packets;
  bool _away = false;
  std::thread _reader;
};

void ExpectNumberedInTime(const std::vector<Held<stream::Packet>>& packets) {
  for (std::size_t i = 1; i < packets.size(); ++i) {
    EXPECT_EQ(packets[i]->Sequence(), packets[i - 1]->Sequence() + 1);
    EXPECT_GE(packets[i]->TimeStamp(), packets[i - 1]->TimeStamp());
    EXPECT_LT(packets[i]->TimeStamp() - packets[i - 1]->TimeStamp(), NsPerSecond);
  }
}

TEST(KeptSource, StandsInForACameraThatIsGoneUntilItsNextKeyFrame) {
  ConsoleCapture console;
  Camera camera;
  Kept kept(camera);
  stream::IMedia* const first = kept.Source().Streams().front();
  int varies = 0;
  EXPECT_TRUE(first->GetIntT("varies", varies));
  for (int i = 0; i < 10; ++i) {
    camera.Give(i == 0);
    camera.GiveSound();
    std::this_thread::sleep_for(std::chrono::nanoseconds(PicturePeriod));
  }
  camera.End();
  ASSERT_TRUE(Eventually([&] { return kept.Away(); }));
  ASSERT_TRUE(Eventually([&] { return camera.Opened() > 2; }));  // it is not there at first
  camera.Describe(VideoMedia(Sps, Bytes{0x68, 0xCE, 0x38, 0x81}));
  camera.Return();
  const int opened = camera.Opened();
  ASSERT_TRUE(Eventually([&] { return camera.Opened() > opened; }));
  camera.Give(false);  // cannot be decoded by those who have seen the slate
  camera.GiveSound();
  camera.Give(true);
  camera.Give(false);
  ASSERT_TRUE(Eventually([&] { return !kept.Away(); }));
  ASSERT_TRUE(Eventually([&] { return !kept.Pictures().back()->IsKey(); }));

  const auto pictures = kept.Pictures();
  ExpectNumberedInTime(pictures);
  ExpectNumberedInTime(kept.Sound());
  // Ten of the camera, slates in its size, two more of the camera.
  ASSERT_GT(pictures.size(), 15U);
  for (std::size_t i = 0; i < 10; ++i) EXPECT_EQ(pictures[i]->Media(), first);
  int wanted = 0;
  EXPECT_TRUE(first->GetIntT("w", wanted));
  for (std::size_t i = 10; i + 2 < pictures.size(); ++i) {
    EXPECT_TRUE(pictures[i]->IsKey());
    int width = 0;
    EXPECT_TRUE(pictures[i]->Media()->GetIntT("w", width));
    EXPECT_EQ(width, wanted);
    EXPECT_NE(pictures[i]->Media(), first);
    // Two key frames in a row that are the same picture would be one to a decoder.
    const auto bytes = [&](std::size_t at) {
      return Bytes(pictures[at]->Data(), pictures[at]->Data() + pictures[at]->Size());
    };
    EXPECT_NE(bytes(i), bytes(i - 1));
  }
  EXPECT_TRUE((*(pictures.end() - 2))->IsKey());
  // Silence is there for all of the time.
  EXPECT_GT(kept.Sound().back()->TimeStamp(), pictures[pictures.size() - 4]->TimeStamp());
  const std::string told = console.Text();
  EXPECT_NE(told.find("\"camera\" gives nothing: a still picture is shown until it does"),
            std::string::npos);
  EXPECT_NE(told.find("\"camera\" is back after"), std::string::npos);
  EXPECT_EQ(told.find("not there"), std::string::npos) << "that is tried again for hours";
}

TEST(KeptSource, StandsInForACameraThatFreezes) {
  const ConsoleCapture console;
  Camera camera;
  Kept kept(camera);
  camera.Give(true);
  ASSERT_TRUE(Eventually([&] { return kept.Pictures().size() >= 4; }));
  EXPECT_TRUE(kept.Away());
  camera.Give(false);
  camera.Give(true);
  ASSERT_TRUE(Eventually([&] { return !kept.Away(); }));
  EXPECT_EQ(camera.Opened(), 1);
  ExpectNumberedInTime(kept.Pictures());
}

TEST(KeptSource, WaitsForSlowPicturesAndForAKeyFrameBehindThem) {
  const ConsoleCapture console;
  Camera camera;
  Kept kept(camera);
  // A picture every six seconds, as their times have it.
  for (int i = 0; i < 10; ++i) {
    camera.Give(i == 0, MonotonicNow() + i * (6 * NsPerSecond));
  }
  ASSERT_TRUE(Eventually([&] { return kept.Pictures().size() == 10; }));
  camera.End();
  ASSERT_TRUE(Eventually([&] { return camera.Opened() > 1; }));
  camera.Return();
  const int opened = camera.Opened();
  ASSERT_TRUE(Eventually([&] { return camera.Opened() > opened; }));
  camera.Give(false);
  camera.Give(true);
  ASSERT_TRUE(Eventually([&] { return kept.Pictures().size() > 10; }));
  const auto pictures = kept.Pictures();
  EXPECT_TRUE(pictures[10]->IsKey());
  EXPECT_EQ(pictures[10]->Media(), pictures[9]->Media()) << "no slate stands between them";
}

TEST(KeptSource, IsStoppedWhileItWaits) {
  const ConsoleCapture console;
  Camera camera;
  {
    const Kept kept(camera);
    camera.Give(true);
    camera.End();
    ASSERT_TRUE(Eventually([&] { return kept.Away(); }));
  }
  // Nothing of it is left that could open the camera.
  const int opened = camera.Opened();
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  EXPECT_EQ(camera.Opened(), opened);
}

TEST(KeptTimes, NeitherFallNorJump) {
  constexpr std::int64_t Minute = 60 * NsPerSecond;
  // The clock of the camera is a minute behind, or before, that of the machine by now.
  for (const std::int64_t wrong : {-Minute, Minute, std::int64_t{0}}) {
    KeptTimes times;
    std::int64_t now = 10 * Minute;
    std::int64_t last = times.Pass(Kind::Video, now + wrong, now);
    EXPECT_EQ(last, now + wrong);
    const auto follows = [&](std::int64_t time) {
      EXPECT_GE(time, last);
      EXPECT_LE(time - last, NsPerSecond);
      last = time;
    };
    for (int round = 0; round < 20; ++round) {
      for (int i = 0; i < 60; ++i) {
        now += NsPerSecond / 2;
        follows(times.Use(Kind::Video, times.StandIn(now), now));
      }
      // What it gives first was taken while the slate was shown, and comes at once.
      times.Resume(now - NsPerSecond);
      for (std::int64_t own = now - NsPerSecond; own < now; own += PicturePeriod) {
        follows(times.Pass(Kind::Video, own, now));
      }
      for (int i = 0; i < 30; ++i) {
        now += PicturePeriod;
        follows(times.Pass(Kind::Video, now, now));
      }
    }
    // What is ahead of the clock does not grow with every return.
    EXPECT_LT(last - now, std::max<std::int64_t>(wrong, 0) + 2 * NsPerSecond);
  }
}

}  // namespace
}  // namespace nimbo::test
