#pragma once

#include "base/SerialQueue.hpp"
#include "modules/media/PictureLine.hpp"
#include "modules/media/PictureSequencer.hpp"
#include "modules/media/ReadinessObservers.hpp"
#include "modules/media/VideoCoders.hpp"
#include "modules/media/WriterState.hpp"
#include "pixels/FittedScaler.hpp"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

namespace tessarin::media {

// One video track of a writer. Pictures are converted on the caller's thread, wait in a short line, and are
// coded on a thread of the track's own.
class VideoTrackInput final : public VideoInput {
 public:
  struct Sink {
    // The track's coded pictures in order. On the track's thread.
    std::function<void(CodedPicture picture, std::int64_t time)> coded;
    // The coder gave up. On the track's thread.
    std::function<void(MediaWriterError error)> failed;
  };

  // Throws CoderFailure when the coder cannot be had. Coders and state outlive the input.
  VideoTrackInput(const VideoSettings& settings, VideoCoders& coders, WriterState& state, Sink sink);
  // Drops what waits unless it is being finished, and joins the thread.
  ~VideoTrackInput() override;
  VideoTrackInput(const VideoTrackInput&) = delete;
  VideoTrackInput& operator=(const VideoTrackInput&) = delete;

  bool isReadyForMoreMediaData() const override;
  std::unique_ptr<ReadinessObservation> observeReadiness(std::function<void()> handler) override;
  void markAsFinished() override;
  std::shared_ptr<const CodablePicture> render(const PictureView& source) override;
  bool append(std::shared_ptr<const CodablePicture> picture, MediaTime presentationTime) override;

  const container::SampleDescription& description() const { return coder_.coder->description(); }
  void startSession(MediaTime sourceTime) { sessionStart_ = sourceTime; }
  // Codes what waits and what the coder holds, then calls on the track's thread. Nothing may be appended any
  // more.
  void finish(std::function<void()> completion);
  // Drops what waits, and waits for the coder.
  void stop();
  // Returns when all that was handed over has been dealt with. Not on the track's thread.
  void wait();
  // Where the track ends: one interval of the expected rate after its last picture; 0 without pictures.
  std::int64_t endTime() const;
  // Readiness may have changed for a reason outside the track. Any thread.
  void notifyReadiness() { observers_.notify(); }

 private:
  pixels::FittedArea area() const;
  bool hasRoom() const;
  void watchLoad(std::int64_t time, bool gaveWay);
  void codeNext();
  template<class Work> void guarded(const Work& work);
  std::optional<std::int64_t> nextTime(MediaTime presentationTime) const;

  const VideoSettings settings_;
  VideoCoders& coders_;
  WriterState& state_;
  const Sink sink_;
  ReadinessObservers observers_;
  PicturePool pool_;
  std::atomic<bool> isStopped_ = false;  // what waits is dropped
  std::atomic<bool> isFinished_ = false; // nothing more is taken

  // Of the caller.
  std::optional<pixels::FittedScaler> scaler_;
  MediaTime sessionStart_ = MediaTime::zero();
  std::optional<std::int64_t> lastTime_; // units of the video timescale; read by the finish too
  LoadJudge judge_;
  bool isFinishing_ = false;

  // Of the track's thread, once it has been handed something.
  const NamedCoder coder_;
  PictureSequencer sequencer_;

  PictureLine line_; // has its own lock

  const std::unique_ptr<SerialQueue> queue_; // last, so that its tasks end first
};

} // namespace tessarin::media
