#include "desktop/CaptureModels.hpp"

#include "support/FailureOf.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace tessarin {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

DisplayInfoDTO display(std::string id, RectDTO frame, double scale = 1) {
  return {.id = std::move(id),
          .framePoints = frame,
          .scaleFactor = scale,
          .pixelSize = {static_cast<std::int64_t>(frame.width * scale),
                        static_cast<std::int64_t>(frame.height * scale)},
          .isPrimary = true};
}

CaptureRequestDTO regionRequest(RectDTO rect, std::string path = "/tmp/shot.png") {
  return {.kind = CaptureKind::region,
          .displayID = "1",
          .windowID = std::nullopt,
          .rectPoints = rect,
          .outputPath = std::move(path),
          .excludeParentApplication = std::nullopt};
}

std::optional<CaptureRequestError> refusalOf(const CaptureRequestDTO& request,
                                             const std::vector<DisplayInfoDTO>& displays) {
  return failureOf<CaptureRequestError>([&] { (void)request.validated(displays); });
}

const std::vector<DisplayInfoDTO> oneDisplay = {display("1", {0, 0, 1000, 800})};

TEST(CaptureRequestDTO, DecodesEveryField) {
  const auto request = json::decode<CaptureRequestDTO>(
      R"({"kind":"window","displayId":"7","windowId":"42","rectPoints":{"x":1.5,"y":-2,"width":3,"height":4},)"
      R"("outputPath":"/a/b.png","excludeParentApplication":true,"unknown":[]})");
  EXPECT_EQ(request, (CaptureRequestDTO{.kind = CaptureKind::window,
                                        .displayID = "7",
                                        .windowID = "42",
                                        .rectPoints = {1.5, -2, 3, 4},
                                        .outputPath = "/a/b.png",
                                        .excludeParentApplication = true}));
}

TEST(CaptureRequestDTO, RefusesMissingKeysWrongTypesAndUnknownKinds) {
  const std::string whole =
      R"({"kind":"region","displayId":"1","rectPoints":{"x":0,"y":0,"width":1,"height":1},)"
      R"("outputPath":"/a.png"})";
  EXPECT_NO_THROW((void)json::decode<CaptureRequestDTO>(whole));
  for (
      const char* const text : {
          R"({"displayId":"1","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputPath":"/a.png"})",
          R"({"kind":"region","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputPath":"/a.png"})",
          R"({"kind":"region","displayId":"1","outputPath":"/a.png"})",
          R"({"kind":"region","displayId":"1","rectPoints":{"x":0,"y":0,"width":1,"height":1}})",
          R"({"kind":"region","displayId":"1","rectPoints":{"x":0,"y":0,"width":1},"outputPath":"/a.png"})",
          R"({"kind":"screen","displayId":"1","rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputPath":"/a.png"})",
          R"({"kind":"region","displayId":1,"rectPoints":{"x":0,"y":0,"width":1,"height":1},"outputPath":"/a.png"})",
          R"({"kind":"region","displayId":"1","rectPoints":{"x":"0","y":0,"width":1,"height":1},"outputPath":"/a.png"})",
          R"([])",
          R"("region")",
          "",
      })
    EXPECT_THROW((void)json::decode<CaptureRequestDTO>(std::string_view(text)), json::DecodingFailure)
        << text;
}

TEST(CaptureRequestDTO, RefusesGeometryThatIsNotFiniteAndPositiveForEveryKind) {
  for (const RectDTO rect : {RectDTO{0, 0, 0, 10}, RectDTO{0, 0, 10, 0}, RectDTO{0, 0, -1, 10},
                             RectDTO{0, 0, 10, -1}, RectDTO{infinity, 0, 1, 1}, RectDTO{0, notANumber, 1, 1},
                             RectDTO{0, 0, infinity, 1}, RectDTO{0, 0, 1, notANumber}})
    for (const CaptureKind kind : {CaptureKind::region, CaptureKind::window, CaptureKind::display}) {
      CaptureRequestDTO request = regionRequest(rect);
      request.kind = kind;
      request.windowID = "1";
      EXPECT_EQ(refusalOf(request, oneDisplay), CaptureRequestError::invalidGeometry);
    }
}

TEST(CaptureRequestDTO, ChecksTheOutputPath) {
  const struct {
    std::string path;
    bool isAccepted;
  } cases[] = {
      {"/tmp/shot.png", true},
      {"/tmp/a/./shot.PNG", true},
      {"/tmp/a..b/shot.pNg", true},
      {"/tmp/a/../shot.png", false},
      {"/tmp/shot.jpg", false},
      {"tmp/shot.png", false},
      {"~/shot.png", false},
      {"/tmp/shot", false},
      {"/tmp/png", false},
      {"/../shot.png", false},
      {"", false},
      {"/tmp/shot.png.jpg", false},
  };
  for (const auto& each : cases)
    EXPECT_EQ(refusalOf(regionRequest({0, 0, 1, 1}, each.path), oneDisplay),
              each.isAccepted ? std::nullopt : std::optional(CaptureRequestError::invalidOutputPath))
        << each.path;
}

TEST(CaptureRequestDTO, NeedsADisplayOfTheSnapshot) {
  EXPECT_EQ(refusalOf(regionRequest({0, 0, 1, 1}), {}), CaptureRequestError::displayNotFound);
  EXPECT_EQ(refusalOf(regionRequest({0, 0, 1, 1}), {display("2", {0, 0, 10, 10})}),
            CaptureRequestError::displayNotFound);
}

TEST(CaptureRequestDTO, TheFirstRuleThatFailsDecides) {
  EXPECT_EQ(refusalOf(regionRequest({0, 0, 0, 0}, "bad"), {}), CaptureRequestError::invalidGeometry);
  EXPECT_EQ(refusalOf(regionRequest({0, 0, 5000, 1}, "bad"), {}), CaptureRequestError::invalidOutputPath);
  EXPECT_EQ(refusalOf(regionRequest({0, 0, 5000, 1}), {}), CaptureRequestError::displayNotFound);
}

TEST(CaptureRequestDTO, KeepsARegionInsideItsDisplayWithinAMillionthOfAPoint) {
  const struct {
    RectDTO rect;
    bool isAccepted;
  } cases[] = {
      {{0, 0, 1000, 800}, true},         {{0, 0, 1000.0000005, 800}, true}, {{0, 0, 1000.00001, 800}, false},
      {{0, 0, 1000, 800.0000005}, true}, {{0, 0, 1000, 800.00001}, false},  {{-0.0000005, 0, 10, 10}, true},
      {{-0.00001, 0, 10, 10}, false},    {{0, -0.0000005, 10, 10}, true},   {{0, -0.00001, 10, 10}, false},
      {{999, 799, 1, 1}, true},          {{1000, 0, 1, 1}, false},
  };
  for (const auto& each : cases)
    EXPECT_EQ(refusalOf(regionRequest(each.rect), oneDisplay),
              each.isAccepted ? std::nullopt : std::optional(CaptureRequestError::regionOutsideDisplay))
        << each.rect.x << " " << each.rect.y << " " << each.rect.width << " " << each.rect.height;
}

TEST(CaptureRequestDTO, NeedsAWindowIdentifierForAWindow) {
  CaptureRequestDTO request = regionRequest({0, 0, 10, 10});
  request.kind = CaptureKind::window;
  EXPECT_EQ(refusalOf(request, oneDisplay), CaptureRequestError::windowIDRequired);
  request.windowID = "";
  EXPECT_EQ(refusalOf(request, oneDisplay), CaptureRequestError::windowIDRequired);
  request.windowID = "9";
  EXPECT_EQ(refusalOf(request, oneDisplay), std::nullopt);
}

TEST(CaptureRequestDTO, SnapsARegionOutwardToWholePixels) {
  const auto validated = regionRequest({10.3, 0, 10.1, 10}).validated({display("1", {0, 0, 1000, 800}, 2)});
  EXPECT_EQ(validated.outputPixelSize, (SizeDTO{21, 20}));
  EXPECT_EQ(validated.sourceRectPoints, (RectDTO{10, 0, 10.5, 10}));
}

TEST(CaptureRequestDTO, MakesTheSourceLocalToItsDisplay) {
  const auto validated =
      regionRequest({-1900, 20, 30, 40})
          .validated({display("2", {0, 0, 100, 100}), display("1", {-1920, 10, 1920, 1080})});
  EXPECT_EQ(validated.sourceRectPoints, (RectDTO{20, 10, 30, 40}));
  EXPECT_EQ(validated.outputPixelSize, (SizeDTO{30, 40}));
  EXPECT_EQ(validated.display.framePoints, (RectDTO{-1920, 10, 1920, 1080}));
}

TEST(CaptureRequestDTO, ADisplayCaptureTakesTheWholeDisplay) {
  CaptureRequestDTO request = regionRequest({5000, 5000, 1, 1});
  request.kind = CaptureKind::display;
  const auto validated = request.validated({display("1", {100, 50, 640.5, 480}, 2)});
  EXPECT_EQ(validated.sourceRectPoints, (RectDTO{0, 0, 640.5, 480}));
  EXPECT_EQ(validated.outputPixelSize, (SizeDTO{1281, 960}));
}

TEST(CaptureRequestDTO, AWindowMayHangOverTheEdgeOrLieBeyondEveryInteger) {
  CaptureRequestDTO request = regionRequest({-50, 700, 200, 300});
  request.kind = CaptureKind::window;
  request.windowID = "9";
  EXPECT_EQ(request.validated(oneDisplay).sourceRectPoints, (RectDTO{-50, 700, 200, 300}));
  for (const double huge : {1e19, 1e300, 1.7e308}) {
    request.rectPoints = {-huge, 0, huge, huge};
    EXPECT_EQ(refusalOf(request, oneDisplay), std::nullopt);
  }
}

WindowInfoDTO window() {
  return {.id = "9",
          .displayID = "1",
          .ownerPID = 5,
          .ownerName = "App",
          .title = "Title",
          .framePoints = {10, 20, 300, 200},
          .layer = 0,
          .zIndex = 0,
          .isOnScreen = true};
}

CaptureRequestDTO windowRequest() {
  CaptureRequestDTO request = regionRequest(window().framePoints);
  request.kind = CaptureKind::window;
  request.windowID = "9";
  return request;
}

bool isCurrent(const CaptureRequestDTO& request, const WindowInfoDTO* candidate) {
  try {
    request.validateCurrentWindow(candidate);
    return true;
  } catch (const Failure<CaptureRequestError>& failure) {
    EXPECT_EQ(failure.value(), CaptureRequestError::windowChanged);
    return false;
  }
}

TEST(CaptureRequestDTO, OnlyAWindowRequestLooksAtTheWindow) {
  CaptureRequestDTO request = windowRequest();
  EXPECT_FALSE(isCurrent(request, nullptr));
  request.kind = CaptureKind::region;
  EXPECT_TRUE(isCurrent(request, nullptr));
  request.kind = CaptureKind::display;
  EXPECT_TRUE(isCurrent(request, nullptr));
}

TEST(CaptureRequestDTO, AChangedWindowIsRefused) {
  const WindowInfoDTO original = window();
  EXPECT_TRUE(isCurrent(windowRequest(), &original));

  CaptureRequestDTO withoutWindow = windowRequest();
  withoutWindow.windowID.reset();
  EXPECT_FALSE(isCurrent(withoutWindow, &original));

  const struct {
    const char* what;
    void (*change)(WindowInfoDTO&);
    bool isCurrent;
  } cases[] = {
      {"another id", [](WindowInfoDTO& w) { w.id = "8"; }, false},
      {"another display", [](WindowInfoDTO& w) { w.displayID = "2"; }, false},
      {"off screen", [](WindowInfoDTO& w) { w.isOnScreen = false; }, false},
      {"a menu bar now", [](WindowInfoDTO& w) { w.layer = 24; }, false},
      {"a panel now", [](WindowInfoDTO& w) { w.layer = 3; }, true},
      {"another title", [](WindowInfoDTO& w) { w.title = "Other"; }, true},
      {"x by half a point", [](WindowInfoDTO& w) { w.framePoints.x += 0.5; }, true},
      {"x by more", [](WindowInfoDTO& w) { w.framePoints.x += 0.6; }, false},
      {"y by half a point", [](WindowInfoDTO& w) { w.framePoints.y -= 0.5; }, true},
      {"y by more", [](WindowInfoDTO& w) { w.framePoints.y -= 0.6; }, false},
      {"width by half a point", [](WindowInfoDTO& w) { w.framePoints.width += 0.5; }, true},
      {"width by more", [](WindowInfoDTO& w) { w.framePoints.width += 0.6; }, false},
      {"height by half a point", [](WindowInfoDTO& w) { w.framePoints.height -= 0.5; }, true},
      {"height by more", [](WindowInfoDTO& w) { w.framePoints.height -= 0.6; }, false},
  };
  for (const auto& each : cases) {
    WindowInfoDTO changed = window();
    each.change(changed);
    EXPECT_EQ(isCurrent(windowRequest(), &changed), each.isCurrent) << each.what;
  }
}

TEST(CapturedImagePayload, WritesSortedKeysAndPlainSlashes) {
  EXPECT_EQ(json::encode(CapturedImagePayload{"/tmp/shot.png", 640, 480, 1.5}),
            R"({"heightPixels":480,"path":"/tmp/shot.png","scaleFactor":1.5,"widthPixels":640})");
}

TEST(CaptureContextPayload, WritesEveryRecordWithIdentifiersInId) {
  CaptureContextPayload payload;
  payload.displays.push_back(display("1", {0, 0, 10, 10}));
  payload.windows.push_back(window());
  payload.uiElements.push_back({.id = "macos-ui-3",
                                .displayID = "1",
                                .label = "Menu Bar",
                                .kind = UIElementKind::menuBar,
                                .framePoints = {0, 0, 10, 2},
                                .zIndex = 1});
  EXPECT_EQ(json::encode(payload),
            R"({"displays":[{"framePoints":{"height":10,"width":10,"x":0,"y":0},"id":"1","isPrimary":true,)"
            R"("pixelSize":{"height":10,"width":10},"scaleFactor":1}],"permission":"granted",)"
            R"("uiElements":[{"displayId":"1","framePoints":{"height":2,"width":10,"x":0,"y":0},)"
            R"("id":"macos-ui-3","kind":"menuBar","label":"Menu Bar","zIndex":1}],)"
            R"("windows":[{"displayId":"1","framePoints":{"height":200,"width":300,"x":10,"y":20},"id":"9",)"
            R"("isOnScreen":true,"layer":0,"ownerName":"App","ownerPid":5,"title":"Title","zIndex":0}]})");
}

} // namespace
} // namespace tessarin
