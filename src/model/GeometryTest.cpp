#include "model/Geometry.hpp"

#include "model/Permission.hpp"
#include "model/RecordingCodec.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

DisplayInfoDTO displayAt(std::string id, RectDTO frame) {
  return {.id = std::move(id), .framePoints = frame, .scaleFactor = 1, .pixelSize = {}, .isPrimary = false};
}

TEST(Rect, IsFiniteAndPositive) {
  EXPECT_TRUE((RectDTO{0, 0, 1, 1}.isFiniteAndPositive()));
  EXPECT_TRUE((RectDTO{-5, -1e300, 1e-300, 1e300}.isFiniteAndPositive()));
  for (const RectDTO& rect :
       {RectDTO{}, RectDTO{0, 0, 0, 1}, RectDTO{0, 0, 1, 0}, RectDTO{0, 0, -1, 1}, RectDTO{0, 0, 1, -1},
        RectDTO{infinity, 0, 1, 1}, RectDTO{0, -infinity, 1, 1}, RectDTO{0, 0, infinity, 1},
        RectDTO{0, 0, 1, infinity}, RectDTO{notANumber, 0, 1, 1}, RectDTO{0, notANumber, 1, 1},
        RectDTO{0, 0, notANumber, 1}, RectDTO{0, 0, 1, notANumber}})
    EXPECT_FALSE(rect.isFiniteAndPositive());
}

TEST(Rect, IntersectsWhereBothAre) {
  const RectDTO rect{10, 20, 30, 40};
  EXPECT_EQ(rect.intersection(rect), rect);
  EXPECT_EQ(rect.intersection({0, 0, 15, 25}), (RectDTO{10, 20, 5, 5}));
  EXPECT_EQ(rect.intersection({35, 55, 100, 100}), (RectDTO{35, 55, 5, 5}));
  EXPECT_EQ(rect.intersection({15, 0, 5, 100}), (RectDTO{15, 20, 5, 40}));
  EXPECT_EQ((RectDTO{-10, -10, 5, 5}.intersection({-7, -20, 1, 100})), (RectDTO{-7, -10, 1, 5}));
}

TEST(Rect, DoesNotIntersectWhatItOnlyTouches) {
  const RectDTO rect{10, 20, 30, 40};
  for (const RectDTO& other :
       {RectDTO{0, 20, 10, 40}, RectDTO{40, 20, 10, 40}, RectDTO{10, 0, 30, 20}, RectDTO{10, 60, 30, 5},
        RectDTO{0, 0, 10, 20}, RectDTO{100, 100, 1, 1}, RectDTO{15, 25, 0, 5}}) {
    EXPECT_FALSE(rect.intersection(other));
    EXPECT_FALSE(other.intersection(rect));
  }
  EXPECT_TRUE(rect.intersection({0, 20, 10.001, 40}));
}

TEST(WindowLayer, OrdinaryWindowsAreEligibleAtAnySize) {
  EXPECT_TRUE(CaptureWindowLayer::isEligible(0, {0, 0, 1, 1}));
  EXPECT_TRUE(CaptureWindowLayer::isEligible(0, {0, 0, 0.1, 0.1}));
}

TEST(WindowLayer, OtherLayersNeedEightPointsASide) {
  EXPECT_TRUE(CaptureWindowLayer::isEligible(3, {0, 0, 8, 8}));
  EXPECT_FALSE(CaptureWindowLayer::isEligible(3, {0, 0, 7, 100}));
  EXPECT_FALSE(CaptureWindowLayer::isEligible(3, {0, 0, 7.999, 100}));
  EXPECT_FALSE(CaptureWindowLayer::isEligible(3, {0, 0, 100, 7.999}));
}

TEST(WindowLayer, FurnitureAndNegativeLayersAreRefused) {
  const RectDTO frame{0, 0, 100, 100};
  struct Row {
    std::int64_t layer;
    bool isEligible;
  };
  for (const Row& row :
       {Row{0, true}, Row{1, true}, Row{19, true}, Row{20, false}, Row{21, true}, Row{23, true},
        Row{24, false}, Row{25, false}, Row{26, true}, Row{101, true}, Row{2147483629, true},
        Row{2147483630, false}, Row{-1, false}, Row{std::numeric_limits<std::int64_t>::min(), false},
        Row{std::numeric_limits<std::int64_t>::max(), false}})
    EXPECT_EQ(CaptureWindowLayer::isEligible(row.layer, frame), row.isEligible) << row.layer;
}

TEST(WindowLayer, AFrameMustBeFiniteAndPositive) {
  for (const RectDTO& frame :
       {RectDTO{0, 0, 0, 10}, RectDTO{0, 0, 10, -1}, RectDTO{notANumber, 0, 10, 10},
        RectDTO{0, infinity, 10, 10}, RectDTO{0, 0, infinity, 10}, RectDTO{0, 0, 10, notANumber}})
    EXPECT_FALSE(CaptureWindowLayer::isEligible(0, frame));
}

TEST(WindowDisplay, IsTheOneThatHoldsMostOfTheWindow) {
  const std::vector<DisplayInfoDTO> displays = {displayAt("1", {0, 0, 100, 100}),
                                                displayAt("2", {100, 0, 100, 100})};
  using WindowDisplayAssignment::displayID;
  EXPECT_EQ(displayID({10, 10, 20, 20}, displays), "1");
  EXPECT_EQ(displayID({90, 10, 30, 20}, displays), "2");
  EXPECT_EQ(displayID({89, 10, 20, 20}, displays), "1");
  EXPECT_EQ(displayID({-50, -50, 1000, 1000}, displays), "1");
}

TEST(WindowDisplay, IsTheEarlierOneOnATie) {
  const std::vector<DisplayInfoDTO> displays = {
      displayAt("8", {100, 0, 100, 100}), displayAt("3", {0, 0, 100, 100}), displayAt("5", {0, 0, 100, 100})};
  EXPECT_EQ(WindowDisplayAssignment::displayID({90, 10, 20, 20}, displays), "8");
  EXPECT_EQ(WindowDisplayAssignment::displayID({10, 10, 20, 20}, displays), "3");
}

TEST(WindowDisplay, IsNoneWhereThereIsNone) {
  const std::vector<DisplayInfoDTO> displays = {displayAt("1", {0, 0, 100, 100})};
  EXPECT_FALSE(WindowDisplayAssignment::displayID({100, 0, 50, 50}, displays));
  EXPECT_FALSE(WindowDisplayAssignment::displayID({-50, 0, 50, 50}, displays));
  EXPECT_FALSE(WindowDisplayAssignment::displayID({10, 10, 0, 50}, displays));
  EXPECT_FALSE(WindowDisplayAssignment::displayID({notANumber, 10, 10, 50}, displays));
  EXPECT_FALSE(WindowDisplayAssignment::displayID({10, 10, 10, 10}, {}));
}

TEST(GeometryRecords, HaveTheirKeysOnTheWire) {
  const DisplayInfoDTO display{.id = "7",
                               .framePoints = {0, -1.5, 1280, 720},
                               .scaleFactor = 1.5,
                               .pixelSize = {1920, 1080},
                               .isPrimary = true};
  EXPECT_EQ(json::encode(display),
            R"({"framePoints":{"height":720,"width":1280,"x":0,"y":-1.5},"id":"7",)"
            R"("isPrimary":true,"pixelSize":{"height":1080,"width":1920},"scaleFactor":1.5})");
  EXPECT_EQ(json::decode<DisplayInfoDTO>(json::encode(display)), display);

  const WindowInfoDTO window{.id = "9",
                             .displayID = "7",
                             .ownerPID = 42,
                             .ownerName = "Editor",
                             .title = "notes",
                             .framePoints = {1, 2, 3, 4},
                             .layer = 3,
                             .zIndex = 1,
                             .isOnScreen = true};
  EXPECT_EQ(json::encode(window),
            R"({"displayId":"7","framePoints":{"height":4,"width":3,"x":1,"y":2},"id":"9","isOnScreen":true,)"
            R"("layer":3,"ownerName":"Editor","ownerPid":42,"title":"notes","zIndex":1})");
  EXPECT_EQ(json::decode<WindowInfoDTO>(json::encode(window)), window);

  const UIElementInfoDTO element{.id = "e",
                                 .displayID = "7",
                                 .label = "Clock",
                                 .kind = UIElementKind::menuBarItem,
                                 .framePoints = {1, 2, 3, 4},
                                 .zIndex = 0};
  EXPECT_EQ(
      json::encode(element),
      R"({"displayId":"7","framePoints":{"height":4,"width":3,"x":1,"y":2},"id":"e","kind":"menuBarItem",)"
      R"("label":"Clock","zIndex":0})");
  EXPECT_EQ(json::decode<UIElementInfoDTO>(json::encode(element)), element);
}

TEST(GeometryRecords, TakeEachOtherKindOfNumberWhereItFits) {
  EXPECT_EQ(json::decode<RectDTO>(R"({"x":1,"y":-2,"width":3e2,"height":0.5})"), (RectDTO{1, -2, 300, 0.5}));
  EXPECT_EQ(json::decode<SizeDTO>(R"({"width":3.0,"height":-4})"), (SizeDTO{3, -4}));
  EXPECT_THROW(json::decode<SizeDTO>(R"({"width":3.5,"height":4})"), json::DecodingFailure);
  EXPECT_THROW(json::decode<RectDTO>(R"({"x":1,"y":2,"width":3})"), json::DecodingFailure);
  EXPECT_THROW(json::decode<RectDTO>(R"({"x":"1","y":2,"width":3,"height":4})"), json::DecodingFailure);
}

TEST(GeometryRecords, KeepTheWindowOwnersProcessToThirtyTwoBits) {
  const auto withOwner = [](const std::string& pid) {
    return json::decode<WindowInfoDTO>(
        R"({"id":"","displayId":"","ownerName":"","title":"","framePoints":{"x":0,"y":0,"width":0,"height":0},)"
        R"("layer":0,"zIndex":0,"isOnScreen":false,"ownerPid":)" +
        pid + "}");
  };
  EXPECT_EQ(withOwner("2147483647").ownerPID, 2147483647);
  EXPECT_EQ(withOwner("-2147483648").ownerPID, std::numeric_limits<std::int32_t>::min());
  EXPECT_THROW(withOwner("2147483648"), json::DecodingFailure);
  EXPECT_THROW(withOwner("-2147483649"), json::DecodingFailure);
}

template<class Enumeration> std::vector<std::string_view> namesInOrder() {
  std::vector<std::string_view> names;
  for (const auto& [value, name] : jsonNames(Enumeration{})) {
    EXPECT_EQ(static_cast<std::size_t>(value), names.size());
    names.push_back(name);
  }
  return names;
}

TEST(WireNames, StandInTheirOrder) {
  using Names = std::vector<std::string_view>;
  EXPECT_EQ(namesInOrder<CaptureKind>(), (Names{"region", "window", "display"}));
  EXPECT_EQ(namesInOrder<UIElementKind>(), (Names{"menuBar", "menuBarItem", "webElement"}));
  EXPECT_EQ(namesInOrder<PermissionStatus>(), (Names{"granted", "denied", "notDetermined", "restricted"}));
  EXPECT_EQ(namesInOrder<RecordingCodec>(), (Names{"h264", "hevc"}));
  EXPECT_EQ(json::encode(PermissionPayload{PermissionStatus::restricted}), R"({"permission":"restricted"})");
}

} // namespace
} // namespace tessarin
