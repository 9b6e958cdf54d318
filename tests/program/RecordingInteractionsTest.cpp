// The trace and the camera's panel of recordings by the built program, with somebody at its pointer and
// keyboard, over pause and resume.

#include "InteractionsFixture.hpp"

#include "recording/RecordedCameraLayout.hpp"
#include "trace/InteractionEventFile.hpp"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <optional>

namespace tessarin {
namespace {

using std::chrono::milliseconds;
using ::testing::Contains;
using ::testing::ElementsAre;

class RecordingInteractionsTest : public InteractionsFixture {
 protected:
  static constexpr RectDTO region = {100, 100, 400, 300};

  InteractionRecordingOptions ofRegion() const {
    InteractionRecordingOptions options;
    options.kind = "region";
    options.rect = region;
    return options;
  }
  void clickAt(int x, int y, std::uint8_t button = 1) {
    input.moveTo(x, y);
    input.click(button);
    std::this_thread::sleep_for(milliseconds(90)); // more than what counts as one click
  }
  // Slower than the pointer is sampled.
  void movePast(const std::vector<std::pair<int, int>>& places) {
    for (const auto& [x, y] : places) {
      input.moveTo(x, y);
      std::this_thread::sleep_for(milliseconds(80));
    }
  }
  void drag(int x, int y, int toX, int toY) {
    input.moveTo(x, y);
    input.button(1, true);
    std::this_thread::sleep_for(milliseconds(80)); // a hand is not off at once
    for (int step = 1; step <= 5; ++step)
      movePast({{x + (toX - x) * step / 5, y + (toY - y) * step / 5}});
    input.button(1, false);
  }
  std::optional<RecordedCameraLayout> layout() const {
    const std::string text = textOf(layoutPath());
    return text.empty() ? std::nullopt
                        : std::optional(json::decode<RecordedCameraLayout>(json::Document(text).root()));
  }
  // The panel's top left corner, in whole pixels of the desktop.
  static std::pair<int, int> cornerOf(const NormalizedVideoRectDTO& rect) {
    return {static_cast<int>(std::lround(region.x + rect.x * region.width)),
            static_cast<int>(std::lround(region.y + rect.y * region.height))};
  }
  bool cornerBecomes(int x, int y) const {
    return becomes([&] {
      const auto file = layout();
      return file && cornerOf(file->camera.rect) == std::pair(x, y);
    });
  }
  void expectOnlyOwner(const std::string& path) const {
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U) << path;
  }
  bool hasCursorAt(double x, double y) const {
    const auto cursors = events<InteractionCursorEvent>();
    return std::any_of(cursors.begin(), cursors.end(),
                       [&](const auto& each) { return each.x == x && each.y == y; });
  }

  // So that the panel is seen to be there.
  const std::unique_ptr<TestClient> background =
      desktop.client({"--style", "override", "--colour", "ff206040", "--size", "800x600"});
};

TEST_F(RecordingInteractionsTest, TheTraceHasPathAndClicksAtTheirPlacesInTheRegion) {
  input.moveTo(500, 400); // a corner, which belongs to it
  const auto recording = start(ofRegion());
  recording->waitFor("recording");
  EXPECT_TRUE(becomes([&] { return hasCursorAt(1, 1); })) << "a segment begins with a sample";
  movePast({{110, 120}, {200, 250}, {300, 160}, {501, 200}, {50, 50}, {400, 350}});
  clickAt(200, 200);
  clickAt(300, 250, 3);
  clickAt(100, 400, 2);
  clickAt(300, 250, 4); // a wheel
  clickAt(99, 200);
  clickAt(501, 200);
  clickAt(200, 401, 3);
  awaitMark();
  const json::Document completed = complete(*recording);

  const auto clicks = events<InteractionClickEvent>();
  ASSERT_EQ(clicks.size(), 3U);
  const auto expectClick = [&](std::size_t i, InteractionMouseButton button, double x, double y) {
    EXPECT_EQ(clicks[i].button, button);
    EXPECT_EQ(clicks[i].x, x);
    EXPECT_EQ(clicks[i].y, y);
    EXPECT_EQ(clicks[i].coordinateSpace, InteractionCoordinateSpace::captureTopLeft);
  };
  expectClick(0, InteractionMouseButton::left, 0.25, 100.0 / 300);
  expectClick(1, InteractionMouseButton::right, 0.5, 0.5);
  expectClick(2, InteractionMouseButton::other, 0, 1);
  for (const auto& [x, y] :
       {std::pair{10 / 400.0, 20 / 300.0}, {0.25, 0.5}, {0.5, 60 / 300.0}, {0.75, 250 / 300.0}})
    EXPECT_TRUE(hasCursorAt(x, y)) << x << " " << y;
  EXPECT_THAT(shortcuts(), ElementsAre(ElementsAre("F6")));
  for (const auto& cursor : events<InteractionCursorEvent>()) {
    EXPECT_EQ(cursor.coordinateSpace, InteractionCoordinateSpace::captureTopLeft);
    EXPECT_EQ(cursor.cursorRendering, InteractionCursorRendering::source);
  }

  expectOnlyOwner(tracePath());
  const json::Value tracks = *completed.root().member("tracks");
  ASSERT_EQ(tracks.arraySize(), 2U);
  const json::Value track = tracks.at(1);
  EXPECT_EQ(track.member("kind")->string(), "interactionEvents");
  EXPECT_EQ(track.member("mediaType")->string(), "data");
  EXPECT_EQ(track.member("path")->string(), tracePath());
  EXPECT_EQ(track.member("sizeBytes")->number(), static_cast<double>(textOf(tracePath()).size()));
  EXPECT_EQ(track.member("durationMs")->number(),
            completed.root().member("clock")->member("programDurationMs")->number());
}

TEST_F(RecordingInteractionsTest, OnlyWhatIsAskedForIsTraced) {
  InteractionRecordingOptions options = ofRegion();
  options.cursor = false;
  options.shortcuts = false;
  const auto recording = start(options);
  recording->waitFor("recording");
  movePast({{200, 200}, {300, 300}});
  input.tap(KEY_F6);
  clickAt(300, 250);
  EXPECT_TRUE(becomes([&] { return !events<InteractionClickEvent>().empty(); }));
  complete(*recording);
  EXPECT_EQ(trace().size(), 1U);
}

TEST_F(RecordingInteractionsTest, TheTraceGoesOnInActiveTimeOverAPause) {
  constexpr milliseconds pause(1600);
  InteractionRecordingOptions options = ofRegion();
  options.drawsPointer = false;
  const auto recording = start(options);
  recording->waitFor("recording");
  std::this_thread::sleep_for(milliseconds(100));
  clickAt(200, 200);
  movePast({{210, 210}, {220, 220}, {230, 230}, {240, 240}});
  recording->send("pause");
  const json::Document finalized = recording->waitForEvent("segmentFinalized");
  recording->waitFor("paused");
  const auto firstMs = static_cast<std::int64_t>(finalized.root().member("activeDurationMs")->number());
  const std::size_t countAtPause = trace().size();
  clickAt(300, 300);
  movePast({{250, 250}, {260, 260}});
  input.chord({KEY_LEFTCTRL}, KEY_J);
  std::this_thread::sleep_for(pause);
  EXPECT_EQ(trace().size(), countAtPause);
  recording->send("resume");
  recording->waitFor("recording");
  std::this_thread::sleep_for(milliseconds(100));
  clickAt(400, 250, 3);
  movePast({{410, 210}, {420, 220}});
  awaitMark();
  const json::Document completed = complete(*recording);

  const auto all = trace();
  std::int64_t previous = 0;
  for (std::size_t i = 0; i < all.size(); ++i) {
    const std::int64_t time = all[i].timestampMs();
    EXPECT_GE(time, previous);
    EXPECT_LT(time - previous, 1000) << "a hole"; // an idle pointer is told of each half second
    EXPECT_EQ(time >= firstMs, i >= countAtPause) << time;
    previous = time;
  }
  EXPECT_NEAR(previous, completed.root().member("clock")->member("programDurationMs")->number(), 600);
  for (const auto& cursor : events<InteractionCursorEvent>())
    EXPECT_EQ(cursor.cursorRendering, std::nullopt) << "the pointer is not in the pictures";
  const auto clicks = events<InteractionClickEvent>();
  ASSERT_EQ(clicks.size(), 2U);
  EXPECT_EQ(clicks[0].x, 0.25);
  EXPECT_EQ(clicks[1].x, 0.75);
  EXPECT_EQ(clicks[1].button, InteractionMouseButton::right);
  EXPECT_LT(clicks[1].timestampMs - firstMs, 700) << "the time of the pause is left out";
  EXPECT_THAT(shortcuts(), ElementsAre(ElementsAre("F6")));
}

// It begins in the corner, 80 by 60 pixels and 24 from the edges of the region.
TEST_F(RecordingInteractionsTest, TheCamerasPlaceFollowsDragsAndArrowKeys) {
  constexpr int left = 500 - 24 - 80;
  constexpr int top = 400 - 24 - 60;
  plugInCamera();
  InteractionRecordingOptions options = ofRegion();
  options.camera = true;
  const auto recording = start(options);
  recording->waitFor("recording");
  EXPECT_TRUE(cornerBecomes(left, top));
  EXPECT_TRUE(becomes([&] { return colourAt(left + 40, top + 30) != 0x206040; })) << "the panel is shown";

  drag(left + 40, top + 30, left - 110, top - 70);
  EXPECT_TRUE(cornerBecomes(left - 150, top - 100)) << "current after a drag";
  EXPECT_TRUE(becomes([&] { return colourAt(left + 40, top + 30) == 0x206040; })) << "the panel has moved";
  EXPECT_NE(colourAt(left - 110, top - 70), 0x206040U);
  for (const std::uint16_t key : {KEY_LEFT, KEY_LEFT, KEY_LEFT, KEY_UP, KEY_UP, KEY_RIGHT, KEY_DOWN})
    input.tap(key);
  EXPECT_TRUE(cornerBecomes(left - 152, top - 101)) << "and after keys";
  std::this_thread::sleep_for(aWhile); // what is later than the segment's last picture is dropped
  recording->send("pause");
  recording->waitFor("paused");
  const std::size_t positionsAtPause = layout()->camera.recordedPositions->size();
  drag(left - 110, top - 70, left - 90, top - 70);
  EXPECT_TRUE(cornerBecomes(left - 132, top - 101)) << "it can be moved in a pause";
  EXPECT_EQ(layout()->camera.recordedPositions->size(), positionsAtPause) << "which is no time";
  recording->send("resume");
  recording->waitFor("recording");
  std::this_thread::sleep_for(milliseconds(150));
  drag(left - 90, top - 70, left + 400, top + 400); // not beyond the region
  EXPECT_TRUE(cornerBecomes(500 - 80, 400 - 60));
  awaitMark();
  const json::Document completed = complete(*recording);

  const auto file = layout();
  ASSERT_TRUE(file);
  EXPECT_EQ(file->schemaVersion, 1);
  EXPECT_TRUE(session().ends_with(file->sessionID));
  EXPECT_EQ(file->camera.shape, VideoCameraShapeDTO::rounded);
  EXPECT_EQ(file->camera.mirrored, true);
  const auto& positions = *file->camera.recordedPositions;
  EXPECT_EQ(positions.front(),
            (VideoCameraPositionDTO{0, {296 / 400.0, 216 / 300.0, 80 / 400.0, 60 / 300.0}}));
  EXPECT_EQ(positions.back().rect, file->camera.rect);
  EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end(),
                             [](const auto& a, const auto& b) { return a.sourceTimeMs < b.sourceTimeMs; }));
  EXPECT_LE(positions.back().sourceTimeMs,
            completed.root().member("clock")->member("programDurationMs")->number());
  std::vector<std::pair<int, int>> corners;
  for (const VideoCameraPositionDTO& position : positions)
    corners.push_back(cornerOf(position.rect));
  EXPECT_EQ(corners.front(), std::pair(left, top));
  EXPECT_THAT(corners, Contains(std::pair(left - 150, top - 100))) << "the drag";
  EXPECT_THAT(corners, Contains(std::pair(left - 152, top - 101))) << "the keys";
  EXPECT_THAT(corners, Contains(std::pair(left - 132, top - 101))) << "where the second segment begins";
  EXPECT_EQ(corners.back(), std::pair(500 - 80, 400 - 60));
  EXPECT_THAT(shortcuts(), ElementsAre(ElementsAre("F6"))) << "keys for the panel are no shortcuts";
  EXPECT_EQ(events<InteractionClickEvent>().size(), 2U);
}

} // namespace
} // namespace tessarin
