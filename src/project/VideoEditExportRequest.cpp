#include "project/VideoEditExportRequest.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "project/EditPaths.hpp"

namespace tessarin {

namespace {

void require(bool condition) {
  if (!condition)
    fail(VideoEditExportError::invalidRequest);
}

} // namespace

ValidatedVideoEditExportRequest VideoEditExportRequestDTO::validated() const {
  require(isUuid(sessionID));
  const std::string& source = project.source.path;
  require(isPlainMoviePath(source) && nameAbove(source, 1) == sessionID);
  require(isPlainMoviePath(outputPath) && nameAbove(outputPath, 1) == editExportsDirectoryName &&
          nameAbove(outputPath, 2) == sessionID && !areSamePath(source, outputPath));
  std::optional<std::string> camera;
  if (project.source.camera) {
    camera = project.source.camera->path;
    require(isPlainAbsolutePath(*camera) && lastPathComponent(*camera) == editCameraFileName &&
            haveSameParent(*camera, source) && !areSamePath(*camera, outputPath));
  }
  project.validate(sessionID, source);
  return {*this, source, std::move(camera), outputPath};
}

} // namespace tessarin
