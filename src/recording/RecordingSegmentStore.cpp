#include "recording/RecordingSegmentStore.hpp"

#include "base/SafeFile.hpp"
#include "base/Text.hpp"

#include <algorithm>
#include <iomanip>
#include <span>
#include <sstream>
#include <string_view>

namespace tessarin {

namespace {

std::string segmentName(std::int64_t index) {
  std::ostringstream name;
  name << "segment-" << std::setw(4) << std::setfill('0') << index << ".mp4";
  return name.str();
}

// A slash at the end would make the system look through a symbolic link.
std::string withoutTrailingSlashes(const std::string& path) {
  return path.substr(0, path.find_last_not_of('/') + 1);
}

bool existsForSure(FileSystem& files, const std::string& path) {
  try {
    return exists(files, path);
  } catch (const FileFailure&) {
    return false;
  }
}

void checkSessionDirectory(FileSystem& files, const std::string& sessionID, const std::string& directory) {
  if (!isUuid(sessionID) || lastPathComponent(directory) != sessionID)
    fail(RecordingSegmentStoreError::invalidSessionDirectory);
  bool isDirectory = false;
  try {
    isDirectory = isRealDirectory(files, directory);
  } catch (const FileFailure&) {
    isDirectory = false;
  }
  if (!isDirectory)
    fail(RecordingSegmentStoreError::invalidSessionDirectory);
}

} // namespace

RecordingSessionPaths::RecordingSessionPaths(const std::string& directory)
    : sessionDirectory(withoutTrailingSlashes(directory)), segmentsDirectory(sessionDirectory + "/segments"),
      finalOutput(sessionDirectory + "/recording.mp4"), screenOutput(sessionDirectory + "/screen.mp4"),
      cameraOutput(sessionDirectory + "/camera.mp4"),
      systemAudioOutput(sessionDirectory + "/system-audio.m4a"),
      microphoneOutput(sessionDirectory + "/microphone.m4a"),
      interactionEvents(sessionDirectory + "/interaction-events.jsonl"),
      sensorData(sessionDirectory + "/sensor-data.jsonl"),
      manifest(sessionDirectory + "/native-manifest.json") {}

std::vector<std::string> RecordingSessionPaths::mergedOutputs() const {
  return {finalOutput, screenOutput, cameraOutput, systemAudioOutput, microphoneOutput};
}

RecordingSegmentStore::RecordingSegmentStore(FileSystem& files, std::string sessionID,
                                             const std::string& sessionDirectory)
    : files_(files), sessionID_(std::move(sessionID)), paths_(sessionDirectory) {
  checkSessionDirectory(files_, sessionID_, paths_.sessionDirectory);
  try {
    files_.makeDirectory(paths_.segmentsDirectory);
    // A link to a directory would take the recording out of the session's.
    if (!isRealDirectory(files_, paths_.segmentsDirectory))
      fail(RecordingSegmentStoreError::filesystem);
  } catch (const FileFailure&) {
    fail(RecordingSegmentStoreError::filesystem);
  }
}

std::string RecordingSegmentStore::segmentPath(std::int64_t index) const {
  return paths_.segmentsDirectory + '/' + segmentName(index);
}

PendingRecordingSegment RecordingSegmentStore::allocateNextSegment() {
  const std::lock_guard guard(lock_);
  PendingRecordingSegment pending{nextIndex_, segmentPath(nextIndex_)};
  bool taken = false;
  try {
    taken = exists(files_, pending.path);
  } catch (const FileFailure&) {
    fail(RecordingSegmentStoreError::filesystem);
  }
  if (taken)
    fail(RecordingSegmentStoreError::outputAlreadyExists);
  ++nextIndex_;
  return pending;
}

void RecordingSegmentStore::finalize(const PendingRecordingSegment& pending, std::int64_t durationMs,
                                     std::int64_t sizeBytes) {
  const std::lock_guard guard(lock_);
  if (durationMs < 1 || sizeBytes < 1 || pending.path != segmentPath(pending.index) ||
      !existsForSure(files_, pending.path))
    fail(RecordingSegmentStoreError::invalidMedia);
  if (std::any_of(storedSegments_.begin(), storedSegments_.end(),
                  [&](const NativeRecordingSegment& stored) { return stored.index == pending.index; }))
    fail(RecordingSegmentStoreError::segmentAlreadyFinalized);

  storedSegments_.push_back({pending.index, pending.path, durationMs, sizeBytes});
  try {
    persistManifestLocked();
  } catch (...) {
    storedSegments_.pop_back();
    throw;
  }
}

// Whatever stands in the temporary's place, a file that a crash has left or a link, is removed and not
// written into. Only what is known to be on disk may take the place of the old manifest. Once it has, the new
// one is in force for every reader; making the directory entry durable can no longer be undone by reporting a
// failure, and a crash at that moment leaves one of the two manifests whole.
void RecordingSegmentStore::persistManifestLocked() const {
  const std::string temporary = paths_.manifest + ".tmp";
  try {
    const std::string text =
        json::encode(NativeRecordingManifest{NativeRecordingManifest::currentSchemaVersion, sessionID_,
                                             storedSegments_}) +
        '\n';
    if (exists(files_, temporary))
      files_.remove(temporary);
    const std::unique_ptr<OpenFile> file = files_.open(temporary, OpenMode::createExclusive);
    file->write(0, std::as_bytes(std::span(text)));
    file->sync();
    files_.rename(temporary, paths_.manifest);
  } catch (const std::exception&) {
    removeQuietly(files_, temporary);
    fail(RecordingSegmentStoreError::filesystem);
  }
  syncDirectoryQuietly(files_, paths_.sessionDirectory);
}

void RecordingSegmentStore::discardAll() noexcept {
  const std::lock_guard guard(lock_);
  for (const NativeRecordingSegment& segment : storedSegments_)
    removeQuietly(files_, segment.path);
  for (const std::string* path :
       {&paths_.manifest, &paths_.finalOutput, &paths_.screenOutput, &paths_.cameraOutput,
        &paths_.systemAudioOutput, &paths_.microphoneOutput, &paths_.interactionEvents, &paths_.sensorData})
    removeQuietly(files_, *path);
  storedSegments_.clear();
}

std::vector<NativeRecordingSegment> RecordingSegmentStore::segments() const {
  const std::lock_guard guard(lock_);
  return storedSegments_;
}

} // namespace tessarin
