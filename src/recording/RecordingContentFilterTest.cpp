#include "recording/RecordingContentFilter.hpp"

#include "support/RecordingRequests.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace tessarin::testing;

const RunningApplication hidden{"hidden", 99, "Hidden"};

ContentSnapshot sampleSnapshot() {
  ContentSnapshot snapshot;
  snapshot.displaysByID.emplace("77", ShareableDisplay{77, sampleDisplay().framePoints, 1, true});
  ShareableWindow window;
  window.windowID = 4194310;
  snapshot.windowsByID.emplace("4194310", window);
  snapshot.excludedApplications = {hidden};
  return snapshot;
}

ValidatedRecordingRequest validated(CaptureKind kind) {
  RecordingRequestDTO request = sampleRequest(kind);
  return request.validated({sampleDisplay()}, {sampleWindow()});
}

void expectUnavailable(CaptureKind kind, const ContentSnapshot& snapshot) {
  try {
    recordingContentFilter(validated(kind), snapshot);
    ADD_FAILURE() << "found";
  } catch (const NativeServiceError& error) {
    EXPECT_EQ(error, (NativeServiceError{NativeErrorCode::contentUnavailable,
                                         "Shareable screen content is temporarily unavailable.", true}));
  }
}

TEST(RecordingContentFilter, ShowsADisplayWithoutTheExcludedApplications) {
  ContentFilter expected;
  expected.displayID = 77;
  expected.excludedApplications = {hidden};
  EXPECT_EQ(recordingContentFilter(validated(CaptureKind::display), sampleSnapshot()), expected);
  EXPECT_EQ(recordingContentFilter(validated(CaptureKind::region), sampleSnapshot()), expected);
}

TEST(RecordingContentFilter, ShowsAWindowByItselfWhateverIsExcluded) {
  ContentFilter expected;
  expected.kind = ContentFilter::Kind::desktopIndependentWindow;
  expected.displayID = 77;
  expected.windowID = 4194310;
  EXPECT_EQ(recordingContentFilter(validated(CaptureKind::window), sampleSnapshot()), expected);
}

TEST(RecordingContentFilter, NeedsThePlatformToKnowWhatWasValidated) {
  ContentSnapshot withoutDisplay = sampleSnapshot();
  withoutDisplay.displaysByID.clear();
  for (const CaptureKind kind : {CaptureKind::region, CaptureKind::display, CaptureKind::window})
    expectUnavailable(kind, withoutDisplay);
  ContentSnapshot withoutWindow = sampleSnapshot();
  withoutWindow.windowsByID.clear();
  expectUnavailable(CaptureKind::window, withoutWindow);
}

} // namespace
} // namespace tessarin
