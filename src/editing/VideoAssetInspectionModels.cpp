#include "editing/VideoAssetInspectionModels.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "project/EditPaths.hpp"

namespace tessarin {

ValidatedVideoAssetInspectionRequest VideoAssetInspectionRequestDTO::validated() const {
  if (!isUuid(sessionID))
    fail(VideoAssetInspectionRequestError::invalidSessionID);
  if (!isPlainMoviePath(sourcePath) || nameAbove(sourcePath, 1) != sessionID)
    fail(VideoAssetInspectionRequestError::invalidSourcePath);
  return {*this, sourcePath};
}

} // namespace tessarin
