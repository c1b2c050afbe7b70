#include <gtest/gtest.h>

#include "base/reflect/TClass.h"
#include "host/stream/Factory.h"
#include "tests/host/stream/Probes.h"
#include "tests/support/ConsoleCapture.h"
#include "tests/support/MediaSamples.h"

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
  base::AttrSet attrs =
      Object::AttrSetInit({{"flag", "rtmp://host/live/name?token=of-which-32-bytes"}});
  EXPECT_FALSE(sink.Configure(attrs));
  EXPECT_EQ(console.Count("refuses flag=rtmp://host/live/name?token=of-w...: it is true or false"),
            1u)
      << console.Text();
}

TEST_F(ObjectProperties, AreReadAsTheTypeThatTheyHave) {
  sink.flag = true;
  bool flag = false;
  std::string text;
  int number = 7;
  long long wide = 7;
  double real = 7;
  const auto any = [](const std::type_info*) { return true; };
  EXPECT_TRUE(sink.Get("flag", flag) && flag);
  EXPECT_FALSE(sink.Get("flag", number));
  EXPECT_FALSE(sink.GetIntT("flag", number)) << "a truth is no number";
  EXPECT_FALSE(sink.GetWithType("flag", &real, typeid(double), any));
  EXPECT_TRUE(sink.GetWithType("flag", &wide, typeid(long long), any)) << "unless one says so";
  EXPECT_EQ(wide, 1);
  EXPECT_EQ(number, 7);
  EXPECT_TRUE(sink.Get("status", text));
  EXPECT_EQ(text, "null");
  EXPECT_TRUE(sink.Get("name", text));
  EXPECT_EQ(text, "TestSink");
  EXPECT_FALSE(sink.Get("throw", text)) << "it can only be set";
}

TEST(MediaParameters, AreReadAsTheTypeThatTheyHaveAndIntegersAsWideOnes) {
  const auto media = nimbo::test::VideoMedia();
  const auto any = [](const std::type_info*) { return true; };
  unsigned char* bytes = nullptr;
  int number = 0;
  unsigned int size = 0;
  double real = 7;
  ASSERT_TRUE(media->Get("PPS", bytes) && media->GetIntT("ipps", size));
  EXPECT_EQ(nimbo::test::Bytes(bytes, bytes + size), nimbo::test::Pps);
  EXPECT_TRUE(media->Get("w", number) && media->GetIntT("w", size));
  EXPECT_EQ(number, 1280);
  EXPECT_EQ(size, 1280u);
  EXPECT_FALSE(media->Get("isps", number)) << "it is unsigned";
  EXPECT_FALSE(media->GetIntT("sps", number));
  EXPECT_FALSE(media->GetWithType("sps", &number, typeid(int), any));
  EXPECT_FALSE(media->GetWithType("w", &real, typeid(double), any));
  EXPECT_EQ(real, 7);
  std::string text;
  EXPECT_TRUE(media->GetStr("pps", text));
  EXPECT_EQ(text, "68ce3c80");
  EXPECT_TRUE(media->GetStr("h", text));
  EXPECT_EQ(text, "720");
  EXPECT_FALSE(media->GetStr("none", text) || media->Set("w", "1"));
  const Held<stream::Media> odd(new stream::Media("none"));
  odd->SetTyped("flag", &typeid(bool), 1);
  long long wide = 7;
  EXPECT_FALSE(odd->GetWithType("flag", &wide, typeid(long long), any)) << "a truth is no number";
}

TEST(FactoryLayoutAdd, KeepsEachPairOnceInOrder) {
  const std::size_t before = FactoryLayouts().size();
  for (const char* layout : {"b", "a", "b"}) {
    EXPECT_TRUE(Factory::Globle().LayoutAdd("common", layout));
  }
  EXPECT_FALSE(Factory::Globle().LayoutAdd("common", nullptr));
  ASSERT_EQ(FactoryLayouts().size(), before + 2);
  EXPECT_EQ(FactoryLayouts()[before].second, "b");
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
