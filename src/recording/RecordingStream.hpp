#pragma once

#include "base/SerialQueue.hpp"
#include "ports/Capture.hpp"
#include "ports/Devices.hpp"

#include <functional>
#include <memory>

namespace tessarin {

// Takes the computer's sound from a RecordingStream.
class AudioSampleOutput {
 public:
  virtual ~AudioSampleOutput() = default;
  // On the queue with which the output was added.
  virtual void audioSample(const AudioSample& sample) = 0;
};

// The one capture stream of a session: the screen's pictures and, when its configuration captures audio,
// what the computer plays. It runs for the session's whole length; writers add and remove themselves as
// outputs. Methods on the session's thread, or on another one that it waits for.
class RecordingStream {
 public:
  // Makes the screen's stream without starting it; the sound is opened with the start. Everything referred
  // to outlives this. The screen's own end goes to the delegate; an end of the sound goes to `onAudioEnd`, at
  // most once and not behind stopCapture(), on a thread of the device, which it must not block. Throws
  // CaptureFailure.
  RecordingStream(ScreenStreamFactory& screens, CaptureDevices& devices, const ContentFilter& filter,
                  const StreamConfiguration& configuration, std::weak_ptr<ScreenStreamDelegate> delegate,
                  std::function<void()> onAudioEnd);
  ~RecordingStream();
  RecordingStream(const RecordingStream&) = delete;
  RecordingStream& operator=(const RecordingStream&) = delete;

  bool capturesAudio() const;

  // As ScreenStream has them.
  void addScreenOutput(std::weak_ptr<ScreenSampleOutput> output, SerialQueue& queue);
  void removeScreenOutput(const ScreenSampleOutput* output);
  // The same for sound. Throws CaptureFailure without sound, and while another output is there.
  void addAudioOutput(std::weak_ptr<AudioSampleOutput> output, SerialQueue& queue);
  void removeAudioOutput(const AudioSampleOutput* output);

  // Sound first, so that it is there with the first picture. Throws CaptureFailure, with nothing running,
  // also when there is no sound to capture. To be called once.
  void startCapture();
  // Ends both, the sound also when the screen's stop fails. Throws CaptureFailure as ScreenStream does.
  void stopCapture();

 private:
  class Sound;
  const std::unique_ptr<ScreenStream> screen_;
  const std::unique_ptr<Sound> sound_; // null without audio
};

} // namespace tessarin
