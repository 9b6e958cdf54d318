#include "desktop/ContentService.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A desktop that tells what the test wrote down.
class ScriptedDesktop final : public DesktopContent {
 public:
  bool hasAccess = true;
  std::function<void()> reading = [] {};
  ShareableContent scripted;
  int readings = 0;

  bool hasScreenCaptureAccess() override { return hasAccess; }
  ShareableContent content() override {
    ++readings;
    reading();
    return scripted;
  }
};

const RunningApplication editor{"org.editor", 100, "Editor"};
const RunningApplication host{"org.host", 200, "Host"};

ShareableWindow shareableWindow(std::uint32_t id, RectDTO frame, const RunningApplication& owner = editor,
                                std::string title = "Title") {
  return {.windowID = id,
          .frame = frame,
          .title = std::move(title),
          .windowLayer = 0,
          .isOnScreen = true,
          .owningApplication = owner};
}

WindowListEntry listed(std::uint32_t number) {
  return {.number = number, .layer = 0, .bounds = RectDTO{0, 0, 1, 1}, .ownerName = "", .name = ""};
}

class ContentServiceTest : public testing::Test {
 protected:
  ContentServiceTest() {
    desktop.scripted.displays = {
        {.displayID = 1, .frame = {0, 0, 1000, 800}, .pointPixelScale = 1, .isMain = true}};
    desktop.scripted.windowList.emplace();
  }

  std::vector<ShareableWindow>& windows() { return desktop.scripted.windows; }
  std::vector<WindowInfoDTO> listedWindows() { return ContentService(desktop).load().payload.windows; }

  NativeServiceError failure() {
    try {
      (void)ContentService(desktop).load();
    } catch (const NativeServiceError& error) {
      return error;
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
  }

  ScriptedDesktop desktop;
};

TEST_F(ContentServiceTest, WithoutAccessNothingIsEnumerated) {
  desktop.hasAccess = false;
  EXPECT_EQ(failure(),
            (NativeServiceError{NativeErrorCode::permissionDenied,
                                "Screen Recording permission is required to capture the display.", true}));
  EXPECT_EQ(desktop.readings, 0);
}

const NativeServiceError unavailable{NativeErrorCode::contentUnavailable,
                                     "Shareable screen content is temporarily unavailable.", true};

TEST_F(ContentServiceTest, ADesktopThatCannotBeReadIsUnavailable) {
  desktop.reading = [] { throw DesktopFailure(); };
  EXPECT_EQ(failure(), unavailable);
}

TEST_F(ContentServiceTest, AFailureThatKnowsItsOutcomePassesThrough) {
  desktop.reading = [] { throw serviceErrors::protectedContent(); };
  EXPECT_EQ(failure(), serviceErrors::protectedContent());
}

TEST_F(ContentServiceTest, ADesktopWithoutDisplaysIsUnavailable) {
  desktop.scripted.displays.clear();
  EXPECT_EQ(failure(), unavailable);
}

TEST_F(ContentServiceTest, ADisplayWithImpossibleGeometryMakesTheDesktopUnavailable) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();
  const ShareableDisplay cases[] = {
      {2, {notANumber, 0, 10, 10}, 1, false}, {2, {0, infinity, 10, 10}, 1, false},
      {2, {0, 0, infinity, 10}, 1, false},    {2, {0, 0, 10, notANumber}, 1, false},
      {2, {0, 0, 0, 10}, 1, false},           {2, {0, 0, 10, 0}, 1, false},
      {2, {0, 0, -10, 10}, 1, false},         {2, {0, 0, 10, 10}, 0, false},
      {2, {0, 0, 10, 10}, -1, false},         {2, {0, 0, 10, 10}, notANumber, false},
      {2, {0, 0, 1e300, 1e300}, 1, false}};
  for (const ShareableDisplay& display : cases) {
    desktop.scripted.displays.resize(1);
    desktop.scripted.displays.push_back(display);
    EXPECT_EQ(failure(), unavailable);
  }
}

TEST_F(ContentServiceTest, TheTwoScalesOfADisplayDifferByAThousandthAtMost) {
  // 999 pixels down in each case, so the scale there is 2.0, 2.00096, 2.00104 and 2.002.
  const struct {
    double height;
    bool isAccepted;
  } cases[] = {{499.5, true}, {499.26, true}, {499.24, false}, {499.0001, false}};
  for (const auto& each : cases) {
    desktop.scripted.displays = {
        {.displayID = 1, .frame = {0, 0, 1000, each.height}, .pointPixelScale = 2, .isMain = true}};
    if (each.isAccepted)
      EXPECT_EQ(ContentService(desktop).load().payload.displays[0].pixelSize, (SizeDTO{2000, 999}));
    else
      EXPECT_EQ(failure(), unavailable) << each.height;
  }
}

TEST_F(ContentServiceTest, DescribesEachDisplayInOrder) {
  desktop.scripted.displays = {
      {.displayID = 7, .frame = {0, 0, 1440.5, 900}, .pointPixelScale = 2, .isMain = false},
      {.displayID = 4294967295, .frame = {-1920, 0, 1920, 1080}, .pointPixelScale = 1, .isMain = true}};
  const ContentSnapshot snapshot = ContentService(desktop).load();
  EXPECT_THAT(snapshot.payload.displays, ElementsAre(DisplayInfoDTO{.id = "7",
                                                                    .framePoints = {0, 0, 1440.5, 900},
                                                                    .scaleFactor = 2,
                                                                    .pixelSize = {2881, 1800},
                                                                    .isPrimary = false},
                                                     DisplayInfoDTO{.id = "4294967295",
                                                                    .framePoints = {-1920, 0, 1920, 1080},
                                                                    .scaleFactor = 1,
                                                                    .pixelSize = {1920, 1080},
                                                                    .isPrimary = true}));
  EXPECT_EQ(snapshot.displaysByID.at("7").displayID, 7U);
  EXPECT_EQ(snapshot.displaysByID.at("4294967295").frame.x, -1920);
  EXPECT_EQ(snapshot.payload.permission, PermissionStatus::granted);
}

TEST_F(ContentServiceTest, TheScaleIsTheRatioOfWholePixelsToPoints) {
  desktop.scripted.displays = {
      {.displayID = 1, .frame = {0, 0, 1000, 1000}, .pointPixelScale = 1.3333, .isMain = true}};
  const auto display = ContentService(desktop).load().payload.displays[0];
  EXPECT_EQ(display.pixelSize, (SizeDTO{1334, 1334}));
  EXPECT_EQ(display.scaleFactor, 1.334);
}

TEST_F(ContentServiceTest, DescribesAWindow) {
  windows() = {shareableWindow(42, {10, 20, 300, 200}, editor, " \nNotes\t ")};
  windows()[0].windowLayer = 3;
  desktop.scripted.windowList = {listed(1), listed(42)};
  const ContentSnapshot snapshot = ContentService(desktop).load();
  EXPECT_THAT(snapshot.payload.windows, ElementsAre(WindowInfoDTO{.id = "42",
                                                                  .displayID = "1",
                                                                  .ownerPID = 100,
                                                                  .ownerName = "Editor",
                                                                  .title = "Notes",
                                                                  .framePoints = {10, 20, 300, 200},
                                                                  .layer = 3,
                                                                  .zIndex = 1,
                                                                  .isOnScreen = true}));
  EXPECT_EQ(snapshot.windowsByID.at("42").windowID, 42U);
}

TEST_F(ContentServiceTest, AWindowWithoutATitleCarriesItsApplicationsName) {
  windows() = {shareableWindow(1, {0, 0, 10, 10}, {"", 5, " App "}, "  \n"),
               shareableWindow(2, {0, 0, 10, 10})};
  windows()[1].title.reset();
  const auto result = listedWindows();
  ASSERT_EQ(result.size(), 2U);
  EXPECT_EQ(result[0].title, " App ");
  EXPECT_EQ(result[0].ownerName, " App ");
  EXPECT_EQ(result[1].title, "Editor");
}

TEST_F(ContentServiceTest, AWindowOutsideTheListStandsBehindAllByItsUnfilteredPosition) {
  for (std::uint32_t i = 0; i < 8; ++i)
    windows().push_back(shareableWindow(50 + i, {0, 0, 10, 10}));
  windows()[0].isOnScreen = false;
  desktop.scripted.windowList = {listed(51), listed(1), listed(52)};
  const auto result = listedWindows();
  ASSERT_EQ(result.size(), 7U);
  EXPECT_EQ(result[0].zIndex, 0);
  EXPECT_EQ(result[1].zIndex, 2);
  EXPECT_EQ(result[2].zIndex, 3 + 3);
  EXPECT_EQ(result[6].zIndex, 3 + 7);
}

TEST_F(ContentServiceTest, WithoutAListPositionsCountFromZeroAndThereAreNoElements) {
  windows() = {shareableWindow(1, {0, 0, 10, 10}), shareableWindow(2, {0, 0, 10, 10})};
  desktop.scripted.windowList.reset();
  const ContentSnapshot snapshot = ContentService(desktop).load();
  EXPECT_EQ(snapshot.payload.windows[0].zIndex, 0);
  EXPECT_EQ(snapshot.payload.windows[1].zIndex, 1);
  EXPECT_THAT(snapshot.payload.uiElements, IsEmpty());
}

TEST_F(ContentServiceTest, KeepsOnlyEligibleWindows) {
  const struct {
    const char* what;
    void (*change)(ShareableWindow&);
    bool isKept;
  } cases[] = {
      {"as it is", [](ShareableWindow&) {}, true},
      {"off screen", [](ShareableWindow& w) { w.isOnScreen = false; }, false},
      {"a dock", [](ShareableWindow& w) { w.windowLayer = 20; }, false},
      {"a menu bar", [](ShareableWindow& w) { w.windowLayer = 24; }, false},
      {"a status item", [](ShareableWindow& w) { w.windowLayer = 25; }, false},
      {"a desktop", [](ShareableWindow& w) { w.windowLayer = -1; }, false},
      {"the highest layer", [](ShareableWindow& w) { w.windowLayer = 2147483629; }, true},
      {"above it", [](ShareableWindow& w) { w.windowLayer = 2147483630; }, false},
      {"tiny and ordinary",
       [](ShareableWindow& w) {
         w.frame = {0, 0, 1, 1};
       },
       true},
      {"tiny and raised",
       [](ShareableWindow& w) {
         w.windowLayer = 3;
         w.frame = {0, 0, 7, 100};
       },
       false},
      {"without an owner", [](ShareableWindow& w) { w.owningApplication.reset(); }, false},
      {"on no display", [](ShareableWindow& w) { w.frame.x = 5000; }, false},
      {"partly on a display", [](ShareableWindow& w) { w.frame.x = 999; }, true},
  };
  for (const auto& each : cases) {
    windows() = {shareableWindow(1, {0, 0, 100, 100})};
    each.change(windows()[0]);
    const ContentSnapshot snapshot = ContentService(desktop).load();
    EXPECT_EQ(snapshot.payload.windows.size(), each.isKept ? 1U : 0U) << each.what;
    EXPECT_EQ(snapshot.windowsByID.size(), each.isKept ? 1U : 0U) << each.what;
  }
}

TEST_F(ContentServiceTest, AnApplicationExcludedByProcessLosesItsWindowsAndIsNamed) {
  windows() = {shareableWindow(1, {0, 0, 10, 10}, host), shareableWindow(2, {0, 0, 10, 10}, editor)};
  desktop.scripted.applications = {editor, host};
  const ContentSnapshot snapshot = ContentService(desktop, {}, {200}).load();
  ASSERT_EQ(snapshot.payload.windows.size(), 1U);
  EXPECT_EQ(snapshot.payload.windows[0].id, "2");
  EXPECT_THAT(snapshot.excludedApplications, ElementsAre(host));
}

TEST_F(ContentServiceTest, AnApplicationExcludedByBundleIdentifierLosesItsWindowsAndIsNamed) {
  windows() = {shareableWindow(1, {0, 0, 10, 10}, host), shareableWindow(2, {0, 0, 10, 10}, editor)};
  desktop.scripted.applications = {editor, host};
  const ContentSnapshot snapshot = ContentService(desktop, {"org.editor"}).load();
  ASSERT_EQ(snapshot.payload.windows.size(), 1U);
  EXPECT_EQ(snapshot.payload.windows[0].id, "1");
  EXPECT_THAT(snapshot.excludedApplications, ElementsAre(editor));
}

TEST_F(ContentServiceTest, NothingIsExcludedByDefault) {
  desktop.scripted.applications = {editor, host};
  EXPECT_THAT(ContentService(desktop).load().excludedApplications, IsEmpty());
  EXPECT_FALSE(ContentService(desktop).shouldExclude("", 0));
}

TEST_F(ContentServiceTest, MenuBarsAndTheirItemsAppearAsElements) {
  desktop.scripted.windowList = {
      listed(1),
      {.number = 2, .layer = 25, .bounds = RectDTO{900, 0, 20, 20}, .ownerName = "Clock", .name = ""},
      {.number = 3, .layer = 24, .bounds = RectDTO{0, 0, 1000, 24}, .ownerName = "Menubar", .name = ""}};
  const auto elements = ContentService(desktop).load().payload.uiElements;
  ASSERT_EQ(elements.size(), 2U);
  EXPECT_EQ(elements[0].id, "macos-ui-2");
  EXPECT_EQ(elements[0].label, "Clock");
  EXPECT_EQ(elements[1].id, "macos-ui-3");
}

} // namespace
} // namespace tessarin
