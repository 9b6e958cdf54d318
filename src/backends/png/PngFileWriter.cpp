#include "backends/png/PngFileWriter.hpp"

#include "backends/png/PngEncoding.hpp"
#include "base/SafeFile.hpp"

namespace tessarin::png {

void PngFileWriter::write(const PictureView& picture, const std::string& path) {
  const EncodedPicture encoded = encode(picture);
  const auto file = files_.open(path, OpenMode::createTruncated);
  TemporaryFile unfinished(files_, path);
  file->write(0, encoded.bytes());
  unfinished.keep();
}

} // namespace tessarin::png
