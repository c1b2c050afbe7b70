#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "nimbo/stream/application.h"
#include "nimbo/stream/sink.h"
#include "tests/support/Owned.h"

/// What the tests of the host's elements share.

namespace nimbo::stream::test {

/// Writes down the packets that it gets: the class "Collector-collector". It can hold up whoever
/// delivers; stopping it lets them go.
class Collector : public ISink {
 public:
  bool ReceivePacket(Packet& packet, void* from) override;
  bool Start() override;
  bool Stop() override;

  void HoldUp(bool hold);
  /// The first `count` packets, as "CODEC TIME-IN-MS", when there are so many.
  std::vector<std::string> Wait(std::size_t count);
  std::vector<std::uint32_t> Sequences();

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<std::string> _seen;
  std::vector<std::uint32_t> _sequences;
  bool _hold = false;
  bool _stopped = false;
};

using OwnedApplication = nimbo::test::Owned<Application>;

/// The application "app" from a configuration text; null when it cannot be built.
OwnedApplication Build(const std::string& text);
/// An element of the application "app", which must be there.
IElement& Element(const std::string& name);
Collector& TheCollector(const std::string& name = "Collector");
/// Waits until a figure of an element has reached a value. False when it does not within a minute.
bool Reaches(const std::string& element, const char* figure, const std::string& value);

}  // namespace nimbo::stream::test
