#include "desktop/CaptureService.hpp"

#include "base/FileSystem.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <new>
#include <stdexcept>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const RunningApplication editor{"org.editor", 100, "Editor"};
const RunningApplication host{"org.host", 200, "Host"};

// One machine whose parts note, in one list, what was asked of them.
class ScriptedMachine final : public DesktopContent,
                              public StillCapturer,
                              public PngWriter,
                              public ApplicationActivator {
 public:
  ShareableContent scripted;
  std::vector<std::string> calls;
  std::optional<ContentFilter> filter;
  std::optional<StillConfiguration> configuration;
  PictureView picture{nullptr, 640, 480, 2560, PixelFormat::bgrx8};
  double scale = 1;
  std::function<void()> capturing = [] {};
  bool hasAccess = true;
  std::function<void()> writing = [] {};
  std::string writtenPath;
  std::vector<std::optional<bool>> activeAnswers = {true}; // the last one stays

  bool hasScreenCaptureAccess() override { return hasAccess; }
  ShareableContent content() override { return scripted; }
  double pointPixelScale(const ContentFilter&) override { return scale; }
  Picture captureImage(const ContentFilter& what, const StillConfiguration& how) override {
    calls.emplace_back("capture");
    filter = what;
    configuration = how;
    capturing();
    return {picture, nullptr};
  }
  void write(const PictureView&, const std::string& path) override {
    calls.emplace_back("write");
    writing();
    writtenPath = path;
  }
  std::optional<bool> isActive(std::int32_t) override {
    const auto answer = activeAnswers.front();
    if (activeAnswers.size() > 1)
      activeAnswers.erase(activeAnswers.begin());
    return answer;
  }
  void activate(std::int32_t processID) override { calls.push_back("activate " + std::to_string(processID)); }

  CaptureService service() {
    return CaptureService({*this, *this, *this, *this,
                           [this](std::chrono::milliseconds time) {
                             calls.push_back("sleep " + std::to_string(time.count()));
                           }},
                          host.processID);
  }
};

class CaptureServiceTest : public testing::Test {
 protected:
  CaptureServiceTest() {
    machine.scripted.displays = {
        {.displayID = 1, .frame = {0, 0, 1000, 800}, .pointPixelScale = 2, .isMain = true}};
    machine.scripted.windows = {{.windowID = 9,
                                 .frame = {10, 20, 300, 200},
                                 .title = "Title",
                                 .windowLayer = 0,
                                 .isOnScreen = true,
                                 .owningApplication = editor}};
    machine.scripted.applications = {editor, host};
  }

  static CaptureRequestDTO request(CaptureKind kind) {
    return {.kind = kind,
            .displayID = "1",
            .windowID = "9",
            .rectPoints = {10, 20, 300, 200},
            .outputPath = "/tmp/shot.png",
            .excludeParentApplication = std::nullopt};
  }

  template<class Call> NativeServiceError failureOf(Call call) {
    try {
      call();
    } catch (const NativeServiceError& error) {
      return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
  }
  NativeServiceError failure(const CaptureRequestDTO& wanted) {
    return failureOf([&] { (void)machine.service().capture(wanted); });
  }

  ScriptedMachine machine;
};

TEST_F(CaptureServiceTest, ARegionIsTakenFromItsDisplayAndOpaque) {
  const CapturedImagePayload payload = machine.service().capture(request(CaptureKind::region));
  EXPECT_EQ(payload, (CapturedImagePayload{"/tmp/shot.png", 640, 480, 1}));
  EXPECT_EQ(machine.filter, (ContentFilter{ContentFilter::Kind::display, 1, 0, {}}));
  EXPECT_EQ(machine.configuration->sourceRect, (RectDTO{10, 20, 300, 200}));
  EXPECT_EQ(machine.configuration->width, 600);
  EXPECT_EQ(machine.configuration->height, 400);
  EXPECT_TRUE(machine.configuration->shouldBeOpaque);
  EXPECT_FALSE(machine.configuration->showsCursor);
  EXPECT_FALSE(machine.configuration->ignoreShadowsSingleWindow);
  EXPECT_FALSE(machine.configuration->ignoreGlobalClipSingleWindow);
  EXPECT_EQ(machine.writtenPath, "/tmp/shot.png");
  EXPECT_THAT(machine.calls, ElementsAre("capture", "write"));
}

TEST_F(CaptureServiceTest, ADisplayIgnoresTheWindowAndTheRectangle) {
  CaptureRequestDTO wanted = request(CaptureKind::display);
  wanted.windowID = "77";
  (void)machine.service().capture(wanted);
  EXPECT_EQ(machine.filter->kind, ContentFilter::Kind::display);
  EXPECT_EQ(machine.configuration->sourceRect, (RectDTO{0, 0, 1000, 800}));
  EXPECT_EQ(machine.configuration->width, 2000);
  EXPECT_EQ(machine.configuration->height, 1600);
}

TEST_F(CaptureServiceTest, AWindowIsTakenByItselfWithItsAlpha) {
  machine.scale = 2;
  const CapturedImagePayload payload = machine.service().capture(request(CaptureKind::window));
  EXPECT_EQ(payload.scaleFactor, 2);
  EXPECT_EQ(machine.filter, (ContentFilter{ContentFilter::Kind::desktopIndependentWindow, 1, 9, {}}));
  EXPECT_EQ(machine.configuration->sourceRect, std::nullopt);
  EXPECT_EQ(machine.configuration->width, 600);
  EXPECT_EQ(machine.configuration->height, 400);
  EXPECT_FALSE(machine.configuration->shouldBeOpaque);
  EXPECT_FALSE(machine.configuration->showsCursor);
  EXPECT_TRUE(machine.configuration->ignoreShadowsSingleWindow);
  EXPECT_TRUE(machine.configuration->ignoreGlobalClipSingleWindow);
}

TEST_F(CaptureServiceTest, LeavesTheParentOutOnlyWhenAsked) {
  CaptureRequestDTO wanted = request(CaptureKind::display);
  (void)machine.service().capture(wanted);
  EXPECT_THAT(machine.filter->excludedApplications, IsEmpty());
  wanted.excludeParentApplication = false;
  (void)machine.service().capture(wanted);
  EXPECT_THAT(machine.filter->excludedApplications, IsEmpty());
  wanted.excludeParentApplication = true;
  (void)machine.service().capture(wanted);
  EXPECT_THAT(machine.filter->excludedApplications, ElementsAre(host));
  machine.scripted.applications = {editor};
  (void)machine.service().capture(wanted);
  EXPECT_THAT(machine.filter->excludedApplications, IsEmpty());
}

TEST_F(CaptureServiceTest, AnActiveWindowIsGivenOnePauseAndNotActivated) {
  (void)machine.service().capture(request(CaptureKind::window));
  EXPECT_THAT(machine.calls, ElementsAre("sleep 36", "capture", "write"));
}

TEST_F(CaptureServiceTest, AnInactiveWindowIsBroughtForwardAndWaitedFor) {
  machine.activeAnswers = {false, false, false, true};
  (void)machine.service().capture(request(CaptureKind::window));
  EXPECT_THAT(machine.calls,
              ElementsAre("activate 100", "sleep 12", "sleep 12", "sleep 36", "capture", "write"));
}

TEST_F(CaptureServiceTest, AWindowThatNeverComesForwardIsTakenAllTheSame) {
  machine.activeAnswers = {false};
  (void)machine.service().capture(request(CaptureKind::window));
  EXPECT_THAT(machine.calls,
              ElementsAre("activate 100", "sleep 12", "sleep 12", "sleep 12", "sleep 12", "sleep 12",
                          "sleep 12", "sleep 12", "sleep 12", "sleep 36", "capture", "write"));
}

TEST_F(CaptureServiceTest, AnApplicationThatEndsMeanwhileCountsAsNotActive) {
  machine.activeAnswers = {false, std::nullopt, true};
  (void)machine.service().capture(request(CaptureKind::window));
  EXPECT_THAT(machine.calls, ElementsAre("activate 100", "sleep 12", "sleep 36", "capture", "write"));
}

TEST_F(CaptureServiceTest, WithoutARunningApplicationNothingIsActivated) {
  machine.activeAnswers = {std::nullopt};
  (void)machine.service().capture(request(CaptureKind::window));
  EXPECT_THAT(machine.calls, ElementsAre("capture", "write"));
}

TEST_F(CaptureServiceTest, AWindowWithoutAnOwnerIsTakenAtOnce) {
  ContentSnapshot snapshot = ContentService(machine).load();
  snapshot.windowsByID.at("9").owningApplication.reset();
  (void)machine.service().capture(request(CaptureKind::window), snapshot);
  EXPECT_THAT(machine.calls, ElementsAre("capture", "write"));
}

TEST_F(CaptureServiceTest, AProcessBelowOneIsNotActivated) {
  machine.scripted.windows[0].owningApplication->processID = 0;
  (void)machine.service().capture(request(CaptureKind::window));
  EXPECT_THAT(machine.calls, ElementsAre("capture", "write"));
}

TEST_F(CaptureServiceTest, ThePayloadTellsTheSizeOfTheImageItself) {
  machine.picture.width = 601;
  machine.picture.height = 399;
  const CapturedImagePayload payload = machine.service().capture(request(CaptureKind::window));
  EXPECT_EQ(payload.widthPixels, 601);
  EXPECT_EQ(payload.heightPixels, 399);
}

TEST_F(CaptureServiceTest, ABadRequestFailsWithTheRequestsOwnText) {
  const struct {
    const char* what;
    void (*change)(CaptureRequestDTO&);
    NativeServiceError error;
  } cases[] = {
      {"geometry",
       [](CaptureRequestDTO& r) { r.rectPoints.width = 0; },
       {NativeErrorCode::invalidRequest, "Capture geometry must contain finite, positive dimensions."}},
      {"path",
       [](CaptureRequestDTO& r) { r.outputPath = "shot.png"; },
       {NativeErrorCode::invalidRequest, "The native capture output must be an absolute PNG path."}},
      {"display",
       [](CaptureRequestDTO& r) { r.displayID = "2"; },
       {NativeErrorCode::displayNotFound, "The selected display is no longer available."}},
      {"no window",
       [](CaptureRequestDTO& r) { r.windowID.reset(); },
       {NativeErrorCode::invalidRequest, "A window capture requires a window identifier."}},
      {"another window",
       [](CaptureRequestDTO& r) { r.windowID = "10"; },
       {NativeErrorCode::windowNotFound, "The selected window moved or resized. Select it again."}},
      {"moved window",
       [](CaptureRequestDTO& r) { r.rectPoints.x += 0.6; },
       {NativeErrorCode::windowNotFound, "The selected window moved or resized. Select it again."}},
      {"region",
       [](CaptureRequestDTO& r) {
         r.kind = CaptureKind::region;
         r.rectPoints.width = 5000;
       },
       {NativeErrorCode::invalidRequest, "The selected region must stay within its display."}},
  };
  for (const auto& each : cases) {
    CaptureRequestDTO wanted = request(CaptureKind::window);
    each.change(wanted);
    EXPECT_EQ(failure(wanted), each.error) << each.what;
  }
  EXPECT_THAT(machine.calls, IsEmpty());
}

TEST_F(CaptureServiceTest, AFailureOfTheSnapshotPassesThrough) {
  machine.hasAccess = false;
  EXPECT_EQ(failure(request(CaptureKind::display)).code, NativeErrorCode::permissionDenied);
}

TEST_F(CaptureServiceTest, WhatHasGoneFromTheSnapshotIsNotFound) {
  ContentSnapshot snapshot = ContentService(machine).load();
  snapshot.windowsByID.clear();
  EXPECT_EQ(
      failureOf([&] { (void)machine.service().capture(request(CaptureKind::window), snapshot); }),
      (NativeServiceError{NativeErrorCode::windowNotFound, "The selected window is no longer available."}));
  snapshot.displaysByID.clear();
  EXPECT_EQ(
      failureOf([&] { (void)machine.service().capture(request(CaptureKind::display), snapshot); }),
      (NativeServiceError{NativeErrorCode::displayNotFound, "The selected display is no longer available."}));
}

const NativeServiceError captureFailed{NativeErrorCode::captureFailed,
                                       "The screenshot could not be captured. Try the selection again."};

TEST_F(CaptureServiceTest, ACaptureThatFailsWritesNothing) {
  machine.capturing = [] { throw CaptureFailure(); };
  EXPECT_EQ(failure(request(CaptureKind::display)), captureFailed);
  EXPECT_THAT(machine.calls, ElementsAre("capture"));
}

TEST_F(CaptureServiceTest, AnEmptyImageIsProtectedContent) {
  for (const auto& [width, height] : {std::pair{0, 480}, std::pair{640, 0}}) {
    machine.picture.width = width;
    machine.picture.height = height;
    EXPECT_EQ(
        failure(request(CaptureKind::display)),
        (NativeServiceError{NativeErrorCode::protectedContent, "The selected content cannot be captured."}));
  }
  EXPECT_EQ(machine.writtenPath, "");
}

TEST_F(CaptureServiceTest, AFileThatCannotBeWrittenIsAFailedOutput) {
  const std::function<void()> failures[] = {[] { throw FileFailure(FileOperation::open, ENOENT); },
                                            [] { throw std::bad_alloc(); }}; // too large a picture
  for (const auto& each : failures) {
    machine.writing = each;
    EXPECT_EQ(failure(request(CaptureKind::display)),
              (NativeServiceError{NativeErrorCode::outputFailed,
                                  "The screenshot could not be written to its temporary output."}));
  }
}

TEST_F(CaptureServiceTest, AnythingElseIsAFailedCapture) {
  machine.capturing = [] { throw std::runtime_error("unexpected"); };
  EXPECT_EQ(failure(request(CaptureKind::display)), captureFailed);
}

} // namespace
} // namespace tessarin
