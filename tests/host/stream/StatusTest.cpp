#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "tests/host/stream/Probes.h"
#include "tests/support/ConsoleCapture.h"

namespace nimbo::stream::test {
namespace {

using testing::ElementsAre;

TEST(Status, EveryOpenIsPairedWithOneClose) {
  TestService service;
  service.Name("s");
  service.SetFail("Open");
  Journal::Global().Take();
  EXPECT_FALSE(service.StatusSet("play"));
  EXPECT_TRUE(service.StatusIsNull());
  EXPECT_THAT(Journal::Global().Take(), ElementsAre("s.Open"));
  EXPECT_FALSE(service.StatusSet("play")) << "the failed one is closed first";
  EXPECT_THAT(Journal::Global().Take(), ElementsAre("s.Close", "s.Open"));
  service.SetFail("");
  EXPECT_TRUE(service.StatusSet("ready"));
  EXPECT_THAT(Journal::Global().Take(), ElementsAre("s.Close", "s.Open"));
  service.StatusSet("null");
  service.SetFail("Open");
  service.StatusSet("ready");
  Journal::Global().Take();
  EXPECT_TRUE(service.StatusSet("null")) << "going to null closes the failed one too";
  EXPECT_TRUE(service.StatusSet("null"));
  EXPECT_THAT(Journal::Global().Take(), ElementsAre("s.Close"));
}

TEST(StatusDeathTest, AChangeOnAnotherThreadEndsDebugBuilds) {
  TestService service;
  const auto elsewhere = [&service] {
    std::thread([&service] { service.StatusChange(IStatus::ready); }).join();
  };
  EXPECT_DEBUG_DEATH(elsewhere(), "ControlThread::Here");
}

/// Writes down the hooks, too. Its start sets the status before it can fail, as the base's does.
class HookedService : public TestService {
 public:
  HookedService() { Name("s"); }
  bool beforeStatusUp(Status) override { return Step("beforeStatusUp"); }
  bool Start() override { return IStatus::Start() && TestService::Start(); }
  bool afterStatusUp(Status) override { return Step("afterStatusUp"); }
  bool beforeStatusDown(Status) override { return Step("beforeStatusDown"); }
};

TEST(Status, HooksStandAroundEachStepAndTheOneInFrontCanRefuseIt) {
  auto* service = new HookedService;
  const struct {
    const char *fail, *to;
    bool done;
    std::vector<std::string> journal;
  } moves[] = {
      {"afterStatusUp", "ready", true, {"s.beforeStatusUp", "s.Open", "s.afterStatusUp"}},
      {"beforeStatusUp", "play", false, {"s.beforeStatusUp"}},
      {"Start", "play", false, {"s.beforeStatusUp", "s.Start"}},
      {"beforeStatusDown", "null", false, {"s.beforeStatusDown"}},
  };
  for (const auto& move : moves) {
    service->SetFail(move.fail);
    Journal::Global().Take();
    EXPECT_EQ(service->StatusSet(move.to), move.done) << move.fail;
    EXPECT_EQ(Journal::Global().Take(), move.journal);
    EXPECT_EQ(service->StatusGet(), IStatus::ready);
  }
  service->Release();
  EXPECT_THAT(Journal::Global().Take(), ElementsAre("s.beforeStatusDown", "s.Close"))
      << "the end of its life is not refused";
}

TEST(Status, ReleaseClosesWhatIsOpenAFailedOpenIncluded) {
  RegisterProbes();
  for (const char* fail : {"", "Open", "Start", "Close"}) {
    Service* service = Service::New("test-service", "s", nullptr);
    ASSERT_TRUE(service);
    service->Set("fail", fail);
    service->StatusSet("play");
    Journal::Global().Take();
    service->Release();
    const auto journal = Journal::Global().Take();
    EXPECT_EQ(std::count(journal.begin(), journal.end(), "s.Close"), 1) << fail;
    EXPECT_FALSE(FindObject("s"));
  }
}

struct FailedStep {
  const char* step;
  IStatus::Status reached;  ///< on the way to play and back to null
  bool down;
};

class StatusFailure : public testing::TestWithParam<FailedStep> {};

TEST_P(StatusFailure, IsAFalseResultAndAnExceptionOneLineMore) {
  for (const bool raises : {false, true}) {
    TestService service;
    service.Name("failing");
    (raises ? service.SetThrow(GetParam().step) : service.SetFail(GetParam().step));
    nimbo::test::ConsoleCapture console;
    EXPECT_EQ(service.StatusSet("play"), GetParam().down);
    if (GetParam().down) {
      EXPECT_FALSE(service.StatusSet("null"));
    }
    EXPECT_EQ(service.StatusGet(), GetParam().reached);
    EXPECT_EQ(console.Lines().size(), raises ? 1u : 0u);
    EXPECT_EQ(console.Count(std::string(GetParam().step) + " of failing"), raises ? 1u : 0u);
    service.SetFail("");
    service.SetThrow("");
    EXPECT_TRUE(service.StatusSet("null"));
  }
}

INSTANTIATE_TEST_SUITE_P(Steps, StatusFailure,
                         testing::Values(FailedStep{"Open", IStatus::null, false},
                                         FailedStep{"Start", IStatus::ready, false},
                                         FailedStep{"Stop", IStatus::null, true},
                                         FailedStep{"Close", IStatus::null, true}),
                         [](const auto& test) { return test.param.step; });

class StatusOrder : public testing::Test {
 protected:
  ApplicationHolder application =
      NewApplication("app",
                     "test-source+test-filter+test-sink+type=pipeline,serialize={test-source"
                     ":name=late+test-sink:name=end}");
};

TEST_F(StatusOrder, GoesUpSinksFirstAndStopsAllBeforeAnythingIsJoined) {
  Journal::Global().Take();
  ASSERT_TRUE(application->StatusSet("play"));
  EXPECT_THAT(Journal::Global().Take(),
              ElementsAre("end.Open", "late.Open", "TestSink.Open", "TestFilter.Open",
                          "TestSource.Open", "end.Start", "late.Start", "TestSink.Start",
                          "TestFilter.Start", "TestSource.Start"));
  ASSERT_TRUE(application->StatusSet("null"));
  EXPECT_THAT(Journal::Global().Take(),
              ElementsAre("end.Stop", "late.Stop", "TestSink.Stop", "TestFilter.Stop",
                          "TestSource.Stop", "end.Joined", "late.Joined", "TestSink.Joined",
                          "TestFilter.Joined", "TestSource.Joined", "end.Close", "late.Close",
                          "TestSink.Close", "TestFilter.Close", "TestSource.Close"));
}

TEST_F(StatusOrder, ChildrenOfAFailedContainerAreLoweredInReverse) {
  ElementAt<TestSource>("app/TestSource").SetFail("Start");
  Journal::Global().Take();
  EXPECT_FALSE(application->StatusSet("play"));
  EXPECT_EQ(application->StatusGet(), IStatus::ready);
  auto journal = Journal::Global().Take();
  journal.erase(journal.begin(), journal.begin() + 5);  // all five Opens
  EXPECT_THAT(journal, ElementsAre("end.Start", "late.Start", "TestSink.Start", "TestFilter.Start",
                                   "TestSource.Start", "TestFilter.Stop", "TestSink.Stop",
                                   "TestFilter.Joined", "TestSink.Joined", "end.Stop", "late.Stop",
                                   "end.Joined", "late.Joined"));
  for (const LiveObject& object : ListObjects()) EXPECT_EQ(object.status, "ready") << object.path;
}

class StatusContainer : public testing::Test {
 protected:
  StatusContainer() {
    RegisterProbes();
    pipeline.Name("p");
    for (TestSink** child : {&one, &two}) {
      *child = dynamic_cast<TestSink*>(
          IElement::New("test-sink", child == &one ? "one" : "two", &pipeline, nullptr));
    }
    Journal::Global().Take();
  }
  TestPipeline pipeline;
  TestSink *one, *two;
};

TEST_F(StatusContainer, ThatFailsItselfLowersItsChildren) {
  pipeline.SetFail("Open");
  EXPECT_FALSE(pipeline.StatusSet("ready"));
  EXPECT_THAT(Journal::Global().Take(),
              ElementsAre("one.Open", "two.Open", "p.Open", "one.Close", "two.Close"));
  pipeline.SetFail("Start");
  EXPECT_FALSE(pipeline.StatusSet("play"));
  EXPECT_THAT(Journal::Global().Take(),
              ElementsAre("p.Close", "one.Open", "two.Open", "p.Open", "one.Start", "two.Start",
                          "p.Start", "one.Stop", "two.Stop", "one.Joined", "two.Joined"));
  EXPECT_EQ(one->StatusGet(), IStatus::ready);
}

TEST_F(StatusContainer, IsNotClosedWhenItWasNotOpened) {
  two->SetFail("Open");
  EXPECT_FALSE(pipeline.StatusSet("ready"));
  EXPECT_TRUE(pipeline.StatusIsNull());
  EXPECT_TRUE(pipeline.StatusSet("null"));
  EXPECT_THAT(Journal::Global().Take(),
              ElementsAre("one.Open", "two.Open", "one.Close", "two.Close"));
}

TEST_F(StatusContainer, LeavesAChildThatIsAheadWhereItIsAndTakesItDownWithTheOthers) {
  EXPECT_TRUE(one->StatusSet("play"));
  EXPECT_TRUE(pipeline.StatusSet("ready"));
  EXPECT_TRUE(one->StatusIsPlay());
  EXPECT_TRUE(pipeline.StatusSet("null"));
  EXPECT_THAT(Journal::Global().Take(),
              ElementsAre("one.Open", "one.Start", "two.Open", "p.Open", "one.Stop", "one.Joined",
                          "one.Close", "two.Close", "p.Close"));
}

}  // namespace
}  // namespace nimbo::stream::test
