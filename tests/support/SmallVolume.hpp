#pragma once

#include "support/TemporaryDirectory.hpp"

#include <cstdint>
#include <string>

namespace tessarin {

// A volume in memory, which costs what is written to it. It is seen by the thread that makes it and by the
// threads and programs that this one starts afterwards. A test that cannot have one fails: everything here
// throws std::runtime_error.
class SmallVolume {
 public:
  explicit SmallVolume(std::uint64_t bytes);
  ~SmallVolume();
  SmallVolume(const SmallVolume&) = delete;
  SmallVolume& operator=(const SmallVolume&) = delete;

  const std::string& path() const { return directory_.path(); }
  // By making the volume smaller or larger, so that this many bytes are free.
  void setFreeBytes(std::uint64_t bytes) const;
  // A file whose bytes really lie on the volume.
  void fill(const std::string& name, std::uint64_t bytes) const;

 private:
  TemporaryDirectory directory_; // the mount point
};

} // namespace tessarin
