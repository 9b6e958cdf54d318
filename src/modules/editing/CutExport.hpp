#pragma once

#include "modules/editing/CutClips.hpp"
#include "modules/editing/CutPictures.hpp"
#include "modules/editing/CutSound.hpp"
#include "modules/editing/CutStore.hpp"
#include "modules/editing/SourceFile.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <stop_token>
#include <vector>

namespace tessarin::editing {

// Makes a file of stretches of another one, which is copied wherever it can be: only pictures before the
// first key of a stretch, and sound around a cut, are coded anew. Confined to one thread. Throws
// MovieEditingFailure, media::CoderFailure, FileFailure and container::ContainerFailure.
class CutExport {
 public:
  // The file layer and the movie outlive this.
  CutExport(FileSystem& files, const MovieExport& movie);

  // Into an empty file, index first; durable on return.
  void run(OpenFile& output, const std::function<void(int permille)>& progress, const std::stop_token& stop);

 private:
  void copy(OpenFile& output, const std::vector<container::JoinTrack>& tracks,
            const container::JoinOptions& options);
  bool hasChanged() const;

  SourceFile source_;
  const FileInfo sourceInfo_; // as it was when its index was read
  const std::vector<CutClip> clips_;
  CutStore store_;
  CutPictures pictures_;
  std::vector<std::unique_ptr<CutSound>> lanes_;
};

} // namespace tessarin::editing
