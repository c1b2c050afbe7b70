#include <gmock/gmock.h>

#include <cstdio>
#include <regex>

#include "host/cli/commands/Graph.h"
#include "host/cli/commands/Inventory.h"
#include "host/stream/Builder.h"
#include "host/text/Json.h"
#include "tests/host/cli/HostProcess.h"

namespace nimbo::cli {
namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Whether a program takes a text as its input.
bool Takes(const char* program, const std::string& text) {
  std::FILE* input = popen(program, "w");
  std::fwrite(text.data(), 1, text.size(), input);
  return pclose(input) == 0;
}

std::size_t Count(const std::string& text, const std::string& piece) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(piece, at)) != std::string::npos; ++at) ++count;
  return count;
}

TEST(Json, ReplacesWhatIsNoUtf8) {
  // A lone byte, an overlong form, a surrogate, what is beyond Unicode, a character cut short.
  for (const char* wrong : {"\x80", "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xE2\x82"}) {
    const std::string said = text::Utf8("\"\xE2\x82\xAC" + std::string(wrong) + "\n");
    EXPECT_THAT(said, AllOf(StartsWith("\"\xE2\x82\xAC\xEF\xBF\xBD"), EndsWith("\xBF\xBD\n")));
  }
}

TEST(Inventory, IsOneJsonDocumentAsAWholeAndForAClass) {
  const ClassView sink(*base::IClass::Find("RingSink", false), "sink");
  for (const auto& json : {InventoryJson(), sink.Json()}) {
    EXPECT_TRUE(Takes("python3 -c 'import json, sys; json.load(sys.stdin)'", json)) << json;
    EXPECT_THAT(json, HasSubstr("\"keywords\":[\"RingSink\",\"ring\",\"sink\"]"));
  }
  EXPECT_THAT(sink.Json(), HasSubstr("{\"name\":\"size\",\"type\":\"text\",\"access\":\"rw\","
                                     "\"default\":\"64\",\"description\":\"packets that"));
  EXPECT_THAT(sink.Text(), HasSubstr("  size     text                rw      64       packets"));
}

TEST(Graph, ShowsPortsRingsAndWaysThatGraphvizCanDraw) {
  auto* application = stream::CreateApplication(
      "a \"b\"\\", "shm-source:connect={pv:es,video=v,audio=a}+RingSink+fifofilter:link=all");
  ASSERT_TRUE(application);
  const auto text = GraphText(*application);
  application->Release();
  EXPECT_TRUE(Takes("dot -Tsvg -o/dev/null", text)) << text;
  EXPECT_EQ(Count(text, "subgraph"), 9U) << "an application, 2 pipelines, 6 elements";
  EXPECT_EQ(Count(text, "shape=cylinder"), 2U);
  EXPECT_EQ(Count(text, "\"port\\nh264\""), 1U);
  EXPECT_EQ(Count(text, "\"out0\\nh264\""), 5U);
  EXPECT_EQ(Count(text, "dashed"), 2U) << "what leaves the last element";
  EXPECT_EQ(Count(text, " -> "), 18U) << "10 inside elements, 8 between them";
}

TEST(Graph, IsDrawnAsAnImage) {
  const auto path = ::testing::TempDir() + "graph.svg";
  test::HostProcess host(test::HostProcess::Streams::Pipes,
                         {"--plugin", ECHO_PLUGIN, "graph", "ring-sink", "-o", path});
  EXPECT_EQ(host.Wait(), 0) << host.Output();
  EXPECT_TRUE(Takes(("grep -q '</svg>' " + path).c_str(), ""));
}

/// What the program says to `arguments`.
std::string Said(std::vector<std::string> arguments) {
  test::HostProcess host(test::HostProcess::Streams::Pipes, std::move(arguments));
  EXPECT_EQ(host.Wait(), 0) << host.Output();
  return host.Output();
}

TEST(Completion, KnowsEveryOptionOfTheHelpInEachShell) {
  const std::string help = Said({"publish", "--help"});
  const std::string bash = Said({"completion", "bash"}), zsh = Said({"completion", "zsh"}),
                    fish = Said({"completion", "fish"});
  EXPECT_TRUE(Takes("bash -n", bash));
  const std::regex option("\n  (?:-\\w,)?--([a-z-]+)");
  const std::sregex_iterator end;
  std::size_t options = 0;
  for (std::sregex_iterator found(help.begin(), help.end(), option); found != end; ++found) {
    const std::string name = (*found)[1];
    if (name == "help") continue;
    EXPECT_THAT(bash, testing::ContainsRegex(" --" + name + "[ ']"));
    EXPECT_THAT(zsh, HasSubstr("'*--" + name + "["));
    EXPECT_THAT(fish, HasSubstr(" -l " + name + " "));
    ++options;
  }
  EXPECT_GT(options, 20U);
}

}  // namespace
}  // namespace nimbo::cli
