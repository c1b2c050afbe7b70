#include <gmock/gmock.h>

#include "tests/host/cli/HostProcess.h"

namespace nimbo {
namespace {

using test::HostProcess;

class Terminal : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host.WaitFor("nimbo> ")); }
  HostProcess host{HostProcess::Streams::Terminal, {"--plugin", ECHO_PLUGIN, "shell"}};
};

constexpr char Up[] = "\033[A";
constexpr char Interrupt[] = "\003";

TEST_F(Terminal, CompletesAWordRunsTheLineAndRepeatsIt) {
  host.Write("call fwE\t\"x y\"\n");
  EXPECT_TRUE(host.WaitFor("[x y]nullnull")) << host.Output();
  EXPECT_TRUE(host.WaitFor("= 7"));
  host.Write(std::string(Up) + "\n");
  EXPECT_TRUE(host.WaitFor("[x y]nullnull")) << host.Output();
}

TEST_F(Terminal, DrawsTheLineAnewBelowWhatIsPrintedMeanwhile) {
  host.Write("later\n");
  ASSERT_TRUE(host.WaitFor("nimbo> "));
  host.Write("call fwEcho half");
  ASSERT_TRUE(host.WaitFor("from a thread")) << host.Output();
  EXPECT_TRUE(host.WaitFor("nimbo> call fwEcho half")) << host.Output();
  ASSERT_TRUE(host.WaitFor("from the queue")) << host.Output();
  EXPECT_TRUE(host.WaitFor("nimbo> call fwEcho half")) << host.Output();
  host.Write("way\n");
  EXPECT_TRUE(host.WaitFor("[halfway]")) << host.Output();
}

TEST_F(Terminal, AnInterruptDropsTheLineAndEndsASleep) {
  host.Write("call fwEcho dropped");
  ASSERT_TRUE(host.WaitFor("dropped"));
  host.Write(Interrupt);
  ASSERT_TRUE(host.WaitFor("nimbo> "));
  // Done by the sleep, so that it has begun.
  host.Write("later\nsleep 600\n");
  ASSERT_TRUE(host.WaitFor("from the queue"));
  host.Write(Interrupt);
  EXPECT_TRUE(host.WaitFor("sleep was interrupted")) << host.Output();
  host.Write("quit\n");
  EXPECT_EQ(host.Wait(), 0) << host.Output();
  EXPECT_EQ(host.Output().find("[dropped]"), std::string::npos);
}

}  // namespace
}  // namespace nimbo
