#include <algorithm>

#include "base/reflect/Class.h"
#include "base/reflect/TClass.h"
#include "host/base/CommandTable.h"
#include "host/base/Framework.h"
#include "host/base/PluginLoader.h"
#include "host/stream/Factory.h"
#include "nimbo/stream/factory.h"
#include "tests/plugin/rtmp/PluginFixture.h"

namespace nimbo::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using OptionHook = void (*)(const char*);
using CommandFunction = int (*)(const char*, const char*, const char*);

TEST(Module, IdentityAndLoadTimeRegistrations) {
  EXPECT_STREQ(*static_cast<const char**>(PluginSymbol("__MODULE_string")),
               "pluginrtmp@version:1.0.1.*.6872");
  EXPECT_GE(*static_cast<int*>(PluginSymbol("__cb_register_PluginRtmp")), 0);
  EXPECT_GE(*static_cast<int*>(PluginSymbol("__register_cmd_rtmp")), 0);
  EXPECT_THAT(base::PluginLoader::Global().Names(), testing::Contains("PluginRtmp"));
  EXPECT_THAT(base::CommandTable::Global().Names(), testing::Contains("rtmp"));
}

TEST(Module, ClassesTellTheirPropertiesAndOrigin) {
  LoadPlugin();
  const struct {
    const char *name, *properties;
    unsigned version;
    const char *vendor, *author, *description;
  } cases[] = {
      {"RtmpStreamPusher-rtmp-pusher", "addr4 cfg4 rtmp_sts1 rtmp_quality4 ", 0, nullptr, nullptr,
       nullptr},
      {"EleRtmpClient-ele-rtmp-client-muxer-sink", "url4 vcopy1 acopy1 rtmp_sts1 rtmp_quality4 ",
       0x10001, "Velmora", "plugin.author", "EleRtmpClient"},
      {"pipeline-rtmp-client-muxer-sink", "ring4 ", 0x10001, "Velmora", "plugin.author",
       "pipeline-rtmp-client"},
  };
  EXPECT_THAT(stream::FactoryLayouts(),
              ElementsAre(std::pair("layout-protocol-parser-common",
                                    "layout-protocol-parser-rtmp-client")));
  for (const auto& known : cases) {
    const base::IClass* cl = base::IClass::Find(known.name, true);
    ASSERT_NE(cl, nullptr) << known.name;
    std::string properties;
    for (const base::IProperty* property : Framework::Properties(*cl)) {
      properties += property->Name() + std::to_string(Framework::Info(*property).size) + " ";
      EXPECT_EQ(Framework::Info(*property).description, nullptr);
    }
    EXPECT_EQ(properties, known.properties);
    const ClassInfo info = Framework::Info(*cl);
    EXPECT_STREQ(info.module, "pluginrtmp");
    EXPECT_EQ(info.version, known.version);
    EXPECT_STREQ(info.vendor, known.vendor);
    EXPECT_STREQ(info.author, known.author);
    EXPECT_STREQ(info.description, known.description);
  }
}

TEST(Module, SecondRegistrationIsToldForEachClass) {
  const auto registerAgain = PluginFunction<void (*)(const char*)>("RegisterPluginRtmp");
  const base::IClass* before = base::IClass::Find("RtmpStreamPusher-rtmp-pusher", true);
  ConsoleCapture console;
  registerAgain(nullptr);
  EXPECT_THAT(console.Failures(),
              ElementsAre("Register: cl,class existed:RtmpStreamPusher-rtmp-pusher",
                          "Register: cl,class existed:EleRtmpClient-ele-rtmp-client-muxer-sink",
                          "Register: cl,class existed:pipeline-rtmp-client-muxer-sink"));
  EXPECT_EQ(base::IClass::Find("RtmpStreamPusher-rtmp-pusher", true), before);
}

const char* received = nullptr;
void Hook(const char* options) { received = options; }

TEST(Module, OptionHookIsKeptAndGetsTheSamePointer) {
  const auto hook = PluginFunction<OptionHook (*)(OptionHook)>("GetCbRegisterPluginRtmp");
  const auto options = PluginFunction<void (*)(const char*)>("RegisterOptPluginRtmp");
  const char text[] = "options";
  EXPECT_EQ(hook(nullptr), nullptr);
  options(text);
  EXPECT_EQ(hook(Hook), &Hook);
  EXPECT_EQ(hook(nullptr), &Hook);
  EXPECT_EQ(received, nullptr);
  options(text);
  EXPECT_EQ(received, text);
}

/// Stands in front of the plug-in's pusher, because a class of exactly the name asked for is found
/// first. What it is set to is kept; what it refuses is the test's choice.
class FakePusher : public stream::Service {
 public:
  static inline std::string refused;
  static inline std::string addr;
  static inline std::string cfg;

  bool SetAddr(const char* text) {
    addr = text;
    return refused != "addr";
  }
  bool SetCfg(const char* text) {
    cfg = text;
    return refused != "cfg";
  }
  bool Open() override { return refused != "status"; }

  static void Register() {
    [[maybe_unused]] static const auto* const once = base::TClass<>::Register<FakePusher>(
        "RtmpStreamPusher", {new base::TProperty("addr", &FakePusher::SetAddr, nullptr),
                             new base::TProperty("cfg", &FakePusher::SetCfg, nullptr)});
  }
};

class Commands : public PluginTest {
 protected:
  Commands() {
    FakePusher::Register();
    FakePusher::refused.clear();
  }
  ~Commands() override {
    for (const char* name : {"rtmp-pusher-service", "rtmp-server"}) Remove(name);
  }
  static void Remove(const char* name) {
    auto* service = stream::Factory::Globle().Find<stream::Service>(name, true);
    if (service) service->Release();
  }
  int Run(const char* function, const char* p0) {
    return PluginFunction<CommandFunction>(function)(p0, "ignored", "ignored");
  }
};

constexpr char DefaultSelection[] = "h264-0,W=1920,H=1080,fr=30,br=6000000,gopTypeStr=ibbp,gop=30";

std::string CaptureText(const std::string& selection) {
  return "type=pipeline,serialize={shm-source:connect={pv:" + selection +
         ",plenckeys=vfrc-fifo}+fifofilter:max=60+RingSink}+type=pipeline,serialize={shm-source:"
         "connect={pv:aac-1,plenckeys=fifo}+fifofilter:max=128+RingSink}";
}

TEST_F(Commands, PusherGetsTheBuiltInAddressAndTheSelectedEncoder) {
  for (const char* selection : {static_cast<const char*>(nullptr), "h264-1,W=640"}) {
    const std::string cfg = CaptureText(selection ? selection : DefaultSelection);
    EXPECT_EQ(Run("fwRtmpPusher", selection), 1);
    EXPECT_NE(console.Text().find("====buf:\n" + cfg + "\n====\n"), std::string::npos);
    EXPECT_EQ(FakePusher::addr, RTMP_DEFAULT_URL);
    EXPECT_EQ(FakePusher::cfg, cfg);
    EXPECT_THAT(Told(), IsEmpty());
    Remove("rtmp-pusher-service");
  }
}

TEST_F(Commands, PusherCommandReportsTheStepThatFailed) {
  const auto* const command = base::CommandTable::Global().Find("rtmp");
  ASSERT_NE(command, nullptr);
  const struct {
    const char* refused;
    const char* line;
  } cases[] = {
      {"addr", "89/fwRtmpPusher: !server->Set(\"addr\",default_url)"},
      {"cfg", "90/fwRtmpPusher: !server->Set(\"cfg\",buf)"},
      {"status", "91/fwRtmpPusher: !server->Set(\"status\",\"play\")"},
  };
  for (const auto& known : cases) {
    FakePusher::refused = known.refused;
    base::AttrSet none;
    EXPECT_FALSE((*command)(none));
    EXPECT_THAT(Told(), ElementsAre(known.line));
    // What was made is left, so a second call finds the name in use.
    EXPECT_FALSE((*command)(none));
    EXPECT_THAT(Told(), ElementsAre("88/fwRtmpPusher: !server"));
    Remove("rtmp-pusher-service");
  }
  FakePusher::refused.clear();
  base::AttrSet selection("p0={h264-2,W=320},p1=x");
  EXPECT_TRUE((*command)(selection));
  EXPECT_EQ(FakePusher::cfg, CaptureText("h264-2,W=320"));
}

TEST_F(Commands, SelectionIsTakenUpToTheBufferAndRefusedBeyond) {
  const std::size_t room = 2047 - CaptureText("").size();
  EXPECT_EQ(Run("fwRtmpPusher", std::string(room, 'x').c_str()), 1);
  EXPECT_EQ(FakePusher::cfg.size(), 2047u);
  Remove("rtmp-pusher-service");
  Told();
  EXPECT_EQ(Run("fwRtmpPusher", std::string(room + 1, 'x').c_str()), 0);
  EXPECT_EQ(Told().size(), 1u);
  EXPECT_EQ(stream::Factory::Globle().Find<stream::Service>("rtmp-pusher-service", true), nullptr);
}

TEST_F(Commands, ServiceCommandFailsOnlyWithoutAService) {
  EXPECT_EQ(Run("fwRtmpService", "no-such-class"), -1);
  EXPECT_THAT(Told(), ElementsAre("104/fwRtmpService: !server"));
  FakePusher::refused = "status";
  EXPECT_EQ(Run("fwRtmpService", "RtmpStreamPusher"), 0);
  EXPECT_THAT(Told(), ElementsAre("105/fwRtmpService: !server->Set(\"status\",\"play\")"));
  Remove("rtmp-server");
  FakePusher::refused.clear();
  EXPECT_EQ(Run("fwRtmpService", "RtmpStreamPusher"), 0);
  EXPECT_THAT(Told(), IsEmpty());
}

}  // namespace
}  // namespace nimbo::test
