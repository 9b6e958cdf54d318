#include "support/CameraCompositeRig.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class CameraCompositeFailureTest : public CameraCompositeTest {};

struct FailingStage {
  const char* stage;
  const char* status;
  std::function<void(ScriptedMediaFile&)> script;
  bool hasNumericTime = true;
};

class CameraCompositeFailureStageTest : public CameraCompositeFailureTest,
                                        public testing::WithParamInterface<FailingStage> {};

TEST_P(CameraCompositeFailureStageTest, IsToldOnceWithItsStageAndEndsTheWriting) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) { GetParam().script(script); };
  makeAttached();
  const MediaTime time = GetParam().hasNumericTime ? clock.now() : MediaTime();
  streams.streams[0]->deliver(1, time);
  streams.streams[0]->deliver(2, time);

  EXPECT_THAT(lines, ElementsAre(std::string("tessarin-native recording-writer-failed stage=") +
                                 GetParam().stage + " status=" + GetParam().status +
                                 " domain=none code=0 underlyingDomain=none underlyingCode=0"));
  EXPECT_EQ(failuresTold, 1);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  EXPECT_EQ(file().appends(), "");
  EXPECT_EQ(errorOf([&] { recorder->waitUntilStarted(5s); }), recordingFailed);
  recorder->detach(*stream);
  EXPECT_EQ(errorOf([&] { recorder->finish(); }), recordingFailed);
  EXPECT_THAT(file().calls, testing::Not(testing::Contains("cancelWriting"))) << "that is for the owner";
}

INSTANTIATE_TEST_SUITE_P(
    Stages, CameraCompositeFailureStageTest,
    testing::Values(
        FailingStage{"screen-timestamp", "0", [](ScriptedMediaFile&) {}, false},
        FailingStage{"start-writing", "3", [](ScriptedMediaFile& file) { file.startsWriting = false; }},
        FailingStage{"screen-snapshot", "1", [](ScriptedMediaFile& file) { file.renders = false; }},
        FailingStage{"append-screen", "3", [](ScriptedMediaFile& file) { file.refusedAppend = 0; }}));

TEST_F(CameraCompositeFailureTest, AFailureLineNamesWhereTheWritersErrorCameFrom) {
  media.prepare = [](ScriptedMediaFile& script, std::size_t) {
    script.refusedAppend = 0;
    script.error = {.domain = "libav", .code = -22, .underlyingDomain = "POSIX", .underlyingCode = 28};
  };
  makeAttached();
  deliver(1, 0s);
  EXPECT_THAT(lines, ElementsAre("tessarin-native recording-writer-failed stage=append-screen status=3 "
                                 "domain=libav code=-22 underlyingDomain=POSIX underlyingCode=28"));
}

TEST_F(CameraCompositeFailureTest, AFailureStopsHeartbeatsAndObservations) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().renders = false;
  deliver(3, 200ms);
  EXPECT_EQ(scheduler.timerCount(), 0u);
  EXPECT_EQ(file().observerCount(), 0u);
  file().setReady(true);
  advanceTo(5s);
  EXPECT_EQ(file().appends(), "1@0/10");
}

TEST_F(CameraCompositeFailureTest, APictureThatWaitedMayFailToo) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().refusedAppend = 1;
  file().setReady(true);
  scheduler.runPending();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen")));
}

TEST_F(CameraCompositeFailureTest, AHeartbeatAndAFillerMayFailToo) {
  makeAttached();
  deliver(1, 0ms);
  file().refusedAppend = 1;
  advanceTo(200ms);
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen")));
  destroy();

  media.files.clear();
  lines.clear();
  clock.set(epoch);
  makeAttached();
  deliver(1, 0ms);
  file().refusedAppend = 1;
  deliver(2, 200ms);
  EXPECT_EQ(file().appends(), "1@0/10");
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen")));
}

TEST_F(CameraCompositeFailureTest, AFileThatFailsMeanwhileIsNoticedAtTheNextPicture) {
  makeAttached();
  deliver(1, 0ms);
  file().failMeanwhile();
  deliver(2, 100ms);
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen status=3")));
  EXPECT_EQ(failuresTold, 1);
}

TEST_F(CameraCompositeFailureTest, AFileThatFailsMeanwhileIsNoticedByAPictureThatWaits) {
  makeAttached();
  deliver(1, 0ms);
  file().setReady(false);
  deliver(2, 100ms);
  file().failMeanwhile();
  scheduler.runPending();
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("stage=append-screen status=3")));
  EXPECT_EQ(failuresTold, 1);
}

} // namespace
} // namespace tessarin
