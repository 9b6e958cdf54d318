#pragma once

#include "base/FileSystem.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <span>

namespace tessarin::fuzz {

// Bytes that are read like a file. Does not own them.
class MemoryFile final : public OpenFile {
 public:
  explicit MemoryFile(std::span<const std::byte> bytes) : bytes_(bytes) {}

  FileInfo info() const override {
    FileInfo info;
    info.kind = FileKind::regular;
    info.sizeBytes = static_cast<std::int64_t>(bytes_.size());
    return info;
  }
  std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
    if (offset >= bytes_.size())
      return 0;
    const std::size_t count = std::min(into.size(), bytes_.size() - static_cast<std::size_t>(offset));
    std::memcpy(into.data(), bytes_.data() + offset, count);
    return count;
  }
  void write(std::uint64_t, std::span<const std::byte>) override {
    throw FileFailure(FileOperation::write, EBADF);
  }
  void truncate(std::uint64_t) override { throw FileFailure(FileOperation::truncate, EBADF); }
  void sync() override {}
  void copyFrom(const OpenFile&, std::uint64_t, std::uint64_t, std::uint64_t) override {
    throw FileFailure(FileOperation::copy, EBADF);
  }
  bool cloneFrom(const OpenFile&) override { return false; }

 private:
  std::span<const std::byte> bytes_;
};

} // namespace tessarin::fuzz
