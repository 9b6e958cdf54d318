#include "backends/x11/Displays.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace tessarin::x11 {
namespace {

TEST(Displays, TakeTheirScaleFromTheResolutionSetForText) {
  struct Case {
    const char* resources;
    double scale;
  };
  for (const auto& [resources, scale] : {
           Case{"", 1},
           {"Xft.dpi:\t96\n", 1},
           {"Xft.dpi:\t192\n", 2},
           {"Xft.dpi: 144", 1.5},
           {"Xft.antialias:\t1\nXft.dpi:\t120\nXft.hinting:\t1\n", 1.25},
           {"Xft.dpi:\t95\n", 1},
           {"Xft.dpi:\t384\n", 4},
           {"Xft.dpi:\t385\n", 4},
           {"Xft.dpi:\t-192\n", 1},
           {"Xft.dpi:\tnan\n", 1},
           {"Xft.dpi:\tinf\n", 1},
           {"Xft.dpi:\t192x\n", 1},
           {"Xft.dpi:\n", 1},
           {"Xft.dpi", 1},
           {"OtherXft.dpi:\t192\n", 1},
           {"Xft.dpi:\t144\nXft.dpi:\t192\n", 2},
       }) {
    EXPECT_EQ(scaleFromResources(resources), scale) << resources;
  }
}

TEST(Displays, KeepTheirScaleInSinglePrecision) {
  EXPECT_EQ(scaleFromResources("Xft.dpi:\t100\n"), static_cast<double>(static_cast<float>(100.0 / 96)));
}

TEST(Displays, GiveTheirPixelSizeAgainFromPointsAtEveryScale) {
  for (int dotsPerInch = 96; dotsPerInch <= 384; ++dotsPerInch) {
    const double scale = scaleFromResources("Xft.dpi:" + std::to_string(dotsPerInch));
    for (const int pixels : {1, 2, 3, 639, 640, 1080, 1366, 1440, 1920, 2560, 3840, 7680, 32767}) {
      const auto points = displayPointsFromPixels({0, 0, pixels, pixels}, scale);
      ASSERT_EQ(std::ceil(points.width * scale), pixels) << dotsPerInch;
      ASSERT_EQ(std::ceil(points.width * (pixels / points.width)), pixels) << dotsPerInch;
      ASSERT_NEAR(pixels / points.width, scale, 1e-9);
      ASSERT_EQ(points.height, points.width);
    }
  }
}

TEST(Displays, GiveThePixelSizesOfWindowsAgainByTheirOwnRatioAtEveryScale) {
  for (int dotsPerInch = 96; dotsPerInch <= 384; ++dotsPerInch) {
    const double scale = scaleFromResources("Xft.dpi:" + std::to_string(dotsPerInch));
    for (const int displayWidth : {640, 1080, 1366, 1920, 2560, 3840}) {
      const double factor =
          std::max(scale, displayWidth / displayPointsFromPixels({0, 0, displayWidth, 1}, scale).width);
      for (const int pixels : {1, 2, 37, 301, 640, 1000, 1333, 1919}) {
        const auto points = pointsFromPixels({0, 0, pixels, pixels}, scale, factor);
        ASSERT_EQ(std::ceil(points.width * factor), pixels) << dotsPerInch << " on " << displayWidth;
        ASSERT_EQ(std::ceil(points.width * scale), pixels) << dotsPerInch << " on " << displayWidth;
        ASSERT_NEAR(points.width, pixels / scale, 1e-9);
        ASSERT_EQ(points.height, points.width);
      }
    }
  }
}

TEST(Displays, MeasureInPointsWhatIsGivenInPixels) {
  EXPECT_EQ(pointsFromPixels({-3, 5, 101, 200}, 2, 2), (RectDTO{-1.5, 2.5, 50.5, 100}));
  EXPECT_EQ(displayPointsFromPixels({1920, 0, 1920, 1080}, 1.5), (RectDTO{1280, 0, 1280, 720}));
}

TEST(Displays, OverlapInTheRectangleThatTheyShare) {
  EXPECT_EQ((PixelRect{0, 0, 10, 10}.intersection({5, -5, 10, 10})), (PixelRect{5, 0, 5, 5}));
  EXPECT_TRUE((PixelRect{0, 0, 10, 10}.intersection({10, 0, 5, 5}).isEmpty()));
  EXPECT_TRUE((PixelRect{0, 0, 10, 10}.intersection({50, 50, 5, 5}).isEmpty()));
}

} // namespace
} // namespace tessarin::x11
