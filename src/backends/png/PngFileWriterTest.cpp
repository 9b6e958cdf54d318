#include "backends/png/PngFileWriter.hpp"

#include "backends/png/PngEncoding.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <png.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <new>
#include <random>
#include <utility>

namespace tessarin::png {
namespace {

// Pixels of a picture with rows that are further apart than they are wide.
struct Painted {
  std::vector<std::uint8_t> bytes;
  PictureView view;

  Painted(std::int32_t width, std::int32_t height, PixelFormat format)
      : bytes(static_cast<std::size_t>((4 * width + 12) * height), 0xEE), view{bytes.data(), width, height,
                                                                               4 * width + 12, format} {}

  void set(int x, int y, std::array<std::uint8_t, 4> bgra) {
    std::memcpy(bytes.data() + y * view.stride + 4 * x, bgra.data(), 4);
  }
};

Painted noise(std::int32_t width, std::int32_t height, PixelFormat format) {
  Painted picture(width, height, format);
  std::mt19937 random(7);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      picture.set(x, y,
                  {static_cast<std::uint8_t>(random()), static_cast<std::uint8_t>(random()),
                   static_cast<std::uint8_t>(random()), static_cast<std::uint8_t>(random())});
  return picture;
}

std::vector<std::byte> joined(const EncodedPicture& encoded) {
  std::vector<std::byte> bytes;
  for (const auto part : encoded.parts)
    bytes.insert(bytes.end(), part.begin(), part.end());
  return bytes;
}

struct Read {
  int width = 0;
  int height = 0;
  int bitDepth = 0;
  int colourType = 0;
  int intent = -1;
  double gamma = 0;
  std::vector<std::uint8_t> samples;
};

struct Source {
  std::span<const std::byte> rest;
};

// By the reference library.
Read readBack(std::span<const std::byte> file) {
  Read result;
  png_structp reader = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(reader);
  if (setjmp(png_jmpbuf(reader))) {
    png_destroy_read_struct(&reader, &info, nullptr);
    ADD_FAILURE() << "the file cannot be read";
    return {};
  }
  Source source{file};
  png_set_read_fn(reader, &source, [](png_structp from, png_bytep into, png_size_t count) {
    auto& bytes = static_cast<Source*>(png_get_io_ptr(from))->rest;
    if (bytes.size() < count)
      png_error(from, "short");
    std::memcpy(into, bytes.data(), count);
    bytes = bytes.subspan(count);
  });
  png_read_info(reader, info);
  result.width = static_cast<int>(png_get_image_width(reader, info));
  result.height = static_cast<int>(png_get_image_height(reader, info));
  result.bitDepth = png_get_bit_depth(reader, info);
  result.colourType = png_get_color_type(reader, info);
  png_get_sRGB(reader, info, &result.intent);
  png_get_gAMA(reader, info, &result.gamma);
  const std::size_t rowSize = png_get_rowbytes(reader, info);
  result.samples.resize(rowSize * static_cast<std::size_t>(result.height));
  for (int y = 0; y < result.height; ++y)
    png_read_row(reader, result.samples.data() + rowSize * static_cast<std::size_t>(y), nullptr);
  png_read_end(reader, info);
  png_destroy_read_struct(&reader, &info, nullptr);
  EXPECT_TRUE(source.rest.empty()) << "something follows the end of the file";
  return result;
}

std::vector<std::uint8_t> opaqueSamples(const PictureView& picture) {
  std::vector<std::uint8_t> samples;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x)
      for (const int channel : {2, 1, 0})
        samples.push_back(picture.data[y * picture.stride + 4 * x + channel]);
  return samples;
}

TEST(PngEncoding, AnOpaquePictureReadsBackExactlyAtEveryWidth) {
  for (int width = 1; width <= 40; ++width) {
    const Painted picture = noise(width, 3, PixelFormat::bgrx8);
    const Read read = readBack(joined(encode(picture.view)));
    EXPECT_EQ(read.width, width);
    EXPECT_EQ(read.height, 3);
    EXPECT_EQ(read.bitDepth, 8);
    EXPECT_EQ(read.colourType, PNG_COLOR_TYPE_RGB);
    EXPECT_EQ(read.samples, opaqueSamples(picture.view)) << width;
  }
}

TEST(PngEncoding, ALargePictureReadsBackExactly) {
  const Painted picture = noise(1500, 700, PixelFormat::bgrx8);
  EXPECT_EQ(readBack(joined(encode(picture.view))).samples, opaqueSamples(picture.view));
}

TEST(PngEncoding, APictureOfExtremeSizeReadsBackExactly) {
  const struct {
    std::int32_t width;
    std::int32_t height;
  } cases[] = {{1, 1}, {1, 2}, {65535, 1}, {65536, 2}, {100000, 3}, {1, 65535}};
  for (const auto& each : cases) {
    const Painted opaque = noise(each.width, each.height, PixelFormat::bgrx8);
    const Read read = readBack(joined(encode(opaque.view)));
    EXPECT_EQ(read.width, each.width);
    EXPECT_EQ(read.height, each.height);
    EXPECT_EQ(read.samples, opaqueSamples(opaque.view)) << each.width << "x" << each.height;

    // Full alpha changes no colour, so the samples are those of the pixels.
    Painted translucent = noise(each.width, each.height, PixelFormat::bgra8Premultiplied);
    for (std::size_t i = 3; i < translucent.bytes.size(); i += 4)
      translucent.bytes[i] = 255;
    const Read withAlpha = readBack(joined(encode(translucent.view)));
    std::vector<std::uint8_t> colours;
    for (std::size_t i = 0; i < withAlpha.samples.size(); ++i)
      if (i % 4 != 3)
        colours.push_back(withAlpha.samples[i]);
    EXPECT_EQ(colours, opaqueSamples(translucent.view)) << each.width << "x" << each.height;
  }
}

TEST(PngEncoding, APictureBeyondOneChunkIsRefusedBeforeAPixelIsRead) {
  for (const PixelFormat format : {PixelFormat::bgrx8, PixelFormat::bgra8Premultiplied})
    for (const auto& [width, height] :
         {std::pair{32767, 32767}, std::pair{std::numeric_limits<std::int32_t>::max(), 1},
          std::pair{1, std::numeric_limits<std::int32_t>::max()},
          std::pair{std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::max()}})
      EXPECT_THROW((void)encode({nullptr, width, height, 0, format}), std::bad_alloc)
          << width << "x" << height;
}

TEST(PngEncoding, IsTaggedAsSRGB) {
  const Read read = readBack(joined(encode(noise(2, 2, PixelFormat::bgrx8).view)));
  EXPECT_EQ(read.intent, PNG_sRGB_INTENT_PERCEPTUAL);
  EXPECT_NEAR(read.gamma, 0.45455, 1e-6);
}

// Bands of flat colour, of one line again and again, of smooth colours with grain, and of noise.
Painted bands(std::int32_t width, std::int32_t height, PixelFormat format) {
  Painted picture = noise(width, height, format);
  std::mt19937 random(9);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const int band = y / 37 % 4;
      const auto grain = static_cast<int>(random() % 9);
      const auto value = [&](int slope) { return static_cast<std::uint8_t>((x * slope + y) / 16 + grain); };
      if (band == 0)
        picture.set(x, y, {12, 200, 100, 255});
      else if (band == 1)
        picture.set(x, y, {static_cast<std::uint8_t>(x * x >> 3), 7, static_cast<std::uint8_t>(x), 255});
      else if (band == 2)
        picture.set(x, y, {value(1), value(2), value(3), 255});
    }
  return picture;
}

TEST(PngEncoding, APictureOfSeveralStripsReadsBackExactly) {
  // Below and above what makes a second strip; strips of unequal rows; rows as large as a strip.
  const struct {
    std::int32_t width;
    std::int32_t height;
  } cases[] = {{1000, 349}, {1000, 350}, {1919, 1080}, {1921, 547}, {333, 4001}, {7680, 500}, {200001, 5}};
  for (const auto& each : cases) {
    const Painted picture = bands(each.width, each.height, PixelFormat::bgrx8);
    EXPECT_TRUE(readBack(joined(encode(picture.view))).samples == opaqueSamples(picture.view))
        << each.width << "x" << each.height;
  }
}

TEST(PngEncoding, TheNumberOfThreadsChangesNoByte) {
  for (const PixelFormat format : {PixelFormat::bgrx8, PixelFormat::bgra8Premultiplied}) {
    const Painted picture = bands(1600, 1200, format);
    const auto alone = joined(encode(picture.view, 1));
    for (const std::size_t threads : {0U, 2U, 3U, 8U, 100U})
      EXPECT_TRUE(joined(encode(picture.view, threads)) == alone) << threads;
  }
}

TEST(PngEncoding, PicturesWithAlphaReadBackInStrips) {
  Painted picture = bands(1300, 900, PixelFormat::bgra8Premultiplied);
  for (std::size_t i = 3; i < picture.bytes.size(); i += 4)
    picture.bytes[i] = 255;
  const Read read = readBack(joined(encode(picture.view)));
  std::vector<std::uint8_t> colours;
  for (std::size_t i = 0; i < read.samples.size(); ++i)
    if (i % 4 != 3)
      colours.push_back(read.samples[i]);
  EXPECT_TRUE(colours == opaqueSamples(picture.view));
}

TEST(PngEncoding, AlphaIsStraightInTheFile) {
  const struct {
    std::array<std::uint8_t, 4> bgra; // premultiplied
    std::array<std::uint8_t, 4> rgba; // straight
  } cases[] = {
      {{10, 20, 30, 255}, {30, 20, 10, 255}},
      {{0, 0, 0, 0}, {0, 0, 0, 0}},
      {{9, 8, 7, 0}, {0, 0, 0, 0}},
      {{64, 32, 0, 128}, {0, 64, 128, 128}},
      {{1, 0, 1, 1}, {255, 0, 255, 1}},
      {{100, 50, 25, 100}, {64, 128, 255, 100}},
      {{200, 100, 0, 100}, {0, 255, 255, 100}}, // more colour than alpha
  };
  const int count = static_cast<int>(std::size(cases));
  Painted picture(count, 2, PixelFormat::bgra8Premultiplied);
  std::vector<std::uint8_t> expected;
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < count; ++x) {
      const auto& each = cases[y == 0 ? x : count - 1 - x];
      picture.set(x, y, each.bgra);
      expected.insert(expected.end(), each.rgba.begin(), each.rgba.end());
    }
  const Read read = readBack(joined(encode(picture.view)));
  EXPECT_EQ(read.colourType, PNG_COLOR_TYPE_RGB_ALPHA);
  EXPECT_EQ(read.samples, expected);
}

TEST(PngEncoding, EveryColourThatWasPremultipliedComesBack) {
  Painted picture(255, 256, PixelFormat::bgra8Premultiplied);
  const auto premultiplied = [](int colour, int alpha) {
    return static_cast<std::uint8_t>((colour * alpha + 127) / 255);
  };
  for (int alpha = 1; alpha <= 255; ++alpha)
    for (int colour = 0; colour < 256; ++colour) {
      const std::uint8_t value = premultiplied(colour, alpha);
      picture.set(alpha - 1, colour, {value, value, value, static_cast<std::uint8_t>(alpha)});
    }
  const Read read = readBack(joined(encode(picture.view)));
  for (int alpha = 1; alpha <= 255; ++alpha)
    for (int colour = 0; colour < 256; ++colour) {
      const std::uint8_t* sample = read.samples.data() + 4 * (colour * 255 + alpha - 1);
      ASSERT_EQ(sample[3], alpha);
      ASSERT_EQ(premultiplied(sample[0], alpha), premultiplied(colour, alpha)) << colour << " at " << alpha;
    }
}

std::span<const std::byte> bytesOf(const std::string& text) {
  return std::as_bytes(std::span(text));
}

TEST(PngFileWriter, ReplacesAFileInPlace) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("shot.png", std::string(100000, 'x'));
  const Painted picture = noise(5, 4, PixelFormat::bgrx8);
  PngFileWriter(machineFileSystem()).write(picture.view, path);
  EXPECT_EQ(readBack(bytesOf(directory.read("shot.png"))).samples, opaqueSamples(picture.view));
}

TEST(PngFileWriter, MakesNoDirectory) {
  const TemporaryDirectory directory;
  const std::string path = directory / "missing/shot.png";
  const Painted picture = noise(2, 2, PixelFormat::bgrx8);
  try {
    PngFileWriter(machineFileSystem()).write(picture.view, path);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const FileFailure& failure) {
    EXPECT_EQ(failure.operation(), FileOperation::open);
    EXPECT_EQ(failure.errorNumber(), ENOENT);
  }
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST(PngFileWriter, RefusesADirectoryOfThatName) {
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory / "shot.png");
  EXPECT_THROW(
      PngFileWriter(machineFileSystem()).write(noise(2, 2, PixelFormat::bgrx8).view, directory / "shot.png"),
      FileFailure);
  EXPECT_TRUE(std::filesystem::is_directory(directory / "shot.png"));
}

TEST(PngFileWriter, LeavesNoTornFileOnAFullDisk) {
  const TemporaryDirectory directory;
  FaultyFileSystem files(machineFileSystem());
  files.inject({.operation = FileOperation::write, .pathPart = "", .errorNumber = ENOSPC, .shortenedTo = 20});
  try {
    PngFileWriter(files).write(noise(9, 9, PixelFormat::bgrx8).view, directory / "shot.png");
    ADD_FAILURE() << "nothing was thrown";
  } catch (const FileFailure& failure) {
    EXPECT_EQ(failure.errorNumber(), ENOSPC);
  }
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

} // namespace
} // namespace tessarin::png
