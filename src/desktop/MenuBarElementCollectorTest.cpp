#include "desktop/MenuBarElementCollector.hpp"

#include "desktop/WindowZOrderResolver.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const std::vector<DisplayInfoDTO> displays = {{.id = "1",
                                               .framePoints = {0, 0, 1000, 800},
                                               .scaleFactor = 1,
                                               .pixelSize = {1000, 800},
                                               .isPrimary = true},
                                              {.id = "2",
                                               .framePoints = {1000, 0, 500, 800},
                                               .scaleFactor = 1,
                                               .pixelSize = {500, 800},
                                               .isPrimary = false}};

WindowListEntry bar(std::uint32_t number, RectDTO frame, std::string owner = "Menubar") {
  return {.number = number, .layer = 24, .bounds = frame, .ownerName = std::move(owner), .name = "bar"};
}

WindowListEntry item(std::uint32_t number, RectDTO frame, std::string name = "", std::string owner = "") {
  return {
      .number = number, .layer = 25, .bounds = frame, .ownerName = std::move(owner), .name = std::move(name)};
}

std::vector<std::string> ids(const std::vector<UIElementInfoDTO>& elements) {
  std::vector<std::string> result;
  for (const auto& element : elements)
    result.push_back(element.id);
  return result;
}

TEST(WindowZOrderResolver, NumbersTheListFromTheFront) {
  const WindowListEntry unnumbered{
      .number = std::nullopt, .layer = 0, .bounds = std::nullopt, .ownerName = "", .name = ""};
  EXPECT_THAT(WindowZOrderResolver::resolve({item(7, {}), unnumbered, item(3, {}), item(7, {}), item(9, {})}),
              ElementsAre(Pair(3, 2), Pair(7, 0), Pair(9, 4)));
  EXPECT_THAT(WindowZOrderResolver::resolve({}), IsEmpty());
}

TEST(MenuBarElementCollector, OffersABarAndTheItemsOnIt) {
  const auto elements = MenuBarElementCollector::collect(
      {item(5, {900, 4, 20, 16}, "Network"), bar(4, {0, 0, 1000, 24})}, displays);
  EXPECT_THAT(elements, ElementsAre(UIElementInfoDTO{.id = "macos-ui-5",
                                                     .displayID = "1",
                                                     .label = "Network",
                                                     .kind = UIElementKind::menuBarItem,
                                                     .framePoints = {900, 4, 20, 16},
                                                     .zIndex = 0},
                                    UIElementInfoDTO{.id = "macos-ui-4",
                                                     .displayID = "1",
                                                     .label = "Menu Bar",
                                                     .kind = UIElementKind::menuBar,
                                                     .framePoints = {0, 0, 1000, 24},
                                                     .zIndex = 1}));
}

TEST(MenuBarElementCollector, TheOwnerOfABarIsComparedWithoutRegardToCase) {
  const RectDTO frame{0, 0, 1000, 24};
  for (const char* const owner : {"Menubar", "MENUBAR", "menubar"})
    EXPECT_EQ(MenuBarElementCollector::collect({bar(1, frame, owner)}, displays).size(), 1U) << owner;
  for (const char* const owner : {"", "Menubar ", "Menu", "Dock"})
    EXPECT_THAT(MenuBarElementCollector::collect({bar(1, frame, owner), item(2, {0, 0, 9, 9})}, displays),
                IsEmpty())
        << owner;
}

TEST(MenuBarElementCollector, AnItemMustOverlapABar) {
  const WindowListEntry menuBar = bar(1, {0, 0, 1000, 24});
  EXPECT_THAT(ids(MenuBarElementCollector::collect({menuBar, item(2, {10, 23.5, 9, 9})}, displays)),
              ElementsAre("macos-ui-1", "macos-ui-2"));
  EXPECT_THAT(ids(MenuBarElementCollector::collect({menuBar, item(2, {10, 24, 9, 9})}, displays)),
              ElementsAre("macos-ui-1"));
  EXPECT_THAT(MenuBarElementCollector::collect({item(2, {10, 0, 9, 9})}, displays), IsEmpty());
}

TEST(MenuBarElementCollector, AnItemOnTheSecondDisplaysBarHasThatDisplay) {
  const auto elements = MenuBarElementCollector::collect(
      {bar(1, {0, 0, 1000, 24}), bar(2, {1000, 0, 500, 24}), item(3, {1400, 2, 20, 20})}, displays);
  ASSERT_EQ(elements.size(), 3U);
  EXPECT_EQ(elements[1].displayID, "2");
  EXPECT_EQ(elements[2].displayID, "2");
}

TEST(MenuBarElementCollector, CutsAnElementAtItsDisplaysEdge) {
  const auto elements = MenuBarElementCollector::collect({bar(1, {-10, -5, 1200, 30})}, displays);
  ASSERT_EQ(elements.size(), 1U);
  EXPECT_EQ(elements[0].framePoints, (RectDTO{0, 0, 1000, 25}));
}

TEST(MenuBarElementCollector, DropsWhatLiesOnNoDisplay) {
  EXPECT_THAT(MenuBarElementCollector::collect({bar(1, {5000, 0, 100, 24})}, displays), IsEmpty());
}

TEST(MenuBarElementCollector, LabelsAnItemByNameThenOwnerThenInGeneral) {
  const WindowListEntry menuBar = bar(1, {0, 0, 1000, 24});
  const struct {
    const char* name;
    const char* owner;
    const char* label;
  } cases[] = {{" Clock \n", "Panel", "Clock"},
               {"  ", " Panel ", "Panel"},
               {"", "Panel", "Panel"},
               {"", "", "Status Item"},
               {"\t", " ", "Status Item"}};
  for (const auto& each : cases) {
    const auto elements =
        MenuBarElementCollector::collect({menuBar, item(2, {0, 0, 9, 9}, each.name, each.owner)}, displays);
    ASSERT_EQ(elements.size(), 2U);
    EXPECT_EQ(elements[1].label, each.label);
  }
}

TEST(MenuBarElementCollector, PassesOverEntriesThatCannotBeRead) {
  const struct {
    const char* what;
    void (*change)(WindowListEntry&);
  } cases[] = {{"no number", [](WindowListEntry& e) { e.number.reset(); }},
               {"no layer", [](WindowListEntry& e) { e.layer.reset(); }},
               {"another layer", [](WindowListEntry& e) { e.layer = 23; }},
               {"a layer above", [](WindowListEntry& e) { e.layer = 26; }},
               {"no bounds", [](WindowListEntry& e) { e.bounds.reset(); }},
               {"no width", [](WindowListEntry& e) { e.bounds->width = 0; }},
               {"no height", [](WindowListEntry& e) { e.bounds->height = 0; }}};
  for (const auto& each : cases) {
    WindowListEntry entry = bar(1, {0, 0, 1000, 24});
    each.change(entry);
    EXPECT_THAT(MenuBarElementCollector::collect({entry}, displays), IsEmpty()) << each.what;
  }
}

} // namespace
} // namespace tessarin
