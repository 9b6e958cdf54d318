#include "PngReaders.hpp"

#include <gtest/gtest.h>
#include <png.h>

#include <array>
#include <cstdio>

namespace tessarin {

namespace {

std::vector<std::uint8_t> byLibrary(const std::string& path) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  if (png_image_begin_read_from_file(&image, path.c_str()) == 0)
    return {};
  image.format = PNG_FORMAT_RGBA;
  std::vector<std::uint8_t> rgba(PNG_IMAGE_SIZE(image));
  if (png_image_finish_read(&image, nullptr, rgba.data(), 0, nullptr) == 0)
    return {};
  return rgba;
}

std::vector<std::uint8_t> outputOf(const std::string& command) {
  std::vector<std::uint8_t> bytes;
  FILE* const stream = ::popen(command.c_str(), "r");
  std::array<std::uint8_t, 65536> part{};
  for (std::size_t count = 0; (count = std::fread(part.data(), 1, part.size(), stream)) > 0;)
    bytes.insert(bytes.end(), part.begin(), part.begin() + static_cast<std::ptrdiff_t>(count));
  return ::pclose(stream) == 0 ? bytes : std::vector<std::uint8_t>();
}

} // namespace

ReadPicture readByAll(const std::string& path) {
  const std::string quoted = "'" + path + "'";
  const auto library = byLibrary(path);
  EXPECT_FALSE(library.empty()) << path;
  EXPECT_TRUE(library == outputOf("convert " + quoted + " -depth 8 rgba:-")) << path;
  EXPECT_TRUE(library == outputOf("ffmpeg -v error -i " + quoted + " -f rawvideo -pix_fmt rgba - </dev/null"))
      << path;
  return {library};
}

} // namespace tessarin
