#pragma once

#include "editing/VideoAssetInspectionModels.hpp"
#include "ports/MovieEditing.hpp"

#include <cstddef>
#include <vector>

namespace tessarin {

// What a recording really holds, for an editor that opens it. Nothing is written. Any thread.
class VideoAssetInspector {
 public:
  // The assets outlive the inspector.
  explicit VideoAssetInspector(MediaAssets& assets) : assets_(assets) {}

  // Throws Failure<VideoAssetInspectionError>.
  VideoAssetInspectionPayload inspect(const ValidatedVideoAssetInspectionRequest& request) const;

  // The roles of a recording's sound tracks in their order, from what it was set to hold: a file does not
  // tell. Two sources in one track were mixed when they were joined. Throws
  // Failure<VideoAssetInspectionError>, invalidAudioCapability, for a number of tracks that does not fit.
  static std::vector<VideoEditAudioRole> audioRoles(bool expectedSystemAudio, bool expectedMicrophone,
                                                    std::size_t trackCount);

 private:
  MediaAssets& assets_;
};

} // namespace tessarin
