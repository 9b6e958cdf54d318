#include "project/VideoEditProject.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "project/CharacterCount.hpp"
#include "project/EditBounds.hpp"

#include <string_view>
#include <unordered_set>

namespace tessarin {

namespace {

using namespace editBounds;

constexpr std::size_t mostVersions = 8;
constexpr std::size_t mostIdCharacters = 128;
constexpr std::size_t mostNameCharacters = 60;
constexpr std::int64_t smallestCanvasSide = 2;
constexpr std::int64_t largestCanvasSide = 7680;

void require(bool condition) {
  if (!condition)
    fail(VideoEditExportError::invalidProject);
}

bool canvasSideIsValid(std::int64_t pixels) {
  return pixels >= smallestCanvasSide && pixels <= largestCanvasSide && pixels % 2 == 0;
}

void validateBackground(const VideoCanvasBackgroundDTO& background) {
  require(colorIsValid(background.color));
  require(colorIsValid(background.secondaryColor));
  require(isWithin(background.angleDegrees, 0, 360));
}

void validateCanvas(const VideoCanvasConfigDTO& canvas, const VideoEditProjectDTO& project) {
  require(canvasSideIsValid(canvas.widthPixels));
  require(canvasSideIsValid(canvas.heightPixels));
  require(isWithin(canvas.manualScale, 0.25, 4.0));
  require(isWithin(canvas.offsetX, -1.0, 1.0));
  require(isWithin(canvas.offsetY, -1.0, 1.0));
  require(isWithin(canvas.padding, 0, 0.4));
  require(isWithin(canvas.cornerRadius, 0, 0.2));
  validateBackground(canvas.background);
  if (canvas.preset == VideoCanvasPresetDTO::original)
    require(canvas.widthPixels == project.croppedWidthPixels() &&
            canvas.heightPixels == project.croppedHeightPixels());
}

void validateVersion(const VideoOutputVersionDTO& version, const VideoEditProjectDTO& project,
                     std::unordered_set<std::string_view>& ids) {
  if (version.captionStyle) {
    require(rectIsValid(version.captionStyle->rect));
    require(fontScaleIsValid(version.captionStyle->fontScale));
  }
  require(!version.canvas.contentFrame || rectIsValid(*version.canvas.contentFrame));
  require(!version.id.empty() && hasAtMostCharacters(version.id, mostIdCharacters));
  require(ids.insert(version.id).second);
  require(!trimmed(version.name).empty() && hasAtMostCharacters(version.name, mostNameCharacters));
  validateCanvas(version.canvas, project);
}

} // namespace

void VideoEditProjectDTO::validateOutputs() const {
  if (!outputVersions) {
    require(!activeOutputID);
    return;
  }
  require(!outputVersions->empty() && outputVersions->size() <= mostVersions);
  require(activeOutputID.has_value());
  std::unordered_set<std::string_view> ids;
  for (const VideoOutputVersionDTO& version : *outputVersions)
    validateVersion(version, *this, ids);
  require(activeOutput() != nullptr);
}

} // namespace tessarin
