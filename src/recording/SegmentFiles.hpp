#pragma once

#include "base/FileSystem.hpp"

#include <cstddef>
#include <list>
#include <memory>
#include <string>

namespace tessarin {

// The segments that one merge reads. A person may pause more often than a process may have files open, and a
// stop does five merges at once; so where there are many segments, only those that were read last are open.
// Those that are opened again must be the files that they were, or the reading fails with ESTALE.
//
// Confined to one thread, with the files that it opens, which it outlives.
class SegmentFiles {
 public:
  // As many as are simply kept open, which the file layer copies from without passing through this process.
  static constexpr std::size_t mostKeptOpen = 64;

  // Of so many segments. The file layer outlives it.
  SegmentFiles(FileSystem& files, std::size_t count);
  ~SegmentFiles();
  SegmentFiles(const SegmentFiles&) = delete;
  SegmentFiles& operator=(const SegmentFiles&) = delete;

  // For reading only. Throws FileFailure.
  std::unique_ptr<OpenFile> open(const std::string& path);

 private:
  class Reopened;

  const OpenFile& opened(const Reopened& file);
  void keep(const Reopened& file, std::unique_ptr<OpenFile> open);

  FileSystem& files_;
  const bool areFew_;
  // What is open at the moment, the one that was read last first.
  struct Open {
    const Reopened* of;
    std::unique_ptr<OpenFile> file;
  };
  std::list<Open> open_;
};

} // namespace tessarin
