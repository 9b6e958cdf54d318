#pragma once

#include "base/FileSystem.hpp"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace tessarin::editing {

// What is coded anew on its way into a file: kept in a file beside it that has no name any more, so that
// memory stays flat and nothing is left behind. Made with the first byte. Confined to one thread. Throws
// FileFailure.
class CutStore {
 public:
  // The file layer outlives the store.
  CutStore(FileSystem& files, std::string outputPath) : files_(files), outputPath_(std::move(outputPath)) {}

  // Yields where the bytes lie.
  std::uint64_t append(std::span<const std::byte> bytes);
  // Puts what has been appended where copies find it.
  void flush();
  // Once something has been appended.
  const OpenFile& file() const { return *file_; }

 private:
  FileSystem& files_;
  const std::string outputPath_;
  std::unique_ptr<OpenFile> file_;
  std::vector<std::byte> pending_; // the last bytes, not yet written
  std::uint64_t written_ = 0;
};

} // namespace tessarin::editing
