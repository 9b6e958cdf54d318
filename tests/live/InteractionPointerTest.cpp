#include "live/InteractionTesting.hpp"

#include <array>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using Down = std::array<bool, interactionMouseButtonCount>; // left, right, other

class InteractionPointer : public InteractionFixture {
 protected:
  PointerLocation location() const { return source->pointer().value().location; }
  Down down() const { return source->pointer().value().isDown; }

  void setScale(const std::string& dotsPerInch) const {
    const std::string text = "Xft.dpi: " + dotsPerInch + "\n";
    auto& connection = input->connection;
    xcb_change_property(connection.get(), XCB_PROP_MODE_REPLACE, connection.root(), XCB_ATOM_RESOURCE_MANAGER,
                        XCB_ATOM_STRING, 8, static_cast<std::uint32_t>(text.size()), text.data());
    connection.sync();
  }
};

TEST_F(InteractionPointer, IsReadFreshInGlobalPoints) {
  startDesktop();
  input->moveTo(100, 50);
  EXPECT_EQ(location(), (PointerLocation{100, 50}));
  input->moveTo(0, 0);
  EXPECT_EQ(location(), (PointerLocation{0, 0}));
  input->moveTo(1279, 799);
  EXPECT_EQ(location(), (PointerLocation{1279, 799}));
}

TEST_F(InteractionPointer, OfAScaledDisplayIsInPointsAndKeepsItsScale) {
  startDesktop();
  setScale("192");
  makeSource();
  input->moveTo(101, 50);
  EXPECT_EQ(location(), (PointerLocation{50.5, 25}));
  setScale("96"); // the recorded rectangle stays in the points of before
  EXPECT_EQ(location(), (PointerLocation{50.5, 25}));

  setScale("144");
  makeSource();
  EXPECT_EQ(location(), (PointerLocation{101 / 1.5, 50 / 1.5}));
}

TEST_F(InteractionPointer, IsInTheCoordinatesOfTheWholeDesktopOnEachOfItsMonitors) {
  startDesktop();
  desktop->run({"xrandr", "--setmonitor", "left", "640/170x800/210+0+0", "screen"});
  desktop->run({"xrandr", "--setmonitor", "right", "640/170x800/210+640+0", "none"});
  input->moveTo(639, 10);
  EXPECT_EQ(location(), (PointerLocation{639, 10}));
  input->moveTo(640, 10);
  EXPECT_EQ(location(), (PointerLocation{640, 10}));
  input->moveTo(1200, 700);
  EXPECT_EQ(location(), (PointerLocation{1200, 700}));
}

TEST_F(InteractionPointer, HasTheButtonsThatAreDown) {
  startDesktop();
  EXPECT_EQ(down(), Down());
  const std::vector<std::pair<std::uint8_t, Down>> buttons = {{1, {true, false, false}},
                                                              {2, {false, false, true}},
                                                              {3, {false, true, false}},
                                                              {4, {}},
                                                              {5, {}},
                                                              {6, {}},
                                                              {7, {}},
                                                              {8, {false, false, true}},
                                                              {9, {false, false, true}}};
  for (const auto& [number, expected] : buttons) {
    input->button(number, true);
    EXPECT_EQ(down(), expected) << int(number);
    input->button(number, false);
    EXPECT_EQ(down(), Down()) << int(number);
  }
  for (const std::uint8_t number : {1, 3, 8})
    input->button(number, true);
  EXPECT_EQ(down(), (Down{true, true, true}));
}

TEST_F(InteractionPointer, HasTheButtonsOfALeftHander) {
  startDesktop();
  desktop->run({"xmodmap", "-e", "pointer = 3 2 1"});
  input->button(1, true);
  EXPECT_EQ(down(), (Down{false, true, false}));
}

TEST_F(InteractionPointer, CountsNoPresses) {
  startDesktop();
  watch();
  input->click();
  presses.buttons(1);
  EXPECT_EQ(source->pointer().value().pressCount, (std::array<std::uint32_t, 3>{}));
}

TEST_F(InteractionPointer, OfALostServerIsNotThereForGood) {
  startDesktop();
  EXPECT_TRUE(source->pointer());
  desktop->killServer();
  EXPECT_FALSE(source->pointer());
  EXPECT_FALSE(source->pointer());
  EXPECT_TRUE(source->isSecureInput()) << "nobody can be asked";
}

TEST_F(InteractionPointer, WaitsForAServerThatStandsStillButShortlyAndIsThereAgainAfterwards) {
  startDesktop();
  input->moveTo(10, 20);
  EXPECT_EQ(location(), (PointerLocation{10, 20}));
  ASSERT_EQ(kill(desktop->serverPid(), SIGSTOP), 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(source->pointer());
  EXPECT_FALSE(source->pointer());
  EXPECT_TRUE(source->isSecureInput());
  EXPECT_LT(std::chrono::steady_clock::now() - start, 3s);
  ASSERT_EQ(kill(desktop->serverPid(), SIGCONT), 0);
  input->moveTo(30, 40);
  EXPECT_EQ(location(), (PointerLocation{30, 40}));
  EXPECT_FALSE(source->isSecureInput());
}

TEST_F(InteractionPointer, OfNoServerIsNotThere) {
  source = x11::makeInteractionSource(std::make_shared<x11::DisplayServer>(":99999"), clock, passwords);
  EXPECT_FALSE(source->pointer());
  EXPECT_TRUE(source->isSecureInput());
  EXPECT_FALSE(source->monitor(presses.handlers()));
  EXPECT_EQ(passwords.beginnings, 0);
}

} // namespace
} // namespace tessarin
