#pragma once

#include "base/FileSystem.hpp"
#include "base/SerialQueue.hpp"
#include "modules/media/AudioTrackInput.hpp"
#include "modules/media/MovieFile.hpp"
#include "modules/media/VideoTrackInput.hpp"
#include "modules/media/WriterState.hpp"
#include "ports/MediaWriting.hpp"
#include "ports/Modules.hpp"

#include <memory>
#include <optional>
#include <vector>

namespace tessarin::media {

// Writes one recording segment. The caller's threads only convert pictures; each track codes on a thread of
// its own, and the file has one more, so that waiting for the disk delays neither.
//
// Cancelling a writer that has completed or failed changes nothing: what it left is to be kept. A finish
// under way is awaited when the writer is destroyed.
class MediaWriter final : public MediaFileWriter {
 public:
  // The file system and the coders outlive the writer.
  MediaWriter(FileSystem& files, VideoCoders& coders, MediaFileOptions options);
  ~MediaWriter() override;
  MediaWriter(const MediaWriter&) = delete;
  MediaWriter& operator=(const MediaWriter&) = delete;

  bool canApply(const VideoSettings& settings) override;
  VideoInput* addVideoInput(const VideoSettings& settings) override;
  AudioInput* addAudioInput(const AudioSettings& settings) override;
  bool startWriting() override;
  void startSession(MediaTime sourceTime) override;
  void finishWriting(std::function<void()> completion) override;
  void cancelWriting() override;
  MediaWriterStatus status() const override { return state_.status(); }
  std::optional<MediaWriterError> error() const override { return state_.error(); }

 private:
  template<class Track> struct PlacedTrack {
    std::size_t index = 0; // in the file
    std::unique_ptr<Track> input;
  };

  bool mayAddTrack() const { return state_.status() == MediaWriterStatus::unknown; }
  std::size_t trackCount() const { return videoTracks_.size() + audioTracks_.size(); }
  template<class Work> void forEachTrack(const Work& work);
  void write(std::size_t track, CodedPicture picture, std::int64_t time);
  void write(std::size_t track, CodedSound sound);
  template<class Work> void onFileQueue(std::size_t bytes, Work work);
  std::int64_t picturesEnd() const;
  void coderFailed(MediaWriterError error);
  void abandonWriting();
  void finishFile(const std::function<void()>& completion);
  template<class Work> void onFile(const Work& work);
  void notifyReadiness();

  FileSystem& files_;
  VideoCoders& coders_;
  const MediaFileOptions options_;
  WriterState state_;
  bool isFinishing_ = false; // of the caller

  // Of the file's thread, once writing has started.
  std::optional<MovieFile> movie_;
  std::size_t openTracks_ = 0; // that are still to be finished

  // Never changed once writing has started. The tracks hand to the file's queue, and those of video to those
  // of sound, so they end before them.
  std::unique_ptr<SerialQueue> fileQueue_;
  std::vector<PlacedTrack<AudioTrackInput>> audioTracks_;
  std::vector<PlacedTrack<VideoTrackInput>> videoTracks_;
  bool isInRealTime_ = false; // as the first video track is told
};

class MediaWriterFactory final : public MediaFileWriterFactory {
 public:
  MediaWriterFactory(FileSystem& files, HardwareEncoderProbe probe)
      : files_(files), coders_(libraryEncoders(std::move(probe))) {}
  std::unique_ptr<MediaFileWriter> makeWriter(const MediaFileOptions& options) override;

 private:
  FileSystem& files_;
  VideoCoders coders_; // of all segments
};

} // namespace tessarin::media
