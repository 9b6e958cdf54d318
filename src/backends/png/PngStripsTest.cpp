#include "backends/png/PngStrips.hpp"

#include <gtest/gtest.h>

#include <libdeflate.h>

#include <limits>
#include <vector>

namespace tessarin::png {
namespace {

StripLayout layoutOf(std::int32_t width, std::int32_t height, PixelFormat format = PixelFormat::bgrx8) {
  return StripLayout({nullptr, width, height, 0, format});
}

TEST(PngStrips, EveryRowIsInOneStrip) {
  const struct {
    std::int32_t width;
    std::int32_t height;
  } cases[] = {{1, 1},
               {1, 1000000},
               {1000, 349},
               {1000, 350},
               {1919, 1080},
               {1920, 1080},
               {3840, 2160},
               {7680, 7680},
               {1000000, 2},
               {1000000, 37},
               {std::numeric_limits<std::int32_t>::max(), 1}};
  for (const auto& each : cases) {
    const StripLayout layout = layoutOf(each.width, each.height);
    std::size_t row = 0;
    for (std::size_t strip = 0; strip < layout.count; ++strip) {
      EXPECT_EQ(layout.firstRow(strip), row);
      EXPECT_GT(layout.endRow(strip), row);
      row = layout.endRow(strip);
      EXPECT_EQ(layout.byteCount(strip), (row - layout.firstRow(strip)) * layout.rowSize);
    }
    EXPECT_EQ(row, static_cast<std::size_t>(each.height)) << each.width << "x" << each.height;
  }
}

TEST(PngStrips, SmallPicturesAreOneStrip) {
  EXPECT_EQ(layoutOf(1000, 349).count, 1U); // less than a mebibyte in rows of 3,001 bytes
  EXPECT_EQ(layoutOf(1000, 350).count, 2U);
  EXPECT_EQ(layoutOf(1000, 262, PixelFormat::bgra8Premultiplied).count, 1U);
  EXPECT_EQ(layoutOf(1000, 263, PixelFormat::bgra8Premultiplied).count, 2U);
}

TEST(PngStrips, ChecksumsAreJoinedAsIfTheBytesHadBeen) {
  std::vector<std::uint8_t> bytes(300000, 255);
  for (std::size_t i = 0; i < bytes.size(); i += 3)
    bytes[i] = static_cast<std::uint8_t>(i * 7);
  const std::uint32_t whole = libdeflate_adler32(1, bytes.data(), bytes.size());
  for (const std::size_t first : {0U, 1U, 2U, 65520U, 65521U, 65522U, 131042U, 299999U, 300000U}) {
    const std::size_t second = bytes.size() - first;
    EXPECT_EQ(joinedChecksum(libdeflate_adler32(1, bytes.data(), first),
                             libdeflate_adler32(1, bytes.data() + first, second), second),
              whole)
        << first;
  }
}

} // namespace
} // namespace tessarin::png
