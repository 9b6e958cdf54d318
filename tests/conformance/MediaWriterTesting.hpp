#pragma once

#include "backends/posix/ModuleMediaFileWriterFactory.hpp"
#include "container/Movie.hpp"
#include "ports/MediaWriting.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tessarin {

// A picture to be recorded, painted by the test.
class Painting {
 public:
  Painting(std::int32_t width, std::int32_t height) : width_(width), height_(height) {
    bytes_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  }

  struct Color {
    std::uint8_t red = 0, green = 0, blue = 0;
  };
  void fill(Color color) { fill(0, 0, width_, height_, color); }
  void fill(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height, Color color);
  // Noise that is different for each number, and dear to code.
  void scatter(unsigned number);
  PictureView view() const { return {bytes_.data(), width_, height_, width_ * 4, PixelFormat::bgrx8}; }

 private:
  std::int32_t width_, height_;
  std::vector<std::uint8_t> bytes_;
};

// Standard output of a program. Throws std::runtime_error when it fails or says anything on standard error.
std::string outputOf(const std::string& command);

// A directory, a file layer that may be told to fail, and the real module.
class MediaModuleRig {
 public:
  MediaModuleRig();

  std::unique_ptr<MediaFileWriter> makeWriter(const std::string& name);
  std::string path(const std::string& name) const { return directory_ / name; }
  container::Movie movie(const std::string& name) const;
  bool has(const std::string& name) const;

  FaultyFileSystem files;
  MediaFileOptions options{
      .path = {}, .initialFragmentInterval = {600, 600}, .fragmentInterval = {6000, 600}};

 private:
  TemporaryDirectory directory_;
  ModuleLoader loader_;
  ModuleMediaFileWriterFactory factory_;
};

// Returns when the input is ready for more. False when the writer has failed.
bool waitUntilReady(MediaFileWriter& writer, MediaInput& input);

// Appends as soon as the input is ready for it. False when the writer has failed.
bool appendPatiently(MediaFileWriter& writer, VideoInput& input,
                     const std::shared_ptr<const CodablePicture>& picture, MediaTime time);

// Returns when the file is finished, or has failed.
void finish(MediaFileWriter& writer);

// A small picture at ten frames per second, a key each second, and every picture coded.
VideoSettings smallVideo();

} // namespace tessarin
