#include "recording/RecordingConfiguration.hpp"

#include "support/RecordingRequests.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using Scale = RecordingOutputScale;

RecordingConfigurationPlan planOf(const RecordingRequestDTO& request,
                                  const DisplayInfoDTO& display = sampleDisplay()) {
  return RecordingConfigurationBuilder::plan(request.validated({display}, {sampleWindow()}));
}

// A region at the display's origin.
RecordingConfigurationPlan planOfRegion(const RectDTO& local, Scale outputScale, double scaleFactor = 1) {
  DisplayInfoDTO display = sampleDisplay();
  display.framePoints.width = 10000;
  display.framePoints.height = 10000;
  display.scaleFactor = scaleFactor;
  RecordingRequestDTO request = sampleRequest(CaptureKind::region);
  request.rectPoints = {display.framePoints.x + local.x, display.framePoints.y + local.y, local.width,
                        local.height};
  request.settings.outputScale = outputScale;
  return planOf(request, display);
}

TEST(RecordingConfigurationPlan, ChoosesTheOutputSize) {
  struct Row {
    double width, height;
    Scale scale;
    std::int64_t outputWidth, outputHeight;
  };
  for (const Row& row :
       {Row{1920, 1080, Scale::original, 1920, 1080}, Row{1001, 501, Scale::original, 1002, 502},
        Row{1, 1, Scale::original, 2, 2}, Row{3840, 2160, Scale::original, 3840, 2160},
        Row{1000, 500, Scale::hd1080, 1000, 500}, Row{3840, 2160, Scale::hd1080, 1920, 1080},
        Row{1001, 501, Scale::hd1080, 1000, 500}, Row{1921, 1080, Scale::hd1080, 1920, 1078},
        Row{1920, 1081, Scale::hd1080, 1918, 1080}, Row{1080, 1920, Scale::hd1080, 606, 1080},
        Row{3, 3, Scale::hd720, 2, 2}, Row{1, 1, Scale::hd720, 2, 2},
        Row{1920, 1080, Scale::hd720, 1280, 720}, Row{1280, 720, Scale::hd720, 1280, 720},
        Row{9000, 1, Scale::hd720, 1280, 2}}) {
    const RecordingConfigurationPlan plan = planOfRegion({0, 0, row.width, row.height}, row.scale);
    EXPECT_EQ(plan.outputWidth, row.outputWidth) << row.width << "x" << row.height;
    EXPECT_EQ(plan.outputHeight, row.outputHeight) << row.width << "x" << row.height;
  }
}

TEST(RecordingConfigurationPlan, WidensTheSourceToWholePixels) {
  const RecordingConfigurationPlan plan = planOfRegion({0.25, 0.5, 101.25, 10}, Scale::original, 2);
  EXPECT_EQ(plan.outputWidth, 204); // 0 to 203 pixels, and one to be even
  EXPECT_EQ(plan.outputHeight, 20);
  EXPECT_EQ(plan.sourceRect, (RectDTO{0, 0.5, 101.5, 10}));
  EXPECT_EQ(plan.captureRect, (RectDTO{100, 50.5, 101.5, 10}));
}

TEST(RecordingConfigurationPlan, PutsTheCaptureWhereTheSourceIs) {
  const RecordingConfigurationPlan display = planOf(sampleRequest(CaptureKind::display));
  EXPECT_EQ(display.sourceRect, (RectDTO{0, 0, 1920, 1080}));
  EXPECT_EQ(display.captureRect, (RectDTO{100, 50, 1920, 1080}));

  RecordingRequestDTO ofWindow = sampleRequest(CaptureKind::window);
  ofWindow.rectPoints.x += 0.25; // the selection's origin counts, the window's size does
  ofWindow.rectPoints.width += 0.25;
  const RecordingConfigurationPlan window = planOf(ofWindow);
  EXPECT_EQ(window.sourceRect, (RectDTO{0, 0, 640, 480}));
  EXPECT_EQ(window.captureRect, (RectDTO{300.25, 200, 640, 480}));
}

TEST(RecordingConfigurationPlan, PacesByTheFrameRate) {
  for (const std::int32_t rate : {15, 30, 60}) {
    RecordingRequestDTO request = sampleRequest();
    request.settings.frameRate = rate;
    const RecordingConfigurationPlan plan = planOf(request);
    EXPECT_EQ(plan.minimumFrameInterval.value(), 1);
    EXPECT_EQ(plan.minimumFrameInterval.timescale(), rate);
  }
}

TEST(RecordingBitRate, FollowsPixelsFramesCodecAndQualityBetweenBounds) {
  struct Row {
    RecordingCodec codec;
    RecordingQuality quality;
    std::int64_t pixels, frameRate, bitsPerSecond;
  };
  using enum RecordingCodec;
  using enum RecordingQuality;
  for (const Row& row : {
           Row{h264, standard, 1920 * 1080, 30, 6'220'800},
           Row{h264, standard, 666'666, 30, 2'000'000}, // 1,999,998
           Row{h264, standard, 666'668, 30, 2'000'004}, // just above the floor
           Row{h264, standard, 5'833'333, 60, 34'999'998},
           Row{h264, standard, 5'833'334, 60, 35'000'000}, // 35,000,004
           Row{h264, high, 1920 * 1080, 60, 19'906'560},
           Row{h264, high, 3840 * 2160, 60, 60'000'000}, // 79,626,240
           Row{h264, high, 4, 15, 4'000'000}, Row{hevc, standard, 1920 * 1080, 60, 8'087'040},
           Row{hevc, standard, 4, 15, 1'500'000},
           Row{hevc, standard, 3840 * 2160, 60, 24'000'000}, // 32,348,160
           Row{hevc, high, 1920 * 1080, 30, 6'220'800}, Row{hevc, high, 4, 15, 3'000'000},
           Row{hevc, high, 3840 * 2160, 60, 40'000'000},
           Row{h264, standard, 1'366'671, 15, 2'050'007}, // 2,050,006.5 rounds away from zero
       })
    EXPECT_EQ(
        RecordingConfigurationBuilder::averageBitRate(row.codec, row.quality, row.pixels, row.frameRate),
        row.bitsPerSecond)
        << row.pixels << " at " << row.frameRate;
}

TEST(RecordingConfigurationPlan, CountsTheBitRateOnTheOutputSize) {
  RecordingRequestDTO request = sampleRequest();
  request.settings.outputScale = Scale::hd720;
  request.settings.quality = RecordingQuality::high;
  request.settings.codec = RecordingCodec::hevc;
  EXPECT_EQ(planOf(request).averageBitRate, 3'000'000); // 2,764,800
  request.settings.frameRate = 60;
  EXPECT_EQ(planOf(request).averageBitRate, 5'529'600);
}

TEST(StreamConfigurationOfARecording, HoldsThePlanAndTheHouseFormat) {
  const RecordingRequestDTO request = sampleRequest();
  const RecordingConfigurationPlan plan = planOf(request);
  const StreamConfiguration stream =
      RecordingConfigurationBuilder::streamConfiguration(plan, request.settings);
  EXPECT_EQ(stream.sourceRect, plan.sourceRect);
  EXPECT_EQ(stream.width, 1920);
  EXPECT_EQ(stream.height, 1080);
  EXPECT_EQ(stream.minimumFrameInterval, MediaTime(1, 30));
  EXPECT_EQ(stream.queueDepth, 5);
  EXPECT_EQ(stream.pixelFormat, 0x42475241U);
  EXPECT_FALSE(stream.capturesAudio);
  EXPECT_EQ(stream.sampleRate, 48000);
  EXPECT_EQ(stream.channelCount, 2);
  EXPECT_TRUE(stream.showsCursor);
  EXPECT_FALSE(stream.showMouseClicks);
}

TEST(StreamConfigurationOfARecording, DrawsThePointerOnlyInTheSystemsOwnLook) {
  using Style = std::optional<RecordingCursorStyle>;
  struct Row {
    bool showsCursor;
    Style style;
    bool drawn;
  };
  for (const Row& row :
       {Row{true, std::nullopt, true}, Row{true, RecordingCursorStyle::system, true},
        Row{true, RecordingCursorStyle::light, false}, Row{true, RecordingCursorStyle::dark, false},
        Row{false, std::nullopt, false}, Row{false, RecordingCursorStyle::system, false}}) {
    RecordingSettingsDTO settings = sampleSettings();
    settings.showsCursor = row.showsCursor;
    settings.showMouseClicks = true; // never drawn by the stream
    settings.systemAudio = true;
    if (row.style)
      settings.presentation = RecordingPresentationDTO{std::nullopt, *row.style, 100, false};
    const StreamConfiguration stream =
        RecordingConfigurationBuilder::streamConfiguration(planOf(sampleRequest()), settings);
    EXPECT_EQ(stream.showsCursor, row.drawn);
    EXPECT_FALSE(stream.showMouseClicks);
    EXPECT_TRUE(stream.capturesAudio);
  }
}

} // namespace
} // namespace tessarin
