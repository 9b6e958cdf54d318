#pragma once

#include "base/FileSystem.hpp"
#include "ports/Capture.hpp"

#include <string>

namespace tessarin::png {

// The program's PNG files. Stateless.
class PngFileWriter final : public PngWriter {
 public:
  // The file layer must outlive the writer.
  explicit PngFileWriter(FileSystem& files) : files_(files) {}

  // The directory must exist. A file that could not be written whole is removed. Throws std::bad_alloc for
  // a picture too large to encode, before the file is touched.
  void write(const PictureView& picture, const std::string& path) override;

 private:
  FileSystem& files_;
};

} // namespace tessarin::png
