#pragma once

#include "base/FileSystem.hpp"
#include "container/BoxWriter.hpp"
#include "container/Movie.hpp"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <random>
#include <span>
#include <string>
#include <vector>

// What the tests of this room share: files in memory, coded samples and sample entries made up.
namespace tessarin::container {

using Bytes = std::vector<std::byte>;

// A file in memory that counts and keeps what was done to it.
class MemoryFile final : public OpenFile {
 public:
  struct Change {
    bool isSync = false;
    std::uint64_t offset = 0; // of a write
    Bytes bytes;
  };

  MemoryFile() = default;
  explicit MemoryFile(Bytes bytesIn) : bytes(std::move(bytesIn)) {}

  FileInfo info() const override {
    FileInfo info;
    info.kind = FileKind::regular;
    info.sizeBytes = static_cast<std::int64_t>(bytes.size());
    return info;
  }
  std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
    ++reads;
    if (offset >= bytes.size())
      return 0;
    const std::size_t count = std::min(into.size(), bytes.size() - static_cast<std::size_t>(offset));
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), count, into.begin());
    bytesRead += count;
    return count;
  }
  void write(std::uint64_t offset, std::span<const std::byte> data) override {
    changes.push_back({false, offset, Bytes(data.begin(), data.end())});
    place(offset, data);
  }
  void truncate(std::uint64_t size) override { bytes.resize(static_cast<std::size_t>(size)); }
  void sync() override { changes.push_back({true, 0, {}}); }
  void copyFrom(const OpenFile& source, std::uint64_t sourceOffset, std::uint64_t offset,
                std::uint64_t length) override {
    ++copies;
    Bytes data(static_cast<std::size_t>(length));
    if (source.read(sourceOffset, data) != data.size())
      throw FileFailure(FileOperation::copy, 0);
    place(offset, data);
  }
  bool cloneFrom(const OpenFile&) override { return false; }

  Bytes bytes;
  std::vector<Change> changes;
  std::size_t copies = 0;
  mutable std::size_t reads = 0;
  mutable std::uint64_t bytesRead = 0;

 private:
  void place(std::uint64_t offset, std::span<const std::byte> data) {
    bytes.resize(std::max(bytes.size(), static_cast<std::size_t>(offset) + data.size()));
    std::copy(data.begin(), data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
  }
};

// A file that keeps small writes and takes large ones and copies for zeros, however long they are.
class SparseFile final : public OpenFile {
 public:
  explicit SparseFile(std::uint64_t size = 0) : size_(size) {}

  FileInfo info() const override {
    FileInfo info;
    info.kind = FileKind::regular;
    info.sizeBytes = static_cast<std::int64_t>(size_);
    return info;
  }
  std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
    const std::uint64_t count = offset >= size_ ? 0 : std::min<std::uint64_t>(into.size(), size_ - offset);
    std::fill_n(into.begin(), count, std::byte{0});
    for (const auto& [start, data] : parts) {
      for (std::size_t i = 0; i < data.size(); ++i) {
        if (start + i >= offset && start + i < offset + count)
          into[static_cast<std::size_t>(start + i - offset)] = data[i];
      }
    }
    return static_cast<std::size_t>(count);
  }
  void write(std::uint64_t offset, std::span<const std::byte> data) override {
    if (data.size() < (1 << 20))
      parts[offset] = Bytes(data.begin(), data.end());
    size_ = std::max(size_, offset + data.size());
  }
  void truncate(std::uint64_t size) override { size_ = size; }
  void sync() override {}
  void copyFrom(const OpenFile&, std::uint64_t, std::uint64_t offset, std::uint64_t length) override {
    size_ = std::max(size_, offset + length);
  }
  bool cloneFrom(const OpenFile&) override { return false; }

  std::map<std::uint64_t, Bytes> parts;

 private:
  std::uint64_t size_;
};

// Bytes that are the same for the same seed.
inline Bytes randomBytes(std::size_t size, std::uint32_t seed) {
  std::minstd_rand random(seed + 1);
  Bytes bytes(size);
  for (std::byte& byte : bytes)
    byte = static_cast<std::byte>(random() >> 8);
  return bytes;
}

inline Bytes bytesAt(const OpenFile& file, const Sample& sample) {
  Bytes bytes(sample.size);
  if (file.read(sample.offset, bytes) != bytes.size())
    bytes.clear();
  return bytes;
}

// A sample entry of the right outline; the decoder's part is made up, and differs by the variant.
inline SampleDescription videoDescription(std::int32_t width, std::int32_t height, std::uint8_t variant = 0) {
  BoxWriter writer;
  writer.box(fourCC("avc1"), [&] {
    writer.zeros(6);
    writer.u16(1);
    writer.zeros(16);
    writer.u16(static_cast<std::uint16_t>(width));
    writer.u16(static_cast<std::uint16_t>(height));
    writer.u32(0x00480000);
    writer.u32(0x00480000);
    writer.zeros(4);
    writer.u16(1);
    writer.zeros(32);
    writer.u16(0x18);
    writer.u16(0xffff);
    writer.box(fourCC("avcC"), [&] {
      writer.u8(1);
      writer.u8(100);
      writer.u8(0);
      writer.u8(variant);
    });
  });
  return {"avc1", width, height, 0, 0, writer.bytes()};
}

inline SampleDescription audioDescription(std::uint16_t rate = 48000, std::uint16_t channels = 2) {
  BoxWriter writer;
  writer.box(fourCC("mp4a"), [&] {
    writer.zeros(6);
    writer.u16(1);
    writer.zeros(8);
    writer.u16(channels);
    writer.u16(16);
    writer.zeros(4);
    writer.u32(std::uint32_t{rate} << 16);
  });
  return {"mp4a", 0, 0, static_cast<double>(rate), channels, writer.bytes()};
}

inline std::optional<ContainerError> readingError(const OpenFile& file) {
  try {
    readMovie(file);
    return std::nullopt;
  } catch (const ContainerFailure& failure) {
    return failure.error();
  }
}

template<class Call> std::optional<ContainerError> containerError(Call call) {
  try {
    call();
    return std::nullopt;
  } catch (const ContainerFailure& failure) {
    return failure.error();
  }
}

} // namespace tessarin::container
