#include "tests/plugin/rtmp/PluginFixture.h"

#include <dlfcn.h>

#include <regex>
#include <stdexcept>
#include <utility>

#include "host/base/PluginLoader.h"
#include "host/stream/ControlQueue.h"
#include "host/stream/Message.h"

namespace nimbo::test {

using stream::ControlQueue;
using stream::MessageListeners;

#ifndef RTMP_PLUGIN
// The plug-in's objects are part of the program.
void LoadPlugin() { base::PluginLoader::Global().Register(); }
#else
void LoadPlugin() {
  static const bool loaded = base::PluginLoader::Global().Load(RTMP_PLUGIN);
  if (!loaded) throw std::runtime_error("the plug-in cannot be loaded");
}

void* PluginSymbol(const char* name) {
  LoadPlugin();
  void* library = dlopen(RTMP_PLUGIN, RTLD_NOW | RTLD_NOLOAD);
  void* symbol = dlsym(library, name);
  dlclose(library);
  if (!symbol) throw std::runtime_error(std::string("not exported: ") + name);
  return symbol;
}
#endif

std::string GetText(stream::Object& object, const char* property) {
  std::string value;
  return object.GetStr(property, value) ? value : "unreadable";
}

Pusher::Pusher(const std::string& url, const std::string& cfg) {
  LoadPlugin();
  static int count = 0;
  const std::string name = "pusher-" + std::to_string(++count);
  _service.reset(stream::Service::New("RtmpStreamPusher-rtmp-pusher", name.c_str(), nullptr));
  if (!_service || !_service->Set("addr", url.c_str()) || !_service->Set("cfg", cfg.c_str())) {
    throw std::runtime_error("the pusher refuses its settings");
  }
}

PluginTest::PluginTest() {
  LoadPlugin();
  console.Clear();
  ControlQueue::Global().Run();  // what earlier tests left
  _listener = MessageListeners::Global().Add(
      [this](const stream::Message& message) { _messages.push_back(message.name); });
}

PluginTest::~PluginTest() { MessageListeners::Global().Remove(_listener); }

std::vector<std::string> PluginTest::Messages() {
  ControlQueue::Global().Run();
  return std::exchange(_messages, {});
}

std::vector<std::string> PluginTest::Told(const std::string& unit) {
  static const std::regex address("0x[0-9a-f]+");
  std::vector<std::string> told;
  for (const ConsoleLine& line : console.Lines()) {
    if (line.path != "plugin/rtmp/" + unit + ".cpp") continue;
    told.push_back((line.colour == '1' ? "" : std::string(1, line.colour) + " ") +
                   (unit == "_test" ? std::to_string(line.line) + "/" : "") + line.function + ": " +
                   std::regex_replace(line.text, address, "ADDRESS"));
  }
  console.Clear();
  return told;
}

void FeedTest::PushVideo(bool key, std::int64_t time, std::size_t sliceSize) {
  video.Push(AccessUnit(key, sliceSize), key, time * Millisecond, ++videoSequence);
}

void FeedTest::PushAudio(std::int64_t time, std::size_t size) {
  audio.Push(AdtsFrame(size), true, time * Millisecond, ++audioSequence);
}

bool FeedTest::PushUntil(const std::function<bool()>& condition) {
  constexpr std::int64_t Step = 20;
  return Eventually([&] {
    if (condition()) return true;
    clock += Step;
    PushVideo(true, clock, pushSize);
    PushAudio(clock);
    std::this_thread::sleep_for(std::chrono::milliseconds(Step));
    return false;
  });
}

std::vector<std::string> Summary(const Record& record) {
  std::vector<std::string> summary;
  for (const Message& message : record.Media()) {
    const bool header = message.body.at(1) == 0;
    const char kind = message.type == VideoMessage ? (header ? 'v' : 'V') : (header ? 'a' : 'A');
    summary.push_back(kind + std::to_string(message.time));
  }
  return summary;
}

}  // namespace nimbo::test
