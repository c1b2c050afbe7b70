#pragma once

#include <algorithm>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/reflect/Class.h"
#include "common/Held.h"
#include "host/stream/PacketPool.h"
#include "host/stream/RingBuffer.h"
#include "host/stream/State.h"
#include "host/stream/Tree.h"
#include "nimbo/stream/factory.h"
#include "nimbo/stream/service.h"
#include "nimbo/stream/sink.h"
#include "tests/support/Owned.h"

/// Elements and services that write down what happens to them and fail on demand.

namespace nimbo::stream::test {

/// What happened to all probes, in order, as "NAME.STEP". [any]
class Journal {
 public:
  static Journal& Global();
  void Add(const std::string& entry);
  /// Everything since the last call.
  std::vector<std::string> Take();

 private:
  std::mutex _mutex;
  std::vector<std::string> _entries;
};

/// The steps of `Base`, none of which reaches the base's own operation. "Joined" stands for the
/// hook after Stop, which comes before those of a container's children.
template <class Base>
class Probe : public Base {
 public:
  bool Open() override { return Step("Open"); }
  bool Start() override { return Step("Start"); }
  bool Stop() override { return Step("Stop"); }
  bool Close() override { return Step("Close"); }
  bool afterStatusDown(IStatus::Status to) override {
    const bool joined = to != IStatus::ready || Step("Joined");
    return Base::afterStatusDown(to) && joined;
  }

  /// The step that fails from now on, and the one that raises an exception.
  bool SetFail(std::string step) { return Assign(_fail, std::move(step)); }
  bool SetThrow(std::string step) { return Assign(_throw, std::move(step)); }
  std::string GetFail() const { return _fail; }

 protected:
  bool Step(const std::string& step) {
    Journal::Global().Add(this->Name() + "." + step);
    if (step == _throw) throw std::runtime_error("thrown by " + step);
    return step != _fail;
  }

 private:
  static bool Assign(std::string& member, std::string value) {
    member = std::move(value);
    return true;
  }
  std::string _fail;
  std::string _throw;
};

/// One "h264" output.
class TestSource : public Probe<IElement> {
 public:
  TestSource();
  Port& Output() { return *HostState(*this).outputs.front(); }
};

/// One input, and one output that follows it.
class TestFilter : public Probe<IElement> {
 public:
  TestFilter();
  IPort* PortAdd(const char*, const char*) override { return nullptr; }
};

/// Counts packets; a packet or port can be refused ("ReceivePacket", "PortAdd") or raise an
/// exception.
class TestSink : public Probe<ISink> {
 public:
  IPort* PortAdd(const char* caps, const char* direction) override {
    return Step("PortAdd") ? ISink::PortAdd(caps, direction) : nullptr;
  }
  bool ReceivePacket(Packet&, void*) override;
  bool SetPort(IPort* port);

  std::atomic<int> packets{0};
  bool flag = false;
  IPort* port = nullptr;  ///< the value of the property "port"
};

/// Ends in a ring.
class TestRing : public Probe<ISink> {
 public:
  TestRing();
  RingBuffer ring{4};
};

class TestService : public Probe<Service> {};
class TestPipeline : public Probe<Pipeline> {};

/// Registers the classes TestSource-test-source, TestFilter-test-filter, TestSink-test-sink,
/// TestRing-test-ring and TestService-test-service, once.
void RegisterProbes();

/// An application under `name`, not configured.
using ApplicationHolder = nimbo::test::Owned<Application>;
ApplicationHolder NewApplication(const char* name);
/// An application built from `text`; null when it cannot be built.
ApplicationHolder NewApplication(const char* name, const std::string& text);

/// The element of an application by its path, which must be there.
template <class T>
T& ElementAt(const std::string& path) {
  return dynamic_cast<T&>(*FindObject(path));
}

/// A packet without content.
Held<HostPacket> NewPacket();

}  // namespace nimbo::stream::test
