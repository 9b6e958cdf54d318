#include "editing/VideoEditDecisions.hpp"

#include <algorithm>

namespace tessarin {

bool requiresCustomCompositor(const VideoEditProjectDTO& project) {
  const VideoCameraLayerDTO* camera = project.cameraInForce();
  return project.crop != NormalizedVideoCropDTO{0, 0, 1, 1} || !project.overlays.empty() ||
         (camera != nullptr && camera->visible) || project.activeOutputChangesFrame();
}

bool requiresTranscoding(const VideoEditProjectDTO& project) {
  return requiresCustomCompositor(project) ||
         std::any_of(project.clips.begin(), project.clips.end(), [](const VideoEditClipDTO& clip) {
           return clip.rate != 1.0 || clip.volume != 1.0 || !clip.mutedRoles.empty();
         });
}

} // namespace tessarin
