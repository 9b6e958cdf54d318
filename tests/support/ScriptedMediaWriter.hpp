#pragma once

#include "ports/MediaWriting.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// One media file of a ScriptedMediaFileWriter: what it is to do, and what was done to it. Shared by the
// test and the writer, whichever lives longer. Turn the script's switches while no writer's thread runs,
// or with the writer's queue turned by hand.
class ScriptedMediaFile {
 public:
  // The number of the picture (its source's first byte) and its time.
  struct Append {
    int picture = 0;
    MediaTime time;
  };

  // The script.
  bool appliesSettings = true;
  bool addsInput = true;
  bool startsWriting = true;
  bool renders = true;
  std::optional<std::size_t> refusedAppend;         // counted from 0
  bool completes = true;                            // else the finish ends in the status failed
  bool holdsCompletion = false;                     // until complete() is called
  std::optional<MediaWriterError> error;            // as the writer reports it
  std::function<void(ScriptedMediaFile&)> onStart;  // when the file is to be created
  std::function<void(ScriptedMediaFile&)> onFinish; // when the file is to be made whole
  std::function<void(ScriptedMediaFile&)> onCancel; // when what was written is to be removed

  // Changes readiness and tells the observers; any thread.
  void setReady(bool isReady);
  // Fails behind the writer's back, as a full disk does: never ready again, and tells the observers.
  void failMeanwhile();
  // Changes readiness without telling anyone yet.
  void becomeReadyUnnoticed();
  // Ends a finish that was held.
  void complete();

  // The log.
  MediaFileOptions options;
  std::optional<VideoSettings> video;
  std::vector<std::string> calls; // all but readiness, pictures and status
  std::vector<Append> appended;
  std::size_t renderCount = 0;
  std::size_t observerCount();
  bool isDestroyed = false;
  // "1@0/30 1@1/30 ...": each append with its picture, and the time as value and timescale.
  std::string appends() const;

 private:
  friend class ScriptedMediaFileWriter;
  friend class ScriptedVideoInput;
  class Observation;

  std::mutex readinessLock_; // guards the next two
  bool isReady_ = true;
  std::vector<std::pair<const void*, std::function<void()>>> observers_;

  MediaWriterStatus status_ = MediaWriterStatus::unknown;
  std::function<void()> heldCompletion_;
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
