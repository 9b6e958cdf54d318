#include "DiscoveryFixture.hpp"

#include "support/TemporaryDirectory.hpp"

#include <xcb/composite.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace tessarin {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

class DiscoveryWindows : public DiscoveryFixture {
 protected:
  // What independent tools say of a client and the decoration around it.
  RectDTO decoratedFrame(const TestClient& client) const {
    const auto info = desktop->run({"xwininfo", "-id", client.windowID()});
    const auto number = [](const std::string& text, const std::string& label) {
      const auto at = text.find(label);
      return at == std::string::npos ? 0.0 : std::stod(text.substr(at + label.size()));
    };
    const auto text = desktop->run({"xprop", "-id", client.windowID(), "_NET_FRAME_EXTENTS"});
    double left = 0;
    double right = 0;
    double top = 0;
    double bottom = 0;
    EXPECT_EQ(std::sscanf(text.c_str(), "_NET_FRAME_EXTENTS(CARDINAL) = %lf, %lf, %lf, %lf", &left, &right,
                          &top, &bottom),
              4)
        << text;
    return {number(info, "Absolute upper-left X:") - left, number(info, "Absolute upper-left Y:") - top,
            number(info, "  Width:") + left + right, number(info, "  Height:") + top + bottom};
  }
};

TEST_F(DiscoveryWindows, AreToldAsTheyAreSeenWithoutAWindowManager) {
  startDesktop();
  const auto& plain = show({"--at", "10,20", "--size", "200x150", "--title", "Plain"});
  const auto& bordered = show({"--at", "300,20", "--size", "100x80", "--border", "3"});
  const auto& menu = show({"--at", "400,200", "--size", "50x60", "--style", "override"});
  const auto& translucent =
      show({"--at", "-20,700", "--size", "80x200", "--argb", "--colour", "80ff0000", "--border", "2"});
  const auto& circle = show({"--at", "600,100", "--size", "101x150", "--shape", "circle"});
  const auto& corner = show({"--at", "800,100", "--size", "120x100", "--shape", "corner"});
  const auto& shadowed = show({"--at", "100,400", "--size", "220x180", "--argb", "--shadow", "10,12,8,16"});
  look();

  ASSERT_TRUE(window(plain));
  EXPECT_EQ(window(plain)->frame, (RectDTO{10, 20, 200, 150}));
  EXPECT_EQ(window(plain)->title, "Plain");
  EXPECT_EQ(window(plain)->windowLayer, 0);
  EXPECT_TRUE(window(plain)->isOnScreen);
  EXPECT_EQ(window(bordered)->frame, (RectDTO{300, 20, 106, 86}));
  EXPECT_EQ(window(menu)->frame, (RectDTO{400, 200, 50, 60}));
  EXPECT_EQ(window(menu)->windowLayer, 101);
  EXPECT_EQ(window(translucent)->frame, (RectDTO{-20, 700, 84, 204}));
  EXPECT_EQ(window(circle)->frame, (RectDTO{600, 100, 101, 101}));
  EXPECT_EQ(window(corner)->frame, (RectDTO{800, 125, 90, 75}));
  EXPECT_EQ(window(shadowed)->frame, (RectDTO{110, 408, 198, 156}));
  EXPECT_EQ(latest.windows.size(), 7U);
}

TEST_F(DiscoveryWindows, AreToldInTheirStackingOrderFromTheFront) {
  startDesktop();
  auto& lower = show({"--at", "0,0"});
  const auto& middle = show({"--at", "20,20"});
  const auto& upper = show({"--at", "40,40"});
  look();
  EXPECT_THAT(listedNumbers(), ElementsAre(upper.window(), middle.window(), lower.window()));

  lower.command("raise");
  look();
  EXPECT_THAT(listedNumbers(), ElementsAre(lower.window(), upper.window(), middle.window()));

  lower.command("move 33 -44");
  lower.command("resize 91 77");
  look();
  EXPECT_EQ(window(lower)->frame, (RectDTO{33, -44, 91, 77}));
  EXPECT_EQ(listed(lower)->bounds, (RectDTO{33, -44, 91, 77}));

  lower.command("unmap");
  look();
  EXPECT_THAT(listedNumbers(), ElementsAre(upper.window(), middle.window()));
  EXPECT_EQ(window(lower), nullptr);
}

TEST_F(DiscoveryWindows, HaveTheLayersOfTheirKinds) {
  startDesktop();
  struct Case {
    std::vector<std::string> arguments;
    std::int64_t layer;
  };
  const std::vector<Case> cases = {
      {{}, 0},
      {{"--type", "normal"}, 0},
      {{"--type", "dialog"}, 0},
      {{"--type", "splash"}, 0},
      {{"--type", "utility"}, 3},
      {{"--type", "toolbar"}, 3},
      {{"--type", "menu"}, 3},
      {{"--above"}, 3},
      {{"--type", "dialog", "--above"}, 3},
      {{"--type", "dock"}, 24},
      {{"--type", "desktop"}, -1},
      {{"--type", "notification"}, 101},
      {{"--style", "override"}, 101},
      {{"--style", "override", "--type", "menu"}, 101},
      {{"--style", "override", "--type", "tooltip"}, 101},
      {{"--style", "override", "--type", "popup_menu"}, 101},
      {{"--style", "override", "--type", "normal"}, 0},
      {{"--style", "override", "--type", "dock"}, 24},
      {{"--type", "unheard_of"}, 0},
      {{"--type", "unheard_of", "--type", "utility", "--type", "dock"}, 3},
  };
  std::vector<const TestClient*> shown;
  for (const auto& each : cases) {
    shown.push_back(&show(each.arguments));
  }
  look();
  for (std::size_t i = 0; i < cases.size(); ++i) {
    ASSERT_TRUE(window(*shown[i])) << i;
    EXPECT_EQ(window(*shown[i])->windowLayer, cases[i].layer) << i;
    EXPECT_EQ(listed(*shown[i]) == nullptr, cases[i].layer < 0) << i;
    if (cases[i].layer == 24) {
      EXPECT_EQ(listed(*shown[i])->ownerName, "Menubar");
      EXPECT_EQ(window(*shown[i])->owningApplication->applicationName, "TestClient");
    }
  }
}

TEST_F(DiscoveryWindows, CountTheirDecorationButNoClientDrawnShadow) {
  startDesktop({.hasWindowManager = true});
  auto& decorated = show({"--at", "50,60", "--size", "300x200", "--title", "Decorated"});
  const auto& borderless = show({"--at", "400,60", "--size", "300x200", "--style", "borderless"});
  const auto& shadowed = show(
      {"--at", "50,400", "--size", "300x200", "--style", "borderless", "--argb", "--shadow", "20,20,10,30"});
  const auto& both = show({"--at", "400,400", "--size", "300x200", "--shadow", "20,20,10,30"});
  const auto& circle =
      show({"--at", "800,60", "--size", "200x200", "--style", "borderless", "--shape", "circle"});
  const auto& menu = show({"--at", "800,400", "--size", "120x90", "--style", "override"});
  look();

  ASSERT_TRUE(window(decorated));
  EXPECT_EQ(window(decorated)->frame, decoratedFrame(decorated));
  EXPECT_GT(window(decorated)->frame.height, 210) << "there is a title bar";
  EXPECT_EQ(window(decorated)->frame.x, 50);
  EXPECT_EQ(window(decorated)->frame.y, 60);
  EXPECT_EQ(window(borderless)->frame, (RectDTO{400, 60, 300, 200}));
  EXPECT_EQ(window(shadowed)->frame, (RectDTO{70, 410, 260, 160}));
  EXPECT_EQ(window(both)->frame, decoratedFrame(both)) << "a decorated side hides no shadow";
  EXPECT_EQ(window(circle)->frame, (RectDTO{800, 60, 200, 200}));
  EXPECT_EQ(window(menu)->frame, (RectDTO{800, 400, 120, 90}));
  EXPECT_EQ(window(menu)->windowLayer, 101);
  EXPECT_EQ(latest.windows.size(), 6U) << "the window manager's own windows are not told";

  decorated.command("resize 320 240");
  look();
  EXPECT_EQ(window(decorated)->frame, decoratedFrame(decorated));

  // Not every window manager lists its clients.
  const auto told = latest.windows;
  desktop->run({"xprop", "-root", "-remove", "_NET_SUPPORTING_WM_CHECK"});
  look();
  ASSERT_EQ(latest.windows.size(), told.size());
  for (std::size_t i = 0; i < told.size(); ++i) {
    EXPECT_EQ(latest.windows[i].windowID, told[i].windowID);
    EXPECT_EQ(latest.windows[i].frame, told[i].frame);
    EXPECT_EQ(latest.windows[i].windowLayer, told[i].windowLayer);
  }
}

TEST_F(DiscoveryWindows, AreManagedOnTheScreenOnlyWhenMapped) {
  startDesktop({.hasWindowManager = true});
  const auto& iconic = show({"--iconic", "--title", "Iconic"});
  auto& other = show({"--at", "100,100", "--title", "Other"});
  const auto& raised = show({"--at", "140,140", "--above"});
  look();
  EXPECT_EQ(window(iconic), nullptr);
  EXPECT_EQ(window(raised)->windowLayer, 3);
  EXPECT_THAT(listedNumbers(), ElementsAre(raised.window(), other.window()));

  other.command("close");
  look();
  EXPECT_THAT(listedNumbers(), ElementsAre(raised.window()));
}

TEST_F(DiscoveryWindows, OutliveTheirWindowManager) {
  startDesktop({.hasWindowManager = true});
  const auto& client = show({"--at", "100,100"});
  desktop->killWindowManager();
  look();
  EXPECT_THAT(listedNumbers(), ElementsAre(client.window()));
}

TEST_F(DiscoveryWindows, HaveTitlesOfWellFormedText) {
  startDesktop();
  const auto& utf8 = show({"--title", "\u4E2D\u6587 \u2014 Gr\u00FC\u00DFe"});
  const auto& broken = show({"--title-bytes", "41ff42c3"});
  const auto& latin1 = show({"--title-type", "string", "--title-bytes", "636166e9"});
  const auto& compound = show({"--title-type", "compound", "--title-bytes",
                               "1b2429"
                               "41d6d0cec4"});
  const auto& empty = show({"--title", ""});
  look();
  EXPECT_EQ(window(utf8)->title, "\u4E2D\u6587 \u2014 Gr\u00FC\u00DFe");
  EXPECT_EQ(window(broken)->title, "A\uFFFD"
                                   "B\uFFFD");
  EXPECT_EQ(window(latin1)->title, "caf\u00E9");
  EXPECT_EQ(window(compound)->title, "\u4E2D\u6587");
  EXPECT_EQ(window(empty)->title, std::nullopt);
  EXPECT_EQ(listed(latin1)->name, "caf\u00E9");
}

TEST_F(DiscoveryWindows, BelongToApplicationsKnownToTheServer) {
  TemporaryDirectory data;
  std::filesystem::create_directory(data / "applications");
  data.write("applications/some.editor.desktop",
             "[Desktop Entry]\nType=Application\nName=Some Editor\nStartupWMClass=EditorClass\n");
  setenv("XDG_DATA_HOME", data.path().c_str(), 1);

  startDesktop();
  const auto& liar = show({"--class", "liar,Liar", "--pid-property", "1"});
  const auto& editor = show({"--class", "editor,EditorClass"});
  const auto& nameless = show({"--class", ","});
  const auto& menu = show({"--class", ",", "--style", "override"});
  look();

  EXPECT_EQ(window(liar)->owningApplication, (RunningApplication{"Liar", liar.pid(), "Liar"}));
  EXPECT_EQ(window(editor)->owningApplication,
            (RunningApplication{"EditorClass", editor.pid(), "Some Editor"}));
  EXPECT_EQ(window(nameless)->owningApplication, (RunningApplication{"", nameless.pid(), "tessarin-test-c"}));
  EXPECT_EQ(latest.applications.size(), 4U);
  EXPECT_THAT(latest.applications, Contains(*window(menu)->owningApplication));
  EXPECT_EQ(listed(editor)->ownerName, "Some Editor");
}

TEST_F(DiscoveryWindows, BelongToTheProcessTheyTellWhereTheServerCannot) {
  startDesktop({.serverArguments = {"-extension", "X-Resource"}});
  const auto& local = show({"--class", "l,Local", "--pid-property", "4242"});
  const auto& remote =
      show({"--class", "r,Remote", "--pid-property", "4242", "--machine", "elsewhere.example"});
  const auto& silent = show({"--class", ","});
  look();
  EXPECT_EQ(window(local)->owningApplication, (RunningApplication{"Local", 4242, "Local"}));
  EXPECT_EQ(window(remote)->owningApplication, (RunningApplication{"Remote", 0, "Remote"}));
  EXPECT_EQ(window(silent)->owningApplication, std::nullopt);
  EXPECT_EQ(latest.applications.size(), 2U);
}

TEST_F(DiscoveryWindows, AreNotTheOverlayOfACompositingManager) {
  startDesktop();
  const auto& client = show({});
  x11::Connection connection(desktop->display());
  const auto overlay =
      connection.required(xcb_composite_get_overlay_window_reply,
                          xcb_composite_get_overlay_window(connection.get(), connection.root()));
  connection.sync();
  look();
  EXPECT_EQ(window(overlay->overlay_win), nullptr);
  EXPECT_THAT(listedNumbers(), ElementsAre(client.window()));
}

TEST_F(DiscoveryWindows, AreNotHelpersOfASinglePixelOrOffTheScreen) {
  startDesktop();
  show({"--size", "1x1", "--at", "5,5", "--style", "override"});
  show({"--size", "50x50", "--at", "-200,-200", "--style", "override"});
  show({"--size", "50x50", "--at", "1280,0", "--style", "override"});
  const auto& hanging = show({"--size", "50x50", "--at", "1279,799", "--style", "override"});
  look();
  EXPECT_THAT(listedNumbers(), ElementsAre(hanging.window()));
}

TEST_F(DiscoveryWindows, OfADockAreAMenuBarWithItsIcons) {
  startDesktop();
  const auto& dock = show({"--type", "dock", "--at", "0,0", "--size", "1280x24", "--class", "panel,Panel"});
  const auto& icon = show({"--embed-in", dock.windowID(), "--at", "1000,2", "--size", "20x20", "--title",
                           "Mail", "--class", "mail,Mailer"});
  const auto& covering = show({"--at", "0,0"});
  look();
  EXPECT_THAT(listedNumbers(), ElementsAre(covering.window(), icon.window(), dock.window()));
  EXPECT_EQ(listed(dock)->layer, 24);
  EXPECT_EQ(listed(dock)->ownerName, "Menubar");
  EXPECT_EQ(listed(icon)->layer, 25);
  EXPECT_EQ(listed(icon)->name, "Mail");
  EXPECT_EQ(listed(icon)->ownerName, "Mailer");
  EXPECT_EQ(listed(icon)->bounds, (RectDTO{1000, 2, 20, 20}));
  EXPECT_EQ(window(icon), nullptr) << "an icon is an element, not a window";
  EXPECT_THAT(latest.applications, Contains(RunningApplication{"Mailer", icon.pid(), "Mailer"}));
}

TEST_F(DiscoveryWindows, OfARealPanelAreAMenuBarWithItsIcons) {
  TemporaryDirectory settings;
  const auto file =
      settings.write("tint2rc", "panel_items = S\npanel_position = top center horizontal\n"
                                "panel_size = 100% 30\npanel_dock = 0\nsystray_padding = 2 2 2\n"
                                "wm_menu = 0\nstrut_policy = none\n");
  startDesktop({.hasWindowManager = true});
  const auto panel = desktop->start({"tint2", "-c", file});
  desktop->waitFor("tray");
  const auto& icon = show({"--tray", "--size", "22x22", "--title", "Mixer", "--class", "mixer,Mixer"});
  look();
  ASSERT_TRUE(listed(icon));
  EXPECT_EQ(listed(icon)->layer, 25);
  EXPECT_EQ(listed(icon)->name, "Mixer");
  EXPECT_EQ(listed(icon)->ownerName, "Mixer");
  const auto& list = *latest.windowList;
  const auto bar = std::find_if(list.begin(), list.end(), [](const auto& each) { return each.layer == 24; });
  ASSERT_NE(bar, list.end());
  EXPECT_EQ(bar->ownerName, "Menubar");
  EXPECT_TRUE(bar->bounds->intersection(*listed(icon)->bounds));
  EXPECT_EQ(window(*bar->number)->owningApplication->processID, panel->pid());
}

} // namespace
} // namespace tessarin
