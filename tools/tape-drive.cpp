// Publishes to a server of its own as one of the plug-in's classes, step by step, and writes the
// name of each step to the tape that tools/tape-recorder.cpp writes. See tools/tape.
#include <sys/stat.h>

#include <fstream>
#include <iostream>

#include "tests/plugin/rtmp/Publisher.h"

namespace nimbo::test {
namespace {

/// Waits until the plug-in's threads have come to rest: none of their waits is longer than half a
/// second while there is something to do.
void Rest(const char* tape) {
  constexpr auto Rest = std::chrono::milliseconds(1500);
  const auto size = [tape] {
    struct stat file {};
    return stat(tape, &file) == 0 ? file.st_size : 0;
  };
  auto before = size();
  auto since = std::chrono::steady_clock::now();
  while (std::chrono::steady_clock::now() - since < Rest) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (size() == before) continue;
    before = size();
    since = std::chrono::steady_clock::now();
  }
}

void Drive(const char* tape, Publisher::Kind kind) {
  constexpr std::size_t Picture = 100;  // one chunk, and so one write, of either class
  constexpr std::size_t Sound = 100;
  const auto step = [tape](const char* name, const auto& act) {
    std::ofstream(tape, std::ios::app) << "step " << name << std::endl;
    act();
    Rest(tape);
  };
  LoadPlugin();
  IngestServer server;
  const auto publisher = Publisher::New(kind, server.Url());
  step("open", [&] { publisher->Open(); });
  step("a key frame", [&] { publisher->FeedOnce(Picture, 0); });
  step("a frame of sound", [&] { publisher->FeedOnce(0, Sound); });
  server.Close(0);
  server.WaitForEnd(0);
  step("a key frame, behind the server's close", [&] { publisher->FeedOnce(Picture, 0); });
  step("another key frame", [&] { publisher->FeedOnce(Picture, 0); });
  step("a last key frame", [&] { publisher->FeedOnce(Picture, 0); });
  step("close", [&] { publisher->Close(); });
}

}  // namespace
}  // namespace nimbo::test

int main(int, char** arguments) {
  using Kind = nimbo::test::Publisher::Kind;
  for (const Kind kind : {Kind::Pusher, Kind::Client, Kind::ClientInPlace}) {
    if (NameOf(kind) != std::string(arguments[1])) continue;
    nimbo::test::Drive(std::getenv("TAPE"), kind);
    return 0;
  }
  std::cerr << "tape-drive: no publisher " << arguments[1] << "\n";
  return 1;
}
