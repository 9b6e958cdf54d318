#include "recording/RecordingModels.hpp"

#include "support/FailureOf.hpp"
#include "support/RecordingRequests.hpp"

#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using Error = RecordingRequestError;

std::optional<Error> errorOf(const RecordingRequestDTO& request,
                             const std::vector<DisplayInfoDTO>& displays = {sampleDisplay()},
                             const std::vector<WindowInfoDTO>& windows = {sampleWindow()}) {
  return failureOf<Error>([&] { request.validated(displays, windows); });
}

std::optional<Error> errorAfter(CaptureKind kind, const std::function<void(RecordingRequestDTO&)>& change) {
  RecordingRequestDTO request = sampleRequest(kind);
  change(request);
  return errorOf(request);
}

TEST(RecordingRequestValidation, TellsEachErrorInItsOwnSentence) {
  const std::vector<std::pair<Error, std::string>> rows = {
      {Error::invalidEncoding, "The recording request could not be decoded."},
      {Error::invalidSessionID, "The recording session identifier is invalid."},
      {Error::invalidGeometry, "Recording geometry must contain finite, positive dimensions."},
      {Error::invalidOutputDirectory, "The recording output directory is invalid."},
      {Error::displayNotFound, "The selected display is no longer available."},
      {Error::regionOutsideDisplay, "The recording region must stay within its display."},
      {Error::unsupportedFrameRate, "The recording frame rate must be 15, 30, or 60 FPS."},
      {Error::windowIDRequired, "Window recording requires a selected window."},
      {Error::windowNotFound, "The selected window is no longer available."},
      {Error::windowChanged, "The selected window changed before recording started."},
  };
  for (const auto& [error, message] : rows)
    EXPECT_EQ(messageOf(error), message);
}

TEST(RecordingRequestValidation, NeedsAUuid) {
  for (const std::string id :
       {"", "session", "6f1c2d3e4a5b4c6d8e7f0a1b2c3d4e5f", "6f1c2d3e-4a5b-4c6d-8e7f-0a1b2c3d4e5",
        "{6f1c2d3e-4a5b-4c6d-8e7f-0a1b2c3d4e5f}"})
    EXPECT_EQ(errorAfter(CaptureKind::display,
                         [&](auto& request) {
                           request.sessionID = id;
                           request.outputDirectory = "/tmp/" + id;
                         }),
              Error::invalidSessionID)
        << id;
  EXPECT_EQ(errorAfter(CaptureKind::display,
                       [](auto& request) {
                         request.sessionID = "6F1C2D3E-4A5B-4C6D-8E7F-0A1B2C3D4E5F";
                         request.outputDirectory = "/tmp/6F1C2D3E-4A5B-4C6D-8E7F-0A1B2C3D4E5F";
                       }),
            std::nullopt);
}

TEST(RecordingRequestValidation, NeedsAFiniteRectangleWithAnArea) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const RectDTO rect :
       {RectDTO{0, 0, 0, 10}, RectDTO{0, 0, 10, 0}, RectDTO{0, 0, -1, 10}, RectDTO{0, 0, 10, -1},
        RectDTO{infinity, 0, 10, 10}, RectDTO{0, -infinity, 10, 10}, RectDTO{0, 0, infinity, 10},
        RectDTO{0, 0, 10, infinity}, RectDTO{nan, 0, 10, 10}, RectDTO{0, nan, 10, 10}, RectDTO{0, 0, nan, 10},
        RectDTO{0, 0, 10, nan}})
    EXPECT_EQ(errorAfter(CaptureKind::display, [&](auto& request) { request.rectPoints = rect; }),
              Error::invalidGeometry);
}

TEST(RecordingRequestValidation, KnowsThreeFrameRates) {
  for (const std::int64_t rate : {15, 30, 60})
    EXPECT_EQ(errorAfter(CaptureKind::display, [&](auto& request) { request.settings.frameRate = rate; }),
              std::nullopt);
  for (const std::int64_t rate : {-30, 0, 14, 16, 24, 29, 31, 59, 61, 120})
    EXPECT_EQ(errorAfter(CaptureKind::display, [&](auto& request) { request.settings.frameRate = rate; }),
              Error::unsupportedFrameRate)
        << rate;
}

TEST(RecordingRequestValidation, BoundsThePresentation) {
  const auto errorWith = [](std::int64_t scale, std::optional<RecordingCameraPlacementDTO> placement) {
    return errorAfter(CaptureKind::display, [&](auto& request) {
      request.settings.presentation =
          RecordingPresentationDTO{placement, RecordingCursorStyle::system, scale, false};
    });
  };
  for (const std::int64_t scale : {100, 150, 200})
    EXPECT_EQ(errorWith(scale, std::nullopt), std::nullopt);
  for (const std::int64_t scale : {0, 99, 101, 125, 149, 151, 199, 201})
    EXPECT_EQ(errorWith(scale, std::nullopt), Error::invalidGeometry) << scale;

  using Placement = RecordingCameraPlacementDTO;
  for (const Placement place : {Placement{0, 0}, Placement{10000, 0}, Placement{0, 10000}})
    EXPECT_EQ(errorWith(100, place), std::nullopt);
  for (const Placement place : {Placement{10001, 0}, Placement{0, 10001}, Placement{-1, 0}, Placement{0, -1}})
    EXPECT_EQ(errorWith(100, place), Error::invalidGeometry);
}

TEST(RecordingRequestValidation, TiesTheOutputDirectoryToTheSession) {
  const auto errorWith = [](const std::string& directory) {
    return errorAfter(CaptureKind::display, [&](auto& request) { request.outputDirectory = directory; });
  };
  EXPECT_EQ(errorWith("/" + sampleSessionID), std::nullopt);
  EXPECT_EQ(errorWith("/tmp/./" + sampleSessionID + "/"), std::nullopt);
  EXPECT_EQ(errorWith("/tmp/..hidden/" + sampleSessionID), std::nullopt);
  for (const std::string& directory :
       {std::string(), sampleSessionID, "./" + sampleSessionID, "~/" + sampleSessionID,
        "/tmp/../" + sampleSessionID, "/tmp/" + sampleSessionID + "/..", "/tmp/" + sampleSessionID + "x",
        std::string("/tmp/6F1C2D3E-4a5b-4c6d-8e7f-0a1b2c3d4e5f"), std::string("/"),
        "/tmp" + std::string(1, '\0') + "/" + sampleSessionID})
    EXPECT_EQ(errorWith(directory), Error::invalidOutputDirectory) << directory;
}

TEST(RecordingRequestValidation, TakesTheFirstDisplayOfThatIdentifier) {
  EXPECT_EQ(errorOf(sampleRequest(), {}), Error::displayNotFound);
  DisplayInfoDTO other = sampleDisplay();
  other.id = "78";
  EXPECT_EQ(errorOf(sampleRequest(), {other}), Error::displayNotFound);
  DisplayInfoDTO twin = sampleDisplay();
  twin.scaleFactor = 2;
  EXPECT_EQ(sampleRequest().validated({other, sampleDisplay(), twin}, {}).display, sampleDisplay());
}

TEST(RecordingRequestValidation, KeepsARegionWithinItsDisplay) {
  const RectDTO frame = sampleDisplay().framePoints; // 100, 50, 1920 x 1080
  const auto errorWith = [](const RectDTO& region) {
    return errorAfter(CaptureKind::region, [&](auto& request) { request.rectPoints = region; });
  };
  EXPECT_EQ(errorWith(frame), std::nullopt);
  const std::vector<std::function<RectDTO(double)>> overhangs = {
      [&](double by) {
        return RectDTO{frame.x - by, frame.y, 10, 10};
      },
      [&](double by) {
        return RectDTO{frame.x, frame.y - by, 10, 10};
      },
      [&](double by) {
        return RectDTO{frame.x + 1000, frame.y, 920 + by, 10};
      },
      [&](double by) {
        return RectDTO{frame.x, frame.y + 1000, 10, 80 + by};
      },
  };
  for (const auto& overhang : overhangs) {
    EXPECT_EQ(errorWith(overhang(1e-7)), std::nullopt);
    EXPECT_EQ(errorWith(overhang(1e-5)), Error::regionOutsideDisplay);
  }
}

TEST(RecordingRequestValidation, MakesTheSourceRelativeToWhatIsRecorded) {
  RecordingRequestDTO region = sampleRequest(CaptureKind::region);
  region.rectPoints = {110.5, 70, 30, 40};
  const ValidatedRecordingRequest ofRegion = region.validated({sampleDisplay()}, {sampleWindow()});
  EXPECT_EQ(ofRegion.sourceRectPoints, (RectDTO{10.5, 20, 30, 40}));
  EXPECT_EQ(ofRegion.window, std::nullopt);
  EXPECT_EQ(ofRegion.request, region);

  RecordingRequestDTO display = sampleRequest(CaptureKind::display);
  display.rectPoints = {-5000, 0, 1, 1};
  const ValidatedRecordingRequest ofDisplay = display.validated({sampleDisplay()}, {sampleWindow()});
  EXPECT_EQ(ofDisplay.sourceRectPoints, (RectDTO{0, 0, 1920, 1080}));
  EXPECT_EQ(ofDisplay.window, std::nullopt);

  RecordingRequestDTO window = sampleRequest(CaptureKind::window);
  window.rectPoints.width += 0.5;
  const ValidatedRecordingRequest ofWindow = window.validated({sampleDisplay()}, {sampleWindow()});
  EXPECT_EQ(ofWindow.sourceRectPoints, (RectDTO{0, 0, 640, 480}));
  EXPECT_EQ(ofWindow.window, sampleWindow());
}

TEST(RecordingRequestValidation, NeedsAWindowThatIsThere) {
  EXPECT_EQ(errorAfter(CaptureKind::window, [](auto& request) { request.windowID.reset(); }),
            Error::windowIDRequired);
  EXPECT_EQ(errorAfter(CaptureKind::window, [](auto& request) { request.windowID = ""; }),
            Error::windowIDRequired);
  EXPECT_EQ(errorAfter(CaptureKind::window, [](auto& request) { request.windowID = "1"; }),
            Error::windowNotFound);
  EXPECT_EQ(errorOf(sampleRequest(CaptureKind::window), {sampleDisplay()}, {}), Error::windowNotFound);
}

TEST(RecordingRequestValidation, TakesTheFirstWindowOfThatIdentifier) {
  WindowInfoDTO other = sampleWindow();
  other.id = "1";
  WindowInfoDTO twin = sampleWindow();
  twin.title = "twin";
  const RecordingRequestDTO request = sampleRequest(CaptureKind::window);
  EXPECT_EQ(request.validated({sampleDisplay()}, {other, sampleWindow(), twin}).window, sampleWindow());
  twin.isOnScreen = false;
  EXPECT_EQ(errorOf(request, {sampleDisplay()}, {twin, sampleWindow()}), Error::windowChanged)
      << "the first one decides also when it does not do";
}

TEST(RecordingRequestValidation, NeedsTheWindowAsItWasSelected) {
  const auto errorWith = [](const std::function<void(WindowInfoDTO&)>& change) {
    WindowInfoDTO window = sampleWindow();
    change(window);
    return errorOf(sampleRequest(CaptureKind::window), {sampleDisplay()}, {window});
  };
  EXPECT_EQ(errorWith([](auto&) {}), std::nullopt);
  EXPECT_EQ(errorWith([](auto& window) { window.displayID = "78"; }), Error::windowChanged);
  EXPECT_EQ(errorWith([](auto& window) { window.isOnScreen = false; }), Error::windowChanged);
  EXPECT_EQ(errorWith([](auto& window) { window.layer = 24; }), Error::windowChanged);
  for (double RectDTO::*side : {&RectDTO::x, &RectDTO::y, &RectDTO::width, &RectDTO::height})
    for (const double sign : {1.0, -1.0}) {
      EXPECT_EQ(errorWith([&](auto& window) { window.framePoints.*side += sign * 0.5; }), std::nullopt);
      EXPECT_EQ(errorWith([&](auto& window) { window.framePoints.*side += sign * 0.6; }),
                Error::windowChanged);
    }
}

TEST(RecordingRequestValidation, ReportsTheFirstBrokenRule) {
  // Every rule is broken; each row mends the one that was reported.
  RecordingRequestDTO request = sampleRequest(CaptureKind::region);
  request.sessionID = "x";
  request.rectPoints = {0, 0, 0, 0};
  request.settings.frameRate = 1;
  request.settings.presentation =
      RecordingPresentationDTO{std::nullopt, RecordingCursorStyle::system, 125, false};
  request.outputDirectory = "";
  std::vector<DisplayInfoDTO> displays;
  EXPECT_EQ(errorOf(request, displays), Error::invalidSessionID);
  request.sessionID = sampleSessionID;
  EXPECT_EQ(errorOf(request, displays), Error::invalidGeometry);
  request.rectPoints = {0, 0, 1, 1};
  EXPECT_EQ(errorOf(request, displays), Error::unsupportedFrameRate);
  request.settings.frameRate = 15;
  EXPECT_EQ(errorOf(request, displays), Error::invalidGeometry);
  request.settings.presentation->cursorScale = 150;
  EXPECT_EQ(errorOf(request, displays), Error::invalidOutputDirectory);
  request.outputDirectory = "/tmp/" + sampleSessionID;
  EXPECT_EQ(errorOf(request, displays), Error::displayNotFound);
  displays.push_back(sampleDisplay());
  EXPECT_EQ(errorOf(request, displays), Error::regionOutsideDisplay);
  request.rectPoints = {200, 200, 1, 1};
  EXPECT_EQ(errorOf(request, displays), std::nullopt);
}

} // namespace
} // namespace tessarin
