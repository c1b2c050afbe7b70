#include "tests/host/elements/Collector.h"

#include <algorithm>
#include <chrono>

#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "host/stream/Tree.h"
#include "tests/support/Eventually.h"

namespace nimbo::stream::test {

namespace {

constexpr std::chrono::minutes Patience{1};
constexpr std::int64_t Millisecond = 1000000;

[[maybe_unused]] base::IClass* const Registered =
    base::TClass<>::Register<Collector>("Collector-collector", {});

}  // namespace

bool Collector::ReceivePacket(Packet& packet, void*) {
  std::unique_lock<std::mutex> lock(_mutex);
  _seen.push_back(std::string(packet.Media() ? packet.Media()->Codec() : "none") + " " +
                  std::to_string(packet.TimeStamp() / Millisecond));
  _sequences.push_back(packet.Sequence());
  _changed.notify_all();
  _changed.wait(lock, [this] { return !_hold || _stopped; });
  return true;
}

bool Collector::Start() {
  const std::lock_guard<std::mutex> lock(_mutex);
  _stopped = false;
  return ISink::Start();
}

bool Collector::Stop() {
  const std::lock_guard<std::mutex> lock(_mutex);
  _stopped = true;
  _changed.notify_all();
  return ISink::Stop();
}

void Collector::HoldUp(bool hold) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _hold = hold;
  _changed.notify_all();
}

std::vector<std::string> Collector::Wait(std::size_t count) {
  std::unique_lock<std::mutex> lock(_mutex);
  _changed.wait_for(lock, Patience, [this, count] { return _seen.size() >= count; });
  return {_seen.begin(),
          _seen.begin() + static_cast<std::ptrdiff_t>(std::min(count, _seen.size()))};
}

std::vector<std::uint32_t> Collector::Sequences() {
  const std::lock_guard<std::mutex> lock(_mutex);
  return _sequences;
}

OwnedApplication Build(const std::string& text) {
  auto attrs =
      Object::AttrSetInit({{"type", "Application"}, {"name", "app"}, {"serialize", text.c_str()}});
  OwnedApplication application(base::IClass::New<Application>(attrs));
  if (application && !application->Configure(attrs)) application.reset();
  return application;
}

IElement& Element(const std::string& name) {
  return dynamic_cast<IElement&>(*FindObject("app/" + name));
}

Collector& TheCollector(const std::string& name) { return dynamic_cast<Collector&>(Element(name)); }

bool Reaches(const std::string& element, const char* figure, const std::string& value) {
  std::string text;
  return nimbo::test::Eventually(
      [&] { return Element(element).GetStr(figure, text) && text == value; });
}

}  // namespace nimbo::stream::test
