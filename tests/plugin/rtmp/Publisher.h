#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "tests/plugin/rtmp/PluginFixture.h"

namespace nimbo::test {

/// One of the ways to publish with the plug-in, fed with key frames and sound by a thread of its
/// own, as a camera would.
class Publisher {
 public:
  enum class Kind { Pusher, Client, ClientInPlace, Live };

  /// A pusher takes its frames from rings of the kind `ring`.
  static std::unique_ptr<Publisher> New(Kind kind, const std::string& url,
                                        const std::string& ring = "RingSink");
  virtual ~Publisher() { StopFeeding(); }

  /// Counts from the next attempt to connect on.
  virtual void SetUrl(const std::string& url) = 0;
  virtual bool Open() = 0;
  /// Takes the publisher down, as hosts do it: stops, ends the delivery, closes.
  virtual void Close() = 0;
  virtual std::string Get(const char* property) = 0;
  bool Connected() { return Get("rtmp_sts") == "true"; }

  /// Frames of `size` bytes, 20 ms of stream time apart, a pair every `pace`.
  void StartFeeding(std::size_t size,
                    std::chrono::milliseconds pace = std::chrono::milliseconds(5));
  void StopFeeding();
  /// One frame of each kind whose size is above zero, in the caller's thread. While nothing is fed.
  void FeedOnce(std::size_t video, std::size_t audio);
  /// Stream time of the next frame in ms, and its number. To be changed while nothing is fed.
  std::int64_t time = 0;
  std::uint32_t sequence = 1;

 protected:
  /// [feeding] One frame of each kind; none of that which is empty.
  virtual void Deliver(Bytes video, Bytes audio) = 0;

  Held<stream::Media> _video = VideoMedia();
  Held<stream::Media> _audio = AudioMedia();

 private:
  std::atomic<bool> _feeding{false};
  std::thread _feeder;
};

/// "Pusher", "Client", "ClientInPlace" or "Live".
const char* NameOf(Publisher::Kind kind);

}  // namespace nimbo::test
