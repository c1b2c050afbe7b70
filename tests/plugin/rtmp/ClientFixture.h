#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nimbo/stream/element.h"
#include "tests/plugin/rtmp/PluginFixture.h"

namespace nimbo::test {

/// Client elements that get their packets from the test.
class ClientTest : public PluginTest {
 protected:
  /// A new element takes the place of the one before; its status stays null.
  void Make(const std::string& url);
  /// The same, brought to `status`. Its result.
  bool Open(const std::string& url, const char* status = "play");
  std::string Get(const char* property) { return GetText(*client, property); }
  /// Hands the element a packet with the next number of all.
  bool Receive(Bytes bytes, stream::IMedia* media, std::int64_t time = 0, bool key = true);
  /// A key frame, and a frame of sound.
  bool ReceiveBoth();

  Held<stream::Media> video = VideoMedia();
  Held<stream::Media> audio = AudioMedia();
  Owned<stream::IElement> client;
  std::uint32_t sequence = 0;
};

}  // namespace nimbo::test
