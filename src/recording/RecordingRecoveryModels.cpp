#include "recording/RecordingRecoveryModels.hpp"

#include "base/Failure.hpp"
#include "base/Text.hpp"
#include "model/MediaErrors.hpp"
#include "recording/RecordingModels.hpp"
#include "recording/RecordingSegmentStore.hpp"

#include <algorithm>

namespace tessarin {

namespace {

void require(bool condition) {
  if (!condition)
    fail(RecordingRecoveryError::invalidRequest);
}

bool isSegmentPath(const std::string& path, const std::string& segmentsDirectory) {
  if (!isAbsolutePath(path) || hasParentComponent(path) || path.find('\0') != std::string::npos)
    return false;
  std::vector<std::string_view> folder = pathComponents(path);
  if (folder.empty())
    return false;
  folder.pop_back();
  return folder == pathComponents(segmentsDirectory) && lowercasePathExtension(path) == "mp4" &&
         lastPathComponent(path).starts_with("segment-");
}

// However many slashes stand between the components.
bool hasRepeats(const std::vector<std::string>& paths) {
  std::vector<std::vector<std::string_view>> all;
  all.reserve(paths.size());
  for (const std::string& path : paths)
    all.push_back(pathComponents(path));
  std::sort(all.begin(), all.end());
  return std::adjacent_find(all.begin(), all.end()) != all.end();
}

} // namespace

ValidatedRecordingRecoveryRequest RecordingRecoveryRequestDTO::validated() const {
  const std::optional<std::string>& session = sessionID ? sessionID : sessionIDInCapitals;
  require(session && isUuid(*session));
  require(!segmentPaths.empty());
  require(isSessionDirectory(outputDirectory, *session));
  const RecordingSessionPaths paths(outputDirectory);
  require(!hasRepeats(segmentPaths));
  require(std::all_of(segmentPaths.begin(), segmentPaths.end(),
                      [&](const std::string& path) { return isSegmentPath(path, paths.segmentsDirectory); }));

  ValidatedRecordingRecoveryRequest result{.sessionID = *session,
                                           .sessionPath = paths.sessionDirectory,
                                           .segmentPaths = segmentPaths,
                                           .outputPath = paths.finalOutput,
                                           .screenOutputPath = paths.screenOutput,
                                           .cameraOutputPath = {},
                                           .systemAudioOutputPath = {},
                                           .microphoneOutputPath = {},
                                           .interactionEventsPath = {}};
  if (recoverCamera.value_or(false))
    result.cameraOutputPath = paths.cameraOutput;
  if (recoverSystemAudio.value_or(false))
    result.systemAudioOutputPath = paths.systemAudioOutput;
  if (recoverMicrophone.value_or(false))
    result.microphoneOutputPath = paths.microphoneOutput;
  if (recoverInteractions.value_or(false))
    result.interactionEventsPath = paths.interactionEvents;
  return result;
}

} // namespace tessarin
