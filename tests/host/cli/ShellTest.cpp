#include <gmock/gmock.h>
#include <signal.h>

#include "tests/host/cli/HostProcess.h"

namespace nimbo {
namespace {

using test::HostProcess;
using test::RunShell;
using ::testing::HasSubstr;
using ::testing::Not;

/// A line of the shell, a text that it must print, and whether it succeeds.
struct LineCase {
  const char* line;
  const char* printed;
  bool succeeds;
};
class ShellLine : public ::testing::TestWithParam<LineCase> {};

TEST_P(ShellLine, PrintsItsResultAndCountsInTheExitCode) {
  int code = -1;
  const auto output = RunShell(std::string(GetParam().line) + "\n", code);
  EXPECT_THAT(output, HasSubstr(GetParam().printed));
  EXPECT_EQ(code, GetParam().succeeds ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, ShellLine,
    ::testing::Values(
        LineCase{"echo p0={a,b=c},p1=x", "echo: p0={a,b=c},p1=x\n", true},
        LineCase{"echo fail=1", "the command \"echo\" failed", false},
        LineCase{"echo p0={a", "{a", false}, LineCase{"call fwEcho", "nullnullnull\n= 7\n", true},
        LineCase{"call fwEcho \"a b\" {c d=e}  f:g={h i}", "[a b][c d=e][f:g={h i}]\n", true},
        LineCase{"call fwEcho 1 2 3 4", "at most 3", false},
        LineCase{"call fwNone", "there are: fwEcho, fwThrow", false},
        LineCase{"call fwThrow", "no good", false},
        LineCase{"call fwEcho \"a", "not closed: \"a", false},
        LineCase{"get nobody status", "there is no object \"nobody\"", false},
        LineCase{"sleep soon", "usage: sleep SECONDS", false},
        LineCase{"class ring-snk", "did you mean \"ring-sink\"?", false},
        LineCase{"frobnicate", "there is no command \"frobnicate\"; there are: ", false}));

TEST(Shell, GoesOnAfterAFailedLineUnlessToldToStop) {
  int code = -1;
  EXPECT_THAT(RunShell("frobnicate\ncall fwEcho a", code), HasSubstr("[a]"));
  EXPECT_EQ(code, 1);
  EXPECT_THAT(RunShell("frobnicate\ncall fwEcho a", code, {"--stop"}), Not(HasSubstr("[a]")));
  EXPECT_EQ(code, 1);
}

TEST(Shell, DoesTheControlQueuesWorkWhileItSleeps) {
  HostProcess host(HostProcess::Streams::Pipes, {"--plugin", ECHO_PLUGIN, "shell"});
  host.Write("later\nsleep 600\n");
  EXPECT_TRUE(host.WaitFor("from a thread"));
  EXPECT_TRUE(host.WaitFor("from the queue"));
  host.Signal(SIGTERM);
  EXPECT_EQ(host.Wait(), 1);
}

struct UsageCase {
  std::vector<std::string> arguments;
  const char* printed;
  int code;
};
class Usage : public ::testing::TestWithParam<UsageCase> {};

TEST_P(Usage, IsToldInOneLine) {
  HostProcess host(HostProcess::Streams::Pipes, GetParam().arguments);
  EXPECT_EQ(host.Wait(), GetParam().code);
  EXPECT_THAT(host.Output(), HasSubstr(GetParam().printed));
  EXPECT_EQ(std::count(host.Output().begin(), host.Output().end(), '\n'), 1);
}

INSTANTIATE_TEST_SUITE_P(
    CommandLines, Usage,
    ::testing::Values(
        UsageCase{{"push", "--duration", "-1"}, "--duration", 2},
        UsageCase{{"push", "--durtion=1"}, "did you mean \"--duration\"?", 2},
        UsageCase{{"inspekt"}, "did you mean \"inspect\"?", 2},
        UsageCase{
            {"inspect", "--plugin", ECHO_PLUGIN, "ring-snk"}, "did you mean \"ring-sink\"?", 1},
        UsageCase{{"graph", "ring-sink", "-o", "a.jpg"}, ".svg, .png and .dot", 2},
        UsageCase{{"publish", "test:", "rmtp://h/a/s?x"},
                  "\"rmtp://h/a/s\" cannot be published to: \"rmtp\" is no kind of "
                  "RTMP; did you mean \"rtmp\"?",
                  2},
        UsageCase{{"push", "--url", "rtmp://h"}, "no application and stream", 2},
        UsageCase{{"publish", "test:", "rtmp://h/a/"}, "\"rtmp://h/a/\" names no stream", 2},
        UsageCase{{"publish", "test:", "rtmp://h/a"}, "names no stream", 2},
        UsageCase{{"publish", "test:", "rtmp://h:99999/a/s"}, "usable port: \"99999\"", 2},
        UsageCase{{"publish", "test:", "rtmp://[::1]:0/a/s"}, "usable port: \"0\"", 2},
        UsageCase{{"push", "--url", "rtmp://h:abc/a/s"}, "usable port: \"abc\"", 2},
        UsageCase{{"publish", "test:", "rtmp://u:secret@h/a/secretkey"},
                  "\"rtmp://***@h/a/secr...\" names a user",
                  2},
        UsageCase{{"publish", "test:"}, "URL is required", 2},
        UsageCase{{"publish", "test:", "rtmp://h/a/", "--key-file", "/nowhere"},
                  "--key-file: cannot open \"/nowhere\"",
                  2},
        UsageCase{{"publish", "-", "rtmp://h/a/s", "--loop"}, "--loop: \"-\" cannot be", 2},
        UsageCase{{"publish", "test:", "rtmp://h/a/s", "--duration", "3x"},
                  "--duration: \"3x\" is no time: 90, 2.5s",
                  2},
        UsageCase{{"publish", "test:", "rtmp://h/a/s", "--duration", "0s"}, "more than 0 s", 2},
        UsageCase{{"publish", "test:", "rtmp://h/a/s", "--retry-max", "2h"}, "1 s to 3600 s", 2},
        UsageCase{{"publish", "--plugin", ECHO_PLUGIN, "tset:", "rtmp://h/a/s"},
                  "the simulated camera is \"test:\"",
                  1},
        UsageCase{{"shell", "--plugin", "/nowhere.so"}, "/nowhere.so", 1},
        UsageCase{{"push", "--plugin", ECHO_PLUGIN, "--input", "/nowhere.mp4"},
                  "cannot open \"/nowhere.mp4\": No such file",
                  1},
        UsageCase{{"push", "--plugin", ECHO_PLUGIN, "--input", "a{.mp4"}, "brace", 1}));

}  // namespace
}  // namespace nimbo
