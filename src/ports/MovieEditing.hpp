#pragma once

#include "base/MediaTimeRange.hpp"
#include "model/AffineTransform.hpp"
#include "model/Picture.hpp"
#include "model/RecordingCodec.hpp"

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

// Looking into media files and making one edited file of them. Served by the editing module. Files may come
// from anywhere: nothing about them is trusted.
namespace tessarin {

enum class MovieEditingError : std::uint8_t {
  unavailable,   // the codecs could not be had at all
  unreadable,    // a source cannot be opened, or is damaged where it is needed
  notComposable, // its tracks cannot be laid on one time line
  notWritten,    // the output could not be coded or written
  cancelled
};

class MovieEditingFailure : public std::exception {
 public:
  explicit MovieEditingFailure(MovieEditingError error) : error_(error) {}
  MovieEditingError error() const noexcept { return error_; }
  const char* what() const noexcept override { return "the media could not be edited"; }

 private:
  MovieEditingError error_;
};

// -- Looking into a file

struct AssetVideoTrack {
  // Of the pictures as they are coded, in square pixels, before the transform.
  double naturalWidth = 0;
  double naturalHeight = 0;
  AffineTransform preferredTransform; // from there to how they are shown
  double nominalFrameRate = 0;        // frames a second on average
  MediaTimeRange timeRange;           // on the file's time line
  std::vector<std::string> subtypes;  // four-character code of each sample description, "avc1"
};

struct AssetAudioTrack {
  MediaTimeRange timeRange;
  std::vector<std::string> subtypes; // "aac " for AAC-LC, "aach" with SBR, "aacp" with SBR and PS
};

struct MediaAsset {
  bool isComposable = false; // its tracks can be decoded here and laid on a time line
  MediaTime duration;        // of the longest track; not numeric when the file does not tell
  std::vector<AssetVideoTrack> videoTracks;
  std::vector<AssetAudioTrack> audioTracks;
};

// A stretch of decoded sound, valid for the length of a call.
struct DecodedSound {
  std::span<const float> samples; // one channel, full scale 1
  MediaTime start;                // on the file's time line
};

class MediaAssets {
 public:
  virtual ~MediaAssets() = default;

  // Reads the file's index and decodes nothing. Throws MovieEditingFailure. Any thread.
  virtual MediaAsset asset(const std::string& path) = 0;

  // The picture that the file's first video track shows at the time, exactly, before its transform; bgrx8,
  // sRGB. Throws MovieEditingFailure, also for a time at which nothing is shown. Any thread.
  virtual Picture picture(const std::string& path, MediaTime time) = 0;

  // Decodes an audio track (by its place among the audio tracks) to one channel of float samples at 48000 a
  // second, in stretches of a coded packet, on the calling thread. Throws MovieEditingFailure; what the
  // handler throws passes through.
  virtual void decodeSound(const std::string& path, std::size_t audioTrackIndex,
                           const std::function<void(const DecodedSound&)>& handler) = 0;
};

// -- Making an edited file

// A stretch of the source and where it is laid; a duration other than the source's means another speed,
// with the pitch of the sound kept. Times at a scale of 1000.
struct MovieSegment {
  MediaTimeRange source;
  MediaTimeRange output;
};

// What an audio track of the source gives to the output.
struct MovieAudioLane {
  std::size_t sourceTrackIndex = 0; // among the source's audio tracks
  std::vector<float> volumes;       // linear gain, one a segment
};

struct MovieComposition {
  std::string sourcePath;             // its first video track, and the audio tracks that the lanes name
  std::vector<MovieSegment> segments; // end to end from 0
  std::vector<MovieAudioLane> audioLanes;
};

// Pixels of a frame to be painted; does not own them.
struct MutablePictureView {
  std::uint8_t* data = nullptr;
  std::int32_t width = 0;    // pixels
  std::int32_t height = 0;   // pixels
  std::ptrdiff_t stride = 0; // bytes from one row to the next
  PixelFormat format = PixelFormat::bgrx8;
};

// What one frame of the output is made of. The pictures are as coded, before their tracks' transforms.
struct CompositionFrame {
  MediaTime outputTime;
  PictureView source;                // bgrx8
  std::optional<PictureView> camera; // bgrx8; nothing past the camera's end
};

class FrameCompositor {
 public:
  virtual ~FrameCompositor() = default;
  // Paints every pixel of the output, bgrx8. Frames come in any order and several at once, on any thread.
  virtual void composite(const CompositionFrame& frame, const MutablePictureView& output) const = 0;
};

// Frames that are painted rather than taken as they are.
struct CompositedVideo {
  std::int32_t width = 0; // pixels, even
  std::int32_t height = 0;
  std::optional<std::string> cameraPath;       // laid on the same segments as the source
  const FrameCompositor* compositor = nullptr; // outlives the export
};

struct MovieExport {
  MovieComposition composition;
  // Pictures and sound are left as they are coded wherever they can be: the track's transform, its size and
  // its codec stay, every lane is a track of its own, and all speeds and volumes are 1. Otherwise all is
  // coded anew: frames on a grid of `frameDuration`, upright by the track's transform unless a compositor
  // takes them as they are, and all lanes mixed into one track of sound.
  bool isPassthrough = false;
  RecordingCodec codec = RecordingCodec::h264; // of pictures that are coded anew
  MediaTime frameDuration;                     // of pictures that are coded anew
  std::optional<CompositedVideo> composited;   // never with passthrough
  std::string outputPath;                      // must not exist
};

class MovieExporter {
 public:
  virtual ~MovieExporter() = default;

  // Writes the file, index first, durable on return. The progress comes with how much of the output is done,
  // 0 to 1000 and never less than before, on any thread but never on two at once. Once a stop is asked for,
  // fails with `cancelled` soon. Throws MovieEditingFailure and leaves no file. Any thread.
  virtual void run(const MovieExport& movie, const std::function<void(int permille)>& progress,
                   std::stop_token stop) = 0;
};

} // namespace tessarin
