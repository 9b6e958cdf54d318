#pragma once

#include "base/MediaTime.hpp"
#include "base/SerialQueue.hpp"
#include "model/Geometry.hpp"
#include "model/Picture.hpp"
#include "ports/Desktop.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

// Pixels of the screen: single stills and the recording stream.
namespace tessarin {

// What a capture shows: one display without some applications' windows, or one window by itself.
struct ContentFilter {
  enum class Kind : std::uint8_t { display, desktopIndependentWindow };
  Kind kind = Kind::display;
  std::uint32_t displayID = 0; // for a display; for a window, the display it was assigned to
  std::uint32_t windowID = 0;  // for a window
  std::vector<RunningApplication> excludedApplications; // for a display; matched by process

  bool operator==(const ContentFilter&) const = default;
};

struct StillConfiguration {
  std::optional<RectDTO> sourceRect; // points, local to the display; absent: all of the content
  std::int64_t width = 0;            // pixels asked for
  std::int64_t height = 0;
  bool ignoreShadowsSingleWindow = false;
  bool ignoreGlobalClipSingleWindow = false;
  bool showsCursor = false;
  bool shouldBeOpaque = true;
};

// A capture failed; the picture could not be had.
class CaptureFailure : public std::exception {
 public:
  const char* what() const noexcept override { return "the capture failed"; }
};

// Any thread, one call at a time.
class StillCapturer {
 public:
  virtual ~StillCapturer() = default;

  // Pixels per point of what the filter shows.
  virtual double pointPixelScale(const ContentFilter& filter) = 0;
  // bgrx8 when opaque was asked for, else bgra8Premultiplied. The size may differ from the one asked for
  // when a window has changed. Throws CaptureFailure.
  virtual Picture captureImage(const ContentFilter& filter, const StillConfiguration& configuration) = 0;
};

// Writes 8-bit PNG files tagged sRGB: RGB for opaque pictures, RGBA with straight alpha for others. Any
// thread. Replaces an existing file in place; failures are thrown as FileFailure.
class PngWriter {
 public:
  virtual ~PngWriter() = default;
  virtual void write(const PictureView& picture, const std::string& path) = 0;
};

struct StreamConfiguration {
  RectDTO sourceRect; // points, in the coordinates of the filter's content
  std::int64_t width = 0;
  std::int64_t height = 0;
  MediaTime minimumFrameInterval;
  std::int64_t queueDepth = 5;            // pictures that may be held by receivers at once
  std::uint32_t pixelFormat = 0x42475241; // "BGRA"
  bool capturesAudio = false;
  std::int64_t sampleRate = 48000;
  std::int64_t channelCount = 2;
  bool showsCursor = false;
  bool showMouseClicks = false;

  bool operator==(const StreamConfiguration&) const = default;
};

// One delivery of the stream. A sample without a picture carries status only. The picture is immutable and
// holds one of the stream's `queueDepth` buffers until its last copy is gone. It is at the content's native
// size, cropped or edge-extended by at most one pixel a side where that reaches `width` by `height`.
struct ScreenSample {
  std::optional<Picture> image;
  MediaTime presentationTime; // host clock
  // The picture is the one of the sample that this output got before.
  bool isUnchanged = false;
};

class ScreenSampleOutput {
 public:
  virtual ~ScreenSampleOutput() = default;
  virtual void screenSample(const ScreenSample& sample) = 0;
};

class ScreenStreamDelegate {
 public:
  virtual ~ScreenStreamDelegate() = default;
  // The stream ended by itself: the window is gone, or the display server. Called once, on the stream's
  // thread.
  virtual void streamDidStopWithError() = 0;
};

// Delivers the picture of the content at each frame interval, the first at once. One that has not changed is
// said to be so, and left out while its output is behind. Methods on any thread.
class ScreenStream {
 public:
  virtual ~ScreenStream() = default;

  // Samples go to the output on the queue. Throws CaptureFailure. After the next frame interval at the
  // latest a newly added output gets the present picture, changed or not.
  virtual void addScreenOutput(std::weak_ptr<ScreenSampleOutput> output, SerialQueue& queue) = 0;
  // No sample is handed to the queue for this output once this has returned.
  virtual void removeScreenOutput(const ScreenSampleOutput* output) = 0;
  // Throws CaptureFailure.
  virtual void startCapture() = 0;
  // Returns when capture has ended; the delegate is not called for it. Throws CaptureFailure when it had
  // ended by itself.
  virtual void stopCapture() = 0;
};

class ScreenStreamFactory {
 public:
  virtual ~ScreenStreamFactory() = default;
  // Throws CaptureFailure.
  virtual std::unique_ptr<ScreenStream> makeStream(const ContentFilter& filter,
                                                   const StreamConfiguration& configuration,
                                                   std::weak_ptr<ScreenStreamDelegate> delegate) = 0;
};

} // namespace tessarin
