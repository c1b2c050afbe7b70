#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "nimbo/stream/service.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/IngestServer.h"
#include "tests/support/TestCapture.h"

namespace nimbo::test {

/// Whether the plug-in was built to make every step with librtmp's own calls, which know no limit
/// for an attempt as a whole nor for a send.
#ifdef RTMP_STOCK_TRANSPORT
constexpr bool StockTransport = true;
#else
constexpr bool StockTransport = false;
#endif

/// Loads the plug-in, once, as hosts do.
void LoadPlugin();

/// An exported function or datum of the plug-in.
void* PluginSymbol(const char* name);
template <class T>
T PluginFunction(const char* name) {
  return reinterpret_cast<T>(PluginSymbol(name));
}

/// Asks until `condition` holds; false when it has not for LongTime.
bool Eventually(const std::function<bool()>& condition);

/// A pusher, made and driven as users do it.
class Pusher {
 public:
  Pusher(const std::string& url, const std::string& cfg);
  Pusher(const Pusher&) = delete;
  Pusher& operator=(const Pusher&) = delete;
  ~Pusher() { Release(); }

  bool SetStatus(const char* status) { return _service->Set("status", status); }
  std::string Get(const char* property);
  /// Takes the pusher down and destroys it.
  void Release();
  stream::Service& operator*() const { return *_service; }

 private:
  stream::Service* _service;
};

/// A test with a captured console and one video and one audio source.
class PusherTest : public testing::Test {
 protected:
  PusherTest();
  std::string Configuration() const { return RingConfiguration({"test-video", "test-audio"}); }

  /// The next packet of a stream without gaps. Times in milliseconds.
  void PushVideo(bool key, std::int64_t time, std::size_t sliceSize = 100);
  void PushAudio(std::int64_t time, std::size_t size = 107);
  /// Pushes key frames and sound until `condition` holds.
  bool PushUntil(const std::function<bool()>& condition);

  ConsoleCapture console;
  Feed video{"test-video", VideoMedia()};
  Feed audio{"test-audio", AudioMedia()};
  std::uint32_t videoSequence = 0;
  std::uint32_t audioSequence = 0;
  std::int64_t clock = 0;      ///< of PushUntil, ms
  std::size_t pushSize = 100;  ///< of PushUntil's frames, bytes
};

}  // namespace nimbo::test
