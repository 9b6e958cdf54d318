#include "narration/AudioWaveformModels.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "project/EditPaths.hpp"

namespace tessarin {

namespace {

constexpr std::int64_t minimumSampleCount = 64;
constexpr std::int64_t maximumSampleCount = 2048;

} // namespace

ValidatedAudioWaveformRequest AudioWaveformRequestDTO::validated() const {
  if (!isUuid(sessionID))
    fail(AudioWaveformRequestError::invalidSessionID);
  if (sampleCount < minimumSampleCount || sampleCount > maximumSampleCount)
    fail(AudioWaveformRequestError::invalidSampleCount);
  if (!isPlainAbsolutePath(sourcePath) || lastPathComponent(sourcePath) != "recording.mp4" ||
      nameAbove(sourcePath, 1) != sessionID)
    fail(AudioWaveformRequestError::invalidSourcePath);
  return {sourcePath, static_cast<std::size_t>(sampleCount)};
}

} // namespace tessarin
