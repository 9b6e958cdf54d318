#include "editing/VideoAssetInspector.hpp"

#include "base/Failure.hpp"
#include "model/MediaErrors.hpp"

#include <cmath>

namespace tessarin {

namespace {

using enum VideoAssetInspectionError;

MediaAsset assetOf(MediaAssets& assets, const std::string& path) {
  try {
    return assets.asset(path);
  } catch (const MovieEditingFailure&) {
    fail(invalidMedia);
  }
}

// Seconds times 1000, to the nearest; 0 for a time that is not numeric.
std::int64_t durationMsOf(const MediaAsset& asset) {
  return asset.duration.wholeMilliseconds();
}

std::int64_t wholePixels(double size) {
  constexpr double most = 1e6; // far beyond every coder, and safe to convert
  if (!std::isfinite(size) || std::round(size) < 1 || size > most)
    fail(invalidDimensions);
  return std::llround(size);
}

} // namespace

std::vector<VideoEditAudioRole>
VideoAssetInspector::audioRoles(bool expectedSystemAudio, bool expectedMicrophone, std::size_t trackCount) {
  using enum VideoEditAudioRole;
  std::vector<VideoEditAudioRole> roles;
  if (expectedSystemAudio && expectedMicrophone && trackCount == 1)
    return {mixed};
  if (expectedSystemAudio)
    roles.push_back(system);
  if (expectedMicrophone)
    roles.push_back(microphone);
  if (roles.size() != trackCount)
    fail(invalidAudioCapability);
  return roles;
}

VideoAssetInspectionPayload
VideoAssetInspector::inspect(const ValidatedVideoAssetInspectionRequest& request) const {
  const MediaAsset asset = assetOf(assets_, request.sourceURL);
  if (!asset.isComposable)
    fail(notComposable);
  if (!asset.duration.isNumeric() || asset.duration <= MediaTime::zero() || durationMsOf(asset) < 1)
    fail(invalidDuration);
  if (asset.videoTracks.empty())
    fail(missingVideo);
  const AssetVideoTrack& video = asset.videoTracks.front();
  const RectDTO shown = video.preferredTransform.boundsOf({0, 0, video.naturalWidth, video.naturalHeight});
  VideoAssetInspectionPayload payload{.sourcePath = request.request.sourcePath,
                                      .durationMs = durationMsOf(asset),
                                      .widthPixels = wholePixels(shown.width),
                                      .heightPixels = wholePixels(shown.height),
                                      .audioTracks = {}};
  const std::vector<VideoEditAudioRole> roles = audioRoles(
      request.request.expectedSystemAudio, request.request.expectedMicrophone, asset.audioTracks.size());
  payload.audioTracks.reserve(roles.size());
  for (const VideoEditAudioRole role : roles)
    payload.audioTracks.push_back({static_cast<std::int64_t>(payload.audioTracks.size()), role});
  return payload;
}

} // namespace tessarin
