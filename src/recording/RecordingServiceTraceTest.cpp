// The trace of pointer, clicks and shortcuts of a session: its times over pauses, where it is listed, and
// what its failures make of the session.

#include "support/RecordingServiceTesting.hpp"
#include "trace/InteractionEventFile.hpp"

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Rig = RecordingRig;

const std::string trace = "interaction-events.jsonl";

struct TracingRig : Rig {
  TracingRig() { useTrace(); }
};

std::string lines(const std::vector<std::string>& each) {
  std::string text;
  for (const std::string& line : each)
    text += line + "\n";
  return text;
}
std::string cursorAt(int timestampMs, const std::string& rendering = R"("cursorRendering":"source",)") {
  return R"({"coordinateSpace":"captureTopLeft",)" + rendering + R"("kind":"cursor","timestampMs":)" +
         std::to_string(timestampMs) + R"(,"x":0.5,"y":0.5})";
}
std::string clickAt(int timestampMs) {
  return R"({"button":"left","coordinateSpace":"captureTopLeft","kind":"click","timestampMs":)" +
         std::to_string(timestampMs) + R"(,"x":0.5,"y":0.5})";
}
std::string shortcutAt(int timestampMs) {
  return R"({"keys":["Control","C"],"kind":"shortcut","timestampMs":)" + std::to_string(timestampMs) + "}";
}
std::string traceTrack(int durationMs) {
  return R"({"durationMs":)" + std::to_string(durationMs) +
         R"(,"id":"interaction-events","kind":"interactionEvents","mediaType":"data",)"
         R"("path":"DIR/interaction-events.jsonl","sizeBytes":SIZE})";
}

TEST(RecordingServiceTrace, WhatTheUserDoesIsWrittenInActiveTimeAndListed) {
  TracingRig rig;
  rig.then([&] {
    rig.record(1s);
    rig.interactions.click();
    rig.pressShortcut();
    rig.send("pause");
  });
  rig.then([&] {
    rig.clock.advance(10min);
    rig.interactions.click();
    rig.pressShortcut();
    rig.send("resume");
  });
  rig.then([&] {
    rig.record(500ms);
    rig.pressShortcut();
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  // The first segment is 1033 ms long.
  EXPECT_EQ(rig.read(trace),
            lines({cursorAt(0), clickAt(1000), shortcutAt(1000), cursorAt(1033), shortcutAt(1533)}));
  EXPECT_THAT(rig.events().back(), EndsWith(traceTrack(1567) + "]}"));
  EXPECT_EQ(rig.interactions.monitorCount(), 0u);
  expectQuiet(rig);
}

TEST(RecordingServiceTrace, APointerThatIsDrawnLaterIsNotSaidToBeInThePicture) {
  for (const RecordingCursorStyle style : {RecordingCursorStyle::light, RecordingCursorStyle::dark}) {
    Rig rig;
    rig.request.settings.showsCursor = true;
    rig.request.settings.presentation = {.cameraPlacement = {}, .cursorStyle = style};
    rig.interactions.moveTo(100 + 960, 50 + 540);
    rig.then([&] {
      rig.record(500ms);
      rig.send("stop");
    });
    ASSERT_EQ(rig.run(), 0);
    EXPECT_FALSE(rig.stream().configuration.showsCursor);
    EXPECT_EQ(rig.read(trace), lines({cursorAt(0, "")}));
  }
}

struct Wish {
  const char* name;
  std::function<void(RecordingSettingsDTO&)> set;
  bool hasTrace;
  bool watchesButtons;
  bool watchesKeys;
};

class RecordingServiceTraceWishes : public ::testing::TestWithParam<Wish> {};

TEST_P(RecordingServiceTraceWishes, OnlyWhatIsAskedForIsWatched) {
  TracingRig rig;
  rig.request.settings.showsCursor = false;
  rig.request.settings.showMouseClicks = false;
  rig.request.settings.recordKeyboardShortcuts = std::nullopt;
  GetParam().set(rig.request.settings);
  rig.then([&] {
    EXPECT_EQ(rig.interactions.watchesButtons(), GetParam().watchesButtons);
    EXPECT_EQ(rig.interactions.watchesKeys(), GetParam().watchesKeys);
    EXPECT_EQ(exists(rig.files, rig.path(trace)), GetParam().hasTrace);
    rig.record(500ms);
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, RecordingServiceTraceWishes,
    ::testing::Values(
        Wish{"nothing", [](RecordingSettingsDTO&) {}, false, false, false},
        Wish{"pointer", [](RecordingSettingsDTO& it) { it.showsCursor = true; }, true, false, false},
        Wish{"clicks", [](RecordingSettingsDTO& it) { it.showMouseClicks = true; }, true, true, false},
        Wish{"follow", [](RecordingSettingsDTO& it) { it.cursorFollow = true; }, true, true, false},
        Wish{"shortcuts", [](RecordingSettingsDTO& it) { it.recordKeyboardShortcuts = true; }, true, false,
             true}),
    [](const auto& row) { return row.param.name; });

TEST(RecordingServiceTrace, PlacesAreFractionsOfTheRegion) {
  TracingRig rig;
  rig.request.kind = CaptureKind::region;
  rig.request.rectPoints = {500, 300, 400, 200};
  rig.interactions.moveTo(600, 450);
  rig.then([&] {
    rig.record(500ms);
    rig.interactions.moveTo(499, 300); // just outside
    rig.interactions.click();
    rig.interactions.moveTo(900, 500); // the corner is inside
    rig.interactions.click();
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  const std::string text = rig.read(trace);
  EXPECT_THAT(text, HasSubstr(R"("timestampMs":0,"x":0.25,"y":0.75})"));
  EXPECT_THAT(text, HasSubstr(R"("timestampMs":500,"x":1,"y":1})"));
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST(RecordingServiceTrace, AnEmptyTraceIsNoTrack) {
  TracingRig rig;
  rig.interactions.moveTo(0, 0); // beside the display
  rig.then([&] {
    rig.record(500ms);
    rig.send("stop");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.read(trace), "");
  EXPECT_THAT(rig.events().back(), Not(HasSubstr("interaction-events")));
}

// ---- Failures

TEST(RecordingServiceTrace, AnOlderTraceIsNotAddedTo) {
  TracingRig rig;
  rig.write(trace, "old\n");
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(), ElementsAre(outputFailed));
  EXPECT_THAT(rig.diagnostics(), ElementsAre(failedLine("interaction-recorder", "outputFailed")));
  EXPECT_EQ(rig.read(trace), "old\n");
  EXPECT_THAT(rig.streams.streams, IsEmpty());
}

TEST(RecordingServiceTrace, AKeyboardThatCannotBeWatchedAfterAllIsTold) {
  TracingRig rig;
  rig.interactions.refuseMonitors();
  EXPECT_EQ(rig.run(), 1);
  EXPECT_THAT(rig.events(),
              ElementsAre(failed("permissionDenied",
                                 "Input Monitoring permission is required for shortcut badges.")));
  EXPECT_THAT(rig.diagnostics(), ElementsAre(failedLine("interaction-recorder", "permissionDenied")));
  EXPECT_EQ(rig.panels.openCount(), 0u);
}

TEST(RecordingServiceTrace, ATraceThatIsNotWholeFailsTheStopAndLosesNothingElse) {
  TracingRig rig;
  rig.files.inject({.operation = FileOperation::write, .pathPart = trace, .skip = 1, .errorNumber = ENOSPC});
  rig.then([&] {
    rig.record(1s);
    rig.interactions.click();
    rig.send("stop");
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), outputFailed);
  EXPECT_EQ(rig.lastDiagnostics(), failedLine("stop-interactions", "outputFailed"));
  EXPECT_EQ(manifestSegments(rig).size(), 1u);
  for (const char* const output : {"recording.mp4", "screen.mp4", "segments/segment-0000.mp4"})
    EXPECT_THAT(rig.entries(), Contains(output));
  EXPECT_EQ(rig.read(trace), lines({cursorAt(0)}));
}

TEST(RecordingServiceTrace, ACancelledSessionLeavesNoTrace) {
  TracingRig rig;
  rig.then([&] {
    rig.record(1s);
    rig.interactions.click();
    rig.send("cancel");
  });
  ASSERT_EQ(rig.run(), 0);
  EXPECT_EQ(rig.lastEvent(), cancelled);
  EXPECT_THAT(rig.entries(), ElementsAre("segments/"));
}

TEST(RecordingServiceTrace, AFailedSessionKeepsItsTraceUpToTheFailure) {
  TracingRig rig;
  rig.then([&] {
    rig.record(1s);
    rig.interactions.click();
    rig.onEvent = [&](const std::string&) { rig.pressShortcut(); }; // while it is finished
    rig.endInput();
  });
  EXPECT_EQ(rig.run(), 1);
  EXPECT_EQ(rig.lastEvent(), recordingFailed);
  EXPECT_EQ(rig.read(trace), lines({cursorAt(0), clickAt(1000)}));
  EXPECT_EQ(rig.interactions.monitorCount(), 0u);
  expectQuiet(rig);
}

} // namespace
} // namespace tessarin
