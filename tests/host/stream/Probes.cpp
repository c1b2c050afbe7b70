#include "tests/host/stream/Probes.h"

#include <type_traits>
#include <utility>

#include "base/reflect/TClass.h"

namespace nimbo::stream::test {

namespace {

/// Registers a probe with the properties "fail" (a text to read and write) and "throw" (write
/// only). `port` and `flag` are added for the sink.
template <class T>
void RegisterProbe(const char* name) {
  auto* fail = new base::TProperty;
  fail->init("fail", &T::SetFail, nullptr);
  fail->initGet(&T::GetFail);
  fail->initGetStr(&T::GetFail);
  auto* raise = new base::TProperty;
  raise->init("throw", &T::SetThrow, nullptr);
  if constexpr (std::is_same_v<T, TestSink>) {
    auto* port = new base::TProperty;
    port->init("port", &T::SetPort, nullptr);
    auto* flag = new base::TProperty;
    flag->base::IProperty::init("flag", typeid(bool), 1, nullptr);
    flag->init(&T::flag);
    base::TClass<>::Register<T>(name, {fail, raise, port, flag});
  } else {
    base::TClass<>::Register<T>(name, {fail, raise});
  }
}

}  // namespace

Journal& Journal::Global() {
  static Journal journal;
  return journal;
}

void Journal::Add(const std::string& entry) {
  const std::lock_guard<std::mutex> lock(_mutex);
  _entries.push_back(entry);
}

std::vector<std::string> Journal::Take() {
  const std::lock_guard<std::mutex> lock(_mutex);
  return std::exchange(_entries, {});
}

TestSource::TestSource() { HostState(*this).Add(this, "h264", true); }

TestFilter::TestFilter() {
  const Port& input = HostState(*this).Add(this, nullptr, false);
  HostState(*this).Add(this, nullptr, true).Follow(input);
}

bool TestSink::ReceivePacket(Packet&, void*) {
  ++packets;
  return Step("ReceivePacket");
}

bool TestSink::SetPort(IPort* value) {
  port = value;
  return true;
}

TestRing::TestRing() {
  const Port& input = HostState(*this).Add(this, nullptr, false);
  Port& output = HostState(*this).Add(this, nullptr, true);
  output.SetRing(&ring);
  output.Follow(input);
}

void RegisterProbes() {
  [[maybe_unused]] static const bool once = [] {
    RegisterProbe<TestSource>("TestSource-test-source");
    RegisterProbe<TestFilter>("TestFilter-test-filter");
    RegisterProbe<TestSink>("TestSink-test-sink");
    RegisterProbe<TestRing>("TestRing-test-ring");
    RegisterProbe<TestService>("TestService-test-service");
    return true;
  }();
}

ApplicationHolder NewApplication(const char* name) {
  RegisterProbes();
  base::AttrSet attrs = Object::AttrSetInit({{"type", "Application"}, {"name", name}});
  return ApplicationHolder(base::IClass::New<Application>(attrs));
}

ApplicationHolder NewApplication(const char* name, const std::string& text) {
  ApplicationHolder application = NewApplication(name);
  base::AttrSet attrs = Object::AttrSetInit({{"serialize", text.c_str()}});
  if (!application->Configure(attrs)) application.reset();
  return application;
}

Held<HostPacket> NewPacket() {
  static PacketPool pool;
  Held<HostPacket> packet = pool.New(1);
  packet->Describe(1, true, 0, 0, nullptr);
  return packet;
}

}  // namespace nimbo::stream::test
