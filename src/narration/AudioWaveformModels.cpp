#include "narration/AudioWaveformModels.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"

namespace tessarin {

namespace {

constexpr std::int64_t minimumSampleCount = 64;
constexpr std::int64_t maximumSampleCount = 2048;

bool isRecordingOf(const std::string& path, const std::string& sessionID) {
  if (!isAbsolutePath(path) || hasParentComponent(path))
    return false;
  const std::vector<std::string_view> components = pathComponents(path);
  return components.size() >= 2 && components.back() == "recording.mp4" &&
         components[components.size() - 2] == sessionID;
}

} // namespace

ValidatedAudioWaveformRequest AudioWaveformRequestDTO::validated() const {
  if (!isUuid(sessionID))
    fail(AudioWaveformRequestError::invalidSessionID);
  if (sampleCount < minimumSampleCount || sampleCount > maximumSampleCount)
    fail(AudioWaveformRequestError::invalidSampleCount);
  if (!isRecordingOf(sourcePath, sessionID))
    fail(AudioWaveformRequestError::invalidSourcePath);
  return {sourcePath, static_cast<std::size_t>(sampleCount)};
}

} // namespace tessarin
