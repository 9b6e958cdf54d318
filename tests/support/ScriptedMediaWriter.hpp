#pragma once

#include "ports/MediaWriting.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tessarin {

// One track of a scripted file: what it is to do, and what was done to it.
class ScriptedMediaTrack {
 public:
  // The number of a picture (its source's first byte), or of the frames of a stretch of sound, and its time.
  struct Append {
    int number = 0;
    MediaTime time;
  };

  // The script.
  bool addsInput = true;
  bool renders = true;
  std::optional<std::size_t> refusedAppend; // counted from 0; the writer fails with it

  // Changes readiness and tells the observers; any thread.
  void setReady(bool isReady);
  // Changes readiness without telling anyone yet.
  void becomeReadyUnnoticed();

  // The log.
  std::optional<VideoSettings> video; // of a track that has been added, one of the two
  std::optional<AudioSettings> audio;
  std::vector<Append> appended;
  std::size_t renderCount = 0;
  std::size_t observerCount();
  // "1@0/30 1@1/30 ...": each append with its number, and the time as value and timescale.
  std::string appends() const;

 private:
  friend class ScriptedTrackState;
  class Observation;

  std::mutex readinessLock_; // guards the rest
  bool isReady_ = true;
  std::vector<std::pair<const void*, std::function<void()>>> observers_;
};

// One media file of a ScriptedMediaFileWriter: what it is to do, and what was done to it. Shared by the
// test and the writer, whichever lives longer. Turn the script's switches while no writer's thread runs,
// or with the writer's queue turned by hand. The file stands for its first track, the screen's, itself.
class ScriptedMediaFile : public ScriptedMediaTrack {
 public:
  // Tracks in the order in which they are added, from 0; may be asked for before it is added.
  ScriptedMediaTrack& track(std::size_t index);

  // The script.
  bool appliesSettings = true;
  bool startsWriting = true;
  bool completes = true;                 // else the finish ends in the status failed
  bool holdsCompletion = false;          // until complete() is called
  std::optional<MediaWriterError> error; // as the writer reports it
  // What is to be done with the file. A FileFailure of the first two makes the writer fail.
  std::function<void(ScriptedMediaFile&)> onStart;  // when the file is to be created
  std::function<void(ScriptedMediaFile&)> onFinish; // when the file is to be made whole
  std::function<void(ScriptedMediaFile&)> onCancel; // when what was written is to be removed

  // Fails behind the writer's back, as a full disk does: no track is ever ready again, and their observers
  // are told.
  void failMeanwhile();
  // Ends a finish that was held.
  void complete();

  // The log.
  MediaFileOptions options;
  // All but readiness, samples and status. What concerns a track but the first ends with its index.
  std::vector<std::string> calls;
  std::size_t trackCount = 0;                       // that have been added
  bool isFinishing() const { return isFinishing_; } // a finish has begun; any thread
  bool isDestroyed = false;

 private:
  friend class ScriptedMediaFileWriter;
  friend class ScriptedTrackState;

  // Whether a step went without a FileFailure.
  bool succeeds(const std::function<void(ScriptedMediaFile&)>& step);

  std::map<std::size_t, ScriptedMediaTrack> laterTracks_;
  MediaWriterStatus status_ = MediaWriterStatus::unknown;
  std::function<void()> heldCompletion_;
  std::atomic<bool> isFinishing_ = false;
};

// Makes writers that follow a script and touch no file of their own.
class ScriptedMediaFileWriterFactory final : public MediaFileWriterFactory {
 public:
  bool isUnavailable = false;
  // Prepares the script of each file, called with its place in the order of making, from 0.
  std::function<void(ScriptedMediaFile&, std::size_t)> prepare;
  std::vector<std::shared_ptr<ScriptedMediaFile>> files;

  std::unique_ptr<MediaFileWriter> makeWriter(const MediaFileOptions& options) override;
};

} // namespace tessarin
