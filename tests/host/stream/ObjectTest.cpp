#include <gtest/gtest.h>

#include "base/reflect/TClass.h"
#include "tests/host/stream/Probes.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::stream::test {
namespace {

class ObjectProperties : public testing::Test {
 protected:
  ApplicationHolder application = NewApplication("app", "test-source+test-sink");
  TestSink& sink = ElementAt<TestSink>("app/TestSink");
  nimbo::test::ConsoleCapture console;
};

TEST_F(ObjectProperties, AreSetFromText) {
  EXPECT_TRUE(sink.Set("flag", "on"));
  EXPECT_TRUE(sink.flag);
  EXPECT_FALSE(sink.Set("flag", "perhaps"));
  EXPECT_FALSE(sink.Set("nonsense", "1"));
  EXPECT_TRUE(console.Lines().empty()) << console.Text();
  EXPECT_FALSE(sink.Set("fail", nullptr)) << "a string setter raises an exception";
  EXPECT_EQ(console.Lines().size(), 1u);
  EXPECT_TRUE(sink.Set("status", "ready"));
  EXPECT_EQ(sink.StatusGet(), IStatus::ready);
}

TEST_F(ObjectProperties, WholeObjectFormHoldsWhatCanBeSetAndRead) {
  sink.SetFail("Stop");
  std::string text;
  EXPECT_TRUE(sink.toString(text));
  EXPECT_EQ(text, "fail=Stop,flag=false");
  EXPECT_TRUE(sink.fromString("fail=Open,flag=true"));
  EXPECT_EQ(sink.GetFail(), "Open");
  EXPECT_TRUE(sink.flag);
  EXPECT_TRUE(console.Lines().empty()) << console.Text();
}

TEST_F(ObjectProperties, PortTextsAreResolvedAndChecked) {
  auto& source = ElementAt<TestSource>("app/TestSource");
  IPort* output = &source.Output();
  IPort* input = output && source.Output().Peer() ? source.Output().Peer() : nullptr;
  ASSERT_TRUE(input);
  std::string address = PortAddress(output);
  struct Case {
    std::string text;
    IPort* port;
  };
  for (const Case& good : {Case{"app/TestSource.out0", output}, Case{address, output},
                           Case{address.substr(2), output}, Case{"APP/testsink.in0", input}}) {
    sink.port = nullptr;
    EXPECT_TRUE(sink.Set("port", good.text.c_str())) << good.text;
    EXPECT_EQ(sink.port, good.port) << good.text;
  }
  EXPECT_TRUE(console.Lines().empty()) << console.Text();
  EXPECT_TRUE(sink.Set("port", "0")) << "a null port is the setter's business";
  EXPECT_FALSE(sink.port);
  for (const char* bad :
       {"app/TestSource.out1", "app/TestSource.out", "app/TestSource.side", "app/TestSource.outx",
        "app/TestSource", "app/nobody.out0", "app.out0", "10", "deadbeef", "rubbish", "", "."}) {
    console.Clear();
    EXPECT_FALSE(sink.Set("port", bad)) << bad;
    EXPECT_EQ(console.Lines().size(), 1u) << bad;
    EXPECT_FALSE(sink.port);
  }
}

TEST(ServiceNew, RefusesANameInUseAndUnknownClassesWithOneLine) {
  RegisterProbes();
  Service* service = Service::New("test-service", "twice", "fail=Start");
  ASSERT_TRUE(service);
  EXPECT_EQ(FindObject("twice"), service);
  nimbo::test::ConsoleCapture console;
  EXPECT_FALSE(Service::New("test-service", "TWICE", nullptr));
  EXPECT_FALSE(Service::New("test-sink", "other", nullptr)) << "is no service";
  EXPECT_FALSE(Service::New(nullptr, "other", nullptr));
  EXPECT_EQ(console.Lines().size(), 3u);
  console.Clear();
  EXPECT_FALSE(Service::New("test-service", "other", "flag=1"));
  EXPECT_EQ(console.Lines().size(), 1u);
  EXPECT_FALSE(FindObject("other"));
  service->Release();
  EXPECT_FALSE(FindObject("twice"));
}

}  // namespace
}  // namespace nimbo::stream::test
