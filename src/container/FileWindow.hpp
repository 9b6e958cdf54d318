#pragma once

#include "base/FileSystem.hpp"

#include <algorithm>
#include <span>
#include <vector>

namespace tessarin::container {

// Looks at a file through a moving buffer, so that the index of a file takes few reads. Confined to one
// thread. Throws FileFailure.
class FileWindow {
 public:
  explicit FileWindow(const OpenFile& file)
      : file_(file), size_(static_cast<std::uint64_t>(std::max<std::int64_t>(file.info().sizeBytes, 0))) {}

  std::uint64_t fileSize() const { return size_; }

  // The bytes at the offset, up to the end of the file; valid until the next call. Memory is taken for what
  // lies in the file only.
  std::span<const std::byte> view(std::uint64_t offset, std::uint64_t length) {
    if (offset >= size_)
      return {};
    length = std::min(length, size_ - offset);
    if (offset < start_ || offset - start_ > buffer_.size() || length > buffer_.size() - (offset - start_)) {
      buffer_.resize(static_cast<std::size_t>(std::min(std::max(length, readAhead), size_ - offset)));
      buffer_.resize(file_.read(offset, buffer_));
      start_ = offset;
    }
    const std::span<const std::byte> rest =
        std::span<const std::byte>(buffer_).subspan(static_cast<std::size_t>(offset - start_));
    return rest.first(std::min(rest.size(), static_cast<std::size_t>(length)));
  }

 private:
  static constexpr std::uint64_t readAhead = 16 * 1024;

  const OpenFile& file_;
  std::uint64_t size_;
  std::uint64_t start_ = 0;
  std::vector<std::byte> buffer_;
};

} // namespace tessarin::container
