#pragma once

#include "base/MediaTime.hpp"
#include "model/Picture.hpp"
#include "model/RecordingCodec.hpp"
#include "model/Sound.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Writing one media file of several coded tracks as the pictures come. Served by the media module.
namespace tessarin {

struct VideoSettings {
  RecordingCodec codec = RecordingCodec::h264;
  std::int64_t width = 0; // pixels, even
  std::int64_t height = 0;
  std::int64_t averageBitRate = 0; // bits per second
  std::int64_t expectedFrameRate = 0;
  std::int64_t maximumKeyFrameInterval = 1; // frames
  bool allowFrameReordering = false;
  // Pictures come as they happen: a coder that is behind may show one again in place of the next, rather
  // than refuse pictures and fall behind in time. Otherwise every picture is coded.
  bool expectsMediaDataInRealTime = true;
  // What is rendered is turned over first, so that its left is shown at the right.
  bool isMirrored = false;
  // Colour is ITU-R BT.709 for primaries, transfer and matrix, video range.

  bool operator==(const VideoSettings&) const = default;
};

// AAC.
struct AudioSettings {
  std::int32_t sampleRate = 48000; // frames per second
  std::int32_t channelCount = 2;
  std::int64_t bitRate = 192000; // bits per second
  // Sound comes as it happens, and all at once when what brings it has stood still: much may wait for the
  // coder then. Otherwise little does, since the source can wait.
  bool expectsMediaDataInRealTime = true;

  bool operator==(const AudioSettings&) const = default;
};

// A private picture at an input's size, independent of what it was rendered from, in whatever form the
// coder takes. Immutable; may be appended any number of times.
class CodablePicture {
 public:
  virtual ~CodablePicture() = default;
};

// Ends the observation when destroyed; a call under way is waited for, except on its own thread.
class ReadinessObservation {
 public:
  virtual ~ReadinessObservation() = default;
};

// One track of the file to be. Methods are called by one thread at a time unless said otherwise.
class MediaInput {
 public:
  virtual ~MediaInput() = default;
  // Any thread.
  virtual bool isReadyForMoreMediaData() const = 0;
  // Calls the handler at once and then whenever readiness may have changed, on any thread.
  virtual std::unique_ptr<ReadinessObservation> observeReadiness(std::function<void()> handler) = 0;
  virtual void markAsFinished() = 0;
};

class VideoInput : public MediaInput {
 public:
  // Scales the source uniformly until it covers the input's size, centres and crops it, and converts it.
  // Null when no buffer can be had.
  virtual std::shared_ptr<const CodablePicture> render(const PictureView& source) = 0;
  // Hands a picture to the coder without waiting. False when the writer has failed or the input is not ready.
  virtual bool append(std::shared_ptr<const CodablePicture> picture, MediaTime presentationTime) = 0;
};

class AudioInput : public MediaInput {
 public:
  // Hands float32 samples of the input's rate and channels to the coder without waiting; the time is that of
  // the file. Sound keeps its place in time: where nothing was appended, between two samples, before the
  // first or behind the last up to the end of the file's pictures, there is silence; what overlaps the
  // sample before is left out. Jitter of a few milliseconds is evened out. False when the writer has failed,
  // the input is not ready, or the samples are of another form.
  virtual bool append(const AudioSample& sample) = 0;
};

// Where a writer's failure came from, for diagnostics.
struct MediaWriterError {
  std::string domain;
  std::int64_t code = 0;
  std::optional<std::string> underlyingDomain;
  std::int64_t underlyingCode = 0;
};

enum class MediaWriterStatus : std::uint8_t {
  unknown = 0,
  writing = 1,
  completed = 2,
  failed = 3,
  cancelled = 4
};

// Lifecycle: inputs are added, then startWriting, startSession, appends, markAsFinished, and either
// finishWriting or cancelWriting. Destroying it without either stops it and joins its threads, and leaves
// what it has written readable.
//
// The file is fragmented while it grows, so that it can be read up to its last fragment after a crash; the
// fragments begin at key frames. Finished, it is an ordinary file. A failed writer leaves what it has
// written readable.
class MediaFileWriter {
 public:
  virtual ~MediaFileWriter() = default;

  virtual bool canApply(const VideoSettings& settings) = 0;
  // Null when the track cannot be added. The writer owns the input.
  virtual VideoInput* addVideoInput(const VideoSettings& settings) = 0;
  virtual AudioInput* addAudioInput(const AudioSettings& settings) = 0;

  // Creates the file, which must not exist. False on failure.
  virtual bool startWriting() = 0;
  virtual void startSession(MediaTime sourceTime) = 0;
  // Codes what is queued and makes the file whole and durable; the completion runs on the writer's thread.
  virtual void finishWriting(std::function<void()> completion) = 0;
  // Stops at once; what was written of the file is removed.
  virtual void cancelWriting() = 0;

  // Any thread.
  virtual MediaWriterStatus status() const = 0;
  virtual std::optional<MediaWriterError> error() const = 0;
};

struct MediaFileOptions {
  std::string path;
  MediaTime initialFragmentInterval;
  MediaTime fragmentInterval;
};

// A stretch of an audio track of a file, to be placed on a joined time line.
struct AudioPiece {
  std::string path;
  std::int64_t audioTrackIndex = 0; // among the file's audio tracks
  MediaTime start;                  // on the joined time line, not before the end of the piece before
  MediaTime duration;               // from the track's presentation start, above zero
};

// The codecs could not be had at all.
class MediaUnavailable : public std::exception {
 public:
  const char* what() const noexcept override { return "the media codecs are unavailable"; }
};

class MediaFileWriterFactory {
 public:
  virtual ~MediaFileWriterFactory() = default;
  // Throws MediaUnavailable.
  virtual std::unique_ptr<MediaFileWriter> makeWriter(const MediaFileOptions& options) = 0;
};

// The slow way to join sound, for tracks that cannot be joined as they are coded. Any thread.
class AudioReencoder {
 public:
  virtual ~AudioReencoder() = default;
  // Decodes the pieces and codes them as one AAC track (AudioSettings) of a new M4A file, which must not
  // exist, with silence between them. Throws a std::exception of any kind and leaves no file.
  virtual void reencode(const std::vector<AudioPiece>& pieces, const std::string& outputPath) = 0;
};

} // namespace tessarin
