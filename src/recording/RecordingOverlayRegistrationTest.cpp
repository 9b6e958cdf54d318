#include "recording/RecordingOverlayRegistration.hpp"

#include "support/RecordingOverlayRig.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const NativeServiceError unavailable{NativeErrorCode::contentUnavailable,
                                     "Shareable screen content is temporarily unavailable.", true};
const RunningApplication ourselves{"tessarin", 4711, "tessarin-native"};
const RunningApplication other{"editor", 4242, "Editor"};

class RecordingOverlayRegistrationTest : public ::testing::Test {
 protected:
  // The desktop shows the window from that look on, counted from 1.
  void showFrom(int look) {
    desktop.windows = [this, look] {
      std::vector<ShareableWindow> windows{windowOf(1, other)};
      if (desktop.looks >= look)
        windows.push_back(windowOf(9000, ourselves));
      return windows;
    };
  }
  static ShareableWindow windowOf(std::uint32_t number, std::optional<RunningApplication> owner) {
    ShareableWindow window;
    window.windowID = number;
    window.owningApplication = std::move(owner);
    return window;
  }
  RunningApplication application() {
    return RecordingOverlayRegistration::application(
        9000, desktop, [this](std::chrono::milliseconds time) { sleeps.push_back(time); });
  }

  ListedDesktop desktop;
  std::vector<std::chrono::milliseconds> sleeps;
};

TEST_F(RecordingOverlayRegistrationTest, FindsAtOnceWhatIsThere) {
  showFrom(1);
  EXPECT_EQ(application(), ourselves);
  EXPECT_EQ(desktop.looks, 1);
  EXPECT_THAT(sleeps, IsEmpty());
}

TEST_F(RecordingOverlayRegistrationTest, LooksEightTimesWithASleepBetween) {
  showFrom(8);
  EXPECT_EQ(application(), ourselves);
  EXPECT_EQ(desktop.looks, 8);
  EXPECT_THAT(sleeps, AllOf(SizeIs(7), Each(50ms)));
}

TEST_F(RecordingOverlayRegistrationTest, GivesUpBehindTheEighthLook) {
  showFrom(9);
  EXPECT_EQ(serviceErrorOf([&] { application(); }), unavailable);
  EXPECT_EQ(desktop.looks, 8);
  EXPECT_THAT(sleeps, SizeIs(7));
}

TEST_F(RecordingOverlayRegistrationTest, LooksAgainAtAWindowWithoutAnOwnerAndAtADesktopThatCannotBeRead) {
  desktop.windows = [this]() -> std::vector<ShareableWindow> {
    if (desktop.looks == 1)
      throw DesktopFailure();
    if (desktop.looks == 2)
      return {windowOf(9000, std::nullopt)};
    return {windowOf(9000, ourselves)};
  };
  EXPECT_EQ(application(), ourselves);
  EXPECT_EQ(desktop.looks, 3);
}

TEST_F(RecordingOverlayRegistrationTest, ADesktopThatCannotBeReadAtAllIsUnavailable) {
  desktop.windows = []() -> std::vector<ShareableWindow> { throw DesktopFailure(); };
  EXPECT_EQ(serviceErrorOf([&] { application(); }), unavailable);
  EXPECT_EQ(desktop.looks, 8);
}

TEST_F(RecordingOverlayRegistrationTest, APanelThatCannotBeMadeIsUnavailable) {
  ScriptedPanelFactory panels;
  panels.refuses = true;
  EXPECT_EQ(serviceErrorOf([&] { RecordingOverlayRegistration::makePanel(panels, {}); }), unavailable);
  panels.refuses = false;
  EXPECT_EQ(RecordingOverlayRegistration::makePanel(panels, {})->windowID(), 9000U);
}

} // namespace
} // namespace tessarin
