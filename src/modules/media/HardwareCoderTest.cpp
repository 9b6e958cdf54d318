#include "modules/media/HardwareCoder.hpp"

#include "modules/media/CoderFailure.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

extern "C" {
#include <libavutil/error.h>
}

namespace tessarin::media {
namespace {

using testing::ElementsAre;

// No hardware takes pictures of four pixels, so that this fails with and without a device; and the drivers'
// words are kept from standard error. The settings themselves are known to the library.
TEST(HardwareCoder, failsCleanly) {
  const EncoderCatalogue library = libraryEncoders(nullptr);
  testing::internal::CaptureStderr();
  for (const char* name : {"h264_vaapi", "hevc_vaapi", "h264_nvenc", "hevc_nvenc"}) {
    const Encoder encoder = *encoderNamed(name);
    const VideoSettings tiny{.codec = encoder.codec,
                             .width = 2,
                             .height = 2,
                             .averageBitRate = 1'000'000,
                             .expectedFrameRate = 30,
                             .maximumKeyFrameInterval = 30};
    try {
      library.make(encoder, tiny, CodingEffort::full);
      ADD_FAILURE() << name;
    } catch (const CoderFailure& failure) {
      EXPECT_EQ(failure.domain(), "libav") << name;
      EXPECT_NE(failure.code(), AVERROR_OPTION_NOT_FOUND) << name;
      EXPECT_NE(failure.code(), AVERROR_ENCODER_NOT_FOUND) << name;
    }
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(HardwareCoder, mixesTheChromaOfSurfaces) {
  I420Picture picture(4, 4);
  const pixels::I420Planes planes = picture.planes();
  for (int row = 0; row < 4; ++row)
    for (int column = 0; column < 4; ++column)
      planes.y[row * planes.yStride + column] = static_cast<std::uint8_t>(row * 4 + column);
  for (int row = 0; row < 2; ++row)
    for (int column = 0; column < 2; ++column) {
      planes.u[row * planes.uStride + column] = static_cast<std::uint8_t>(100 + row * 2 + column);
      planes.v[row * planes.vStride + column] = static_cast<std::uint8_t>(200 + row * 2 + column);
    }
  std::vector<std::uint8_t> luma(4 * 5, 255);
  std::vector<std::uint8_t> chroma(2 * 6, 255);
  writeAsNv12(picture, luma.data(), 5, chroma.data(), 6);
  EXPECT_THAT(luma, ElementsAre(0, 1, 2, 3, 255, 4, 5, 6, 7, 255, 8, 9, 10, 11, 255, 12, 13, 14, 15, 255));
  EXPECT_THAT(chroma, ElementsAre(100, 200, 101, 201, 255, 255, 102, 202, 103, 203, 255, 255));
}

} // namespace
} // namespace tessarin::media
