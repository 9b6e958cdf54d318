#include "container/MovieSketch.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

namespace tessarin::container {
namespace {

// A file of a terabyte whose fragments hold nothing but room; counts what is read of it.
class RoomyFile final : public OpenFile {
 public:
  RoomyFile() {
    BoxWriter head;
    Sketch::fragmented().write(head);
    parts_[0] = head.bytes();
    for (std::uint64_t offset = parts_[0].size(); offset < size - fragmentSize; offset += fragmentSize) {
      BoxWriter w;
      w.u32(static_cast<std::uint32_t>(fragmentSize - mediaSize));
      w.code(fourCC("moof"));
      w.fullBox(fourCC("mfhd"), 0, 0, [&] { w.u32(1); });
      w.u32(static_cast<std::uint32_t>(fragmentSize - mediaSize - w.size())); // up to its end
      w.code(fourCC("free"));
      parts_[offset] = w.bytes();
      BoxWriter media;
      media.u32(mediaSize);
      media.code(fourCC("mdat"));
      parts_[offset + fragmentSize - mediaSize] = media.bytes();
    }
  }

  FileInfo info() const override {
    FileInfo info;
    info.kind = FileKind::regular;
    info.sizeBytes = static_cast<std::int64_t>(size);
    return info;
  }
  std::size_t read(std::uint64_t offset, std::span<std::byte> into) const override {
    std::fill(into.begin(), into.end(), std::byte{});
    bytesRead += into.size();
    auto part = parts_.upper_bound(offset);
    for (part = part == parts_.begin() ? part : std::prev(part);
         part != parts_.end() && part->first < offset + into.size(); ++part)
      for (std::size_t i = 0; i < part->second.size(); ++i)
        if (part->first + i >= offset && part->first + i < offset + into.size())
          into[part->first + i - offset] = part->second[i];
    return into.size();
  }
  void write(std::uint64_t, std::span<const std::byte>) override { FAIL(); }
  void truncate(std::uint64_t) override { FAIL(); }
  void sync() override { FAIL(); }
  void copyFrom(const OpenFile&, std::uint64_t, std::uint64_t, std::uint64_t) override { FAIL(); }
  bool cloneFrom(const OpenFile&) override { return false; }

  mutable std::uint64_t bytesRead = 0;

 private:
  static constexpr std::uint64_t size = std::uint64_t{1} << 40;
  static constexpr std::uint64_t fragmentSize = std::uint64_t{200} << 20;
  static constexpr std::uint32_t mediaSize = 8;

  std::map<std::uint64_t, std::vector<std::byte>> parts_; // between zeros
};

TEST(HugeMovie, ReadsAGibibyteOfIndexAndNoMore) {
  const RoomyFile file;
  EXPECT_EQ(readingError(file), ContainerError::tooLarge);
  EXPECT_GT(file.bytesRead, std::uint64_t{900} << 20);
  EXPECT_LT(file.bytesRead, std::uint64_t{1100} << 20);
}

} // namespace
} // namespace tessarin::container
