#pragma once

#include "base/Failure.hpp"
#include "base/FileSystem.hpp"
#include "base/Json.hpp"

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace tessarin {

enum class RecordingSegmentStoreError : std::uint8_t {
  invalidSessionDirectory,
  segmentAlreadyFinalized,
  invalidMedia,
  outputAlreadyExists,
  filesystem
};

// The store's promise of a file name; not in the manifest yet.
struct PendingRecordingSegment {
  std::int64_t index = 0;
  std::string path; // absolute

  bool operator==(const PendingRecordingSegment&) const = default;
};

// A segment that was finished and checked.
struct NativeRecordingSegment {
  std::int64_t index = 0;
  std::string path; // absolute
  std::int64_t durationMs = 0;
  std::int64_t sizeBytes = 0;

  static constexpr auto fields() {
    using Segment = NativeRecordingSegment;
    return json::table(json::field("index", &Segment::index), json::field("path", &Segment::path),
                       json::field("durationMs", &Segment::durationMs),
                       json::field("sizeBytes", &Segment::sizeBytes));
  }
  bool operator==(const NativeRecordingSegment&) const = default;
};

struct NativeRecordingManifest {
  static constexpr std::int64_t currentSchemaVersion = 1; // not that of the control protocol

  std::int64_t schemaVersion = currentSchemaVersion;
  std::string sessionID;
  std::vector<NativeRecordingSegment> segments; // in the order in which they were finished

  static constexpr auto fields() {
    using Manifest = NativeRecordingManifest;
    return json::table(json::field("schemaVersion", &Manifest::schemaVersion),
                       json::field("sessionId", &Manifest::sessionID),
                       json::field("segments", &Manifest::segments));
  }
  bool operator==(const NativeRecordingManifest&) const = default;
};

// Where everything of a session lies below its directory. Absolute paths; nothing of it needs to exist.
struct RecordingSessionPaths {
  explicit RecordingSessionPaths(const std::string& directory);

  // The five files that are joined from the segments.
  std::vector<std::string> mergedOutputs() const;

  std::string sessionDirectory; // without a slash at its end
  std::string segmentsDirectory;
  std::string finalOutput;
  std::string screenOutput;
  std::string cameraOutput;
  std::string systemAudioOutput;
  std::string microphoneOutput;
  std::string interactionEvents;
  std::string sensorData; // a reserved name that nothing writes
  std::string manifest;
};

// Owns the layout of one session directory and the crash-safe record of its finished segments. Failures are
// thrown as Failure<RecordingSegmentStoreError>. Any thread: every operation holds the lock for its whole
// length, disk work included.
class RecordingSegmentStore {
 public:
  // The directory must exist, be no symbolic link and be named by the session's UUID. Creates segments/ in
  // it, and no manifest: where there is none, no segment was finished. The file system outlives the store.
  RecordingSegmentStore(FileSystem& files, std::string sessionID, const std::string& sessionDirectory);

  const std::string& sessionID() const { return sessionID_; }
  const RecordingSessionPaths& paths() const { return paths_; }

  // The next file name. Every call that succeeds uses up a number; one that meets an existing file does not.
  PendingRecordingSegment allocateNextSegment();

  // Enters a finished segment and replaces the manifest as a whole, flushed to disk. On failure neither the
  // list nor the manifest holds it.
  void finalize(const PendingRecordingSegment& pending, std::int64_t durationMs, std::int64_t sizeBytes);

  // Removes what the store knows of, each file regardless of failures with others; segments/ stays.
  void discardAll() noexcept;

  std::vector<NativeRecordingSegment> segments() const;

 private:
  std::string segmentPath(std::int64_t index) const;
  void persistManifestLocked() const;

  FileSystem& files_;
  const std::string sessionID_;
  const RecordingSessionPaths paths_;

  mutable std::mutex lock_;
  // Guarded by lock_.
  std::int64_t nextIndex_ = 0;
  std::vector<NativeRecordingSegment> storedSegments_;
};

} // namespace tessarin
