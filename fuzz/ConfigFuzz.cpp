// Configuration texts: as entries, as an attribute set, as what a source connects to, and as an
// application that is built from them.

#include <algorithm>
#include <cctype>

#include "base/reflect/Class.h"
#include "fuzz/Fuzz.h"
#include "host/base/ConfigText.h"
#include "host/stream/State.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::fuzz {
namespace {

using base::AttrSet;

/// What `read` says. When that is false one red line tells it; yellow ones may explain.
template <class Read>
bool Told(Read read) {
  test::ConsoleCapture console;
  const bool ok = read();
  const std::vector<test::ConsoleLine> lines = console.Lines();
  const auto reds = std::count_if(lines.begin(), lines.end(),
                                  [](const auto& line) { return line.colour == '1'; });
  Require(reds == (ok ? 0 : 1), "one line tells of a refusal");
  const std::string text = console.Text();
  const auto controls = std::count_if(text.begin(), text.end(),
                                      [](char c) { return c == 0x7F || (c >= 0 && c < ' '); });
  Require(controls == 3 * static_cast<long>(lines.size()), "only colour, end and reset steer");
  return ok;
}

void CheckForm(const AttrSet& set) {
  for (const auto& [key, value] : Framework::Entries(set)) {
    if (!BracesMatch(value)) return;
  }
  const AttrSet again(set.ToString(false).c_str());
  Require(Framework::Valid(again) && Framework::Entries(again) == Framework::Entries(set),
          "a set reads back as it was");
}

void CheckEntry(const base::ConfigEntry& entry, const std::string& text) {
  const auto stands = [&text](const std::string& piece, std::size_t at) {
    Require(text.compare(at, piece.size(), piece) == 0, "a piece stands where it is said to");
  };
  stands(entry.text, entry.position);
  stands(entry.type, entry.typePosition);
  for (const base::ConfigSetting& setting : entry.written) {
    stands(setting.key, setting.position);
    stands(setting.value, setting.valuePosition);
  }
  CheckForm(entry.settings);
}

void CheckApplication(const std::string& text) {
  std::string lower = text;
  std::transform(text.begin(), text.end(), lower.begin(), [](int c) { return std::tolower(c); });
  if (lower.find("status") != std::string::npos) return;  // opening could reach for a server
  AttrSet attrs("type=Application");
  auto* application = base::IClass::New<stream::Application>(attrs);
  const bool built = Told([&] { return application->Set("serialize", text.c_str()); });
  Require(built || HostState(*application).pipelines.empty(), "what fails leaves nothing");
  std::string told;
  application->GetStr("serialize", told);
  Require(told == (built ? text.c_str() : ""), "what was built is told");
  application->Release();
}

}  // namespace

void Run(FuzzedDataProvider in) {
  // That the libav* module is missing is told once, in a line of its own.
  [[maybe_unused]] static const auto* const missing = base::IClass::Find("av-source", false);
  const std::string text = in.ConsumeRemainingBytesAsString();
  std::vector<base::ConfigEntry> entries;
  Told([&] { return ParseConfiguration(text, entries); });
  for (const base::ConfigEntry& entry : entries) CheckEntry(entry, text);
  AttrSet set;
  Told([&] { return Framework::Valid(set = AttrSet(text.c_str())); });
  CheckForm(set);
  base::ConnectText connect;
  Told([&] { return ParseConnect(text, connect); });
  CheckForm(connect.options);
  CheckApplication(text);
}

}  // namespace nimbo::fuzz
