#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "base/reflect/Class.h"
#include "nimbo/stream/service.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/Eventually.h"
#include "tests/support/IngestServer.h"
#include "tests/support/Owned.h"
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

/// An object of a registered class; null when it cannot be made.
template <class T>
Owned<T> New(const char* type, const char* name) {
  auto attrs = stream::Object::AttrSetInit({{"type", type}, {"name", name}});
  return Owned<T>(base::IClass::New<T>(attrs));
}

/// A readable property as a text.
std::string GetText(stream::Object& object, const char* property);

/// A pusher, made and driven as users do it.
class Pusher {
 public:
  Pusher(const std::string& url, const std::string& cfg);
  bool SetStatus(const char* status) { return _service->Set("status", status); }
  std::string Get(const char* property) { return GetText(*_service, property); }
  /// Takes the pusher down and destroys it.
  void Release() { _service.reset(); }
  stream::Service& operator*() const { return *_service; }

 private:
  Owned<stream::Service> _service;
};

/// A test with a captured console and the plug-in loaded, which hears all messages.
class PluginTest : public testing::Test {
 protected:
  PluginTest();
  ~PluginTest() override;
  /// All lines of one of the plug-in's sources as "FUNCTION: TEXT", the commands' with their fixed
  /// numbers in front; those that are not red with the digit of their colour; addresses masked. The
  /// console is cleared.
  std::vector<std::string> Told(const std::string& unit = "_test");
  /// What was sent up since the last call.
  std::vector<std::string> Messages();

  ConsoleCapture console;

 private:
  std::vector<std::string> _messages;
  int _listener;
};

/// A test with one video and one audio source as well.
class FeedTest : public PluginTest {
 protected:
  std::string Configuration() const { return RingConfiguration({"h264-test", "aac-test"}); }

  /// The next packet of a stream without gaps. Times in milliseconds.
  void PushVideo(bool key, std::int64_t time, std::size_t sliceSize = 100);
  void PushAudio(std::int64_t time, std::size_t size = 107);
  /// Pushes key frames and sound until `condition` holds.
  bool PushUntil(const std::function<bool()>& condition);

  Feed video{"h264-test", VideoMedia()};
  Feed audio{"aac-test", AudioMedia()};
  std::uint32_t videoSequence = 0;
  std::uint32_t audioSequence = 0;
  std::int64_t clock = 0;      ///< of PushUntil, ms
  std::size_t pushSize = 100;  ///< of PushUntil's frames, bytes
};

/// "V" or "A" for each media message, "v" and "a" for a sequence header, with its time stamp.
std::vector<std::string> Summary(const Record& record);

}  // namespace nimbo::test
