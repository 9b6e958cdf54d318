#include "backends/png/PngFileWriter.hpp"

#include "backends/png/PngEncoding.hpp"
#include "base/SafeFile.hpp"

namespace tessarin::png {

void PngFileWriter::write(const PictureView& picture, const std::string& path) {
  const EncodedPicture encoded = encode(picture);
  const auto file = files_.open(path, OpenMode::createTruncated);
  TemporaryFile unfinished(files_, path);
  std::uint64_t offset = 0;
  for (const std::span<const std::byte> part : encoded.parts) {
    file->write(offset, part);
    offset += part.size();
  }
  unfinished.keep();
}

} // namespace tessarin::png
