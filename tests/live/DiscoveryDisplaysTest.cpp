#include "DiscoveryFixture.hpp"

#include "support/TemporaryDirectory.hpp"

namespace tessarin {
namespace {

class DiscoveryDisplays : public DiscoveryFixture {};

TEST_F(DiscoveryDisplays, AreTheMonitorsWithTheirNamesNumbers) {
  startDesktop();
  look();
  ASSERT_EQ(latest.displays.size(), 1U);
  EXPECT_EQ(latest.displays[0].frame, (RectDTO{0, 0, 1280, 800}));
  EXPECT_EQ(latest.displays[0].pointPixelScale, 1);
  EXPECT_TRUE(latest.displays[0].isMain);

  desktop->run({"xrandr", "--setmonitor", "*right", "640/170x480/130+640+0", "none"});
  desktop->run({"xrandr", "--setmonitor", "left", "640/170x800/210+0+0", "screen"});
  look();
  ASSERT_EQ(latest.displays.size(), 2U);
  auto& connection = server->connection();
  for (const auto& display : latest.displays) {
    const auto name =
        connection.required(xcb_get_atom_name_reply, xcb_get_atom_name(connection.get(), display.displayID));
    const std::string text(xcb_get_atom_name_name(name.get()),
                           static_cast<std::size_t>(xcb_get_atom_name_name_length(name.get())));
    if (text == "left") {
      EXPECT_EQ(display.frame, (RectDTO{0, 0, 640, 800}));
      EXPECT_FALSE(display.isMain);
    } else {
      EXPECT_EQ(text, "right");
      EXPECT_EQ(display.frame, (RectDTO{640, 0, 640, 480}));
      EXPECT_TRUE(display.isMain);
    }
  }
}

TEST_F(DiscoveryDisplays, HaveOneMainDisplayWhenTheServerNamesNone) {
  startDesktop();
  desktop->run({"xrandr", "--setmonitor", "one", "640/170x800/210+0+0", "screen"});
  desktop->run({"xrandr", "--setmonitor", "two", "640/170x800/210+640+0", "none"});
  look();
  ASSERT_EQ(latest.displays.size(), 2U);
  EXPECT_TRUE(latest.displays[0].isMain);
  EXPECT_FALSE(latest.displays[1].isMain);
}

TEST_F(DiscoveryDisplays, AreMeasuredInPointsOfTheScaleThatIsSet) {
  TemporaryDirectory directory;
  startDesktop({.width = 1920, .height = 1080});
  const auto& client = show({"--at", "300,150", "--size", "600x450"});
  const auto setResolution = [&](const std::string& value) {
    desktop->run({"xrdb", "-nocpp", "-merge", directory.write("resources", "Xft.dpi: " + value + "\n")});
  };

  setResolution("144");
  look();
  EXPECT_EQ(latest.displays[0].pointPixelScale, 1.5);
  EXPECT_EQ(latest.displays[0].frame, (RectDTO{0, 0, 1280, 720}));
  EXPECT_EQ(window(client)->frame, (RectDTO{200, 100, 400, 300}));
  EXPECT_EQ(listed(client)->bounds, (RectDTO{200, 100, 400, 300}));

  setResolution("192");
  look();
  EXPECT_EQ(latest.displays[0].pointPixelScale, 2);
  EXPECT_EQ(latest.displays[0].frame, (RectDTO{0, 0, 960, 540}));

  setResolution("72");
  look();
  EXPECT_EQ(latest.displays[0].pointPixelScale, 1);
  EXPECT_EQ(latest.displays[0].frame, (RectDTO{0, 0, 1920, 1080}));
}

TEST_F(DiscoveryDisplays, AreTheScreenWhereTheServerKnowsNoMonitors) {
  startDesktop({.serverArguments = {"-extension", "RANDR"}});
  look();
  ASSERT_EQ(latest.displays.size(), 1U);
  EXPECT_EQ(latest.displays[0].displayID, server->connection().root());
  EXPECT_EQ(latest.displays[0].frame, (RectDTO{0, 0, 1280, 800}));
  EXPECT_TRUE(latest.displays[0].isMain);
}

} // namespace
} // namespace tessarin
