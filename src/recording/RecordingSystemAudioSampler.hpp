#pragma once

#include "base/SerialQueue.hpp"
#include "desktop/ContentService.hpp"
#include "desktop/WindowCaptureActivator.hpp"
#include "ports/Devices.hpp"
#include "recording/SystemAudioLevelCollector.hpp"

#include <string_view>
#include <utility>

namespace tessarin {

// Listens for a moment to what the computer plays. Keeps nothing. One thread at a time, which is none of the
// devices' own.
class RecordingSystemAudioSampler {
 public:
  // Neither the content service nor the devices are owned.
  RecordingSystemAudioSampler(const ContentService& content, CaptureDevices& devices, QueueFactory makeQueue,
                              Sleeper sleep)
      : content_(content), devices_(devices), makeQueue_(std::move(makeQueue)), sleep_(std::move(sleep)) {}

  // The level of 0.4 seconds; zeros when no sound was delivered. The display is the one that a recording
  // would be made of: sound is listened to only where it is there. Throws NativeServiceError:
  // permissionDenied without access to the screen; contentUnavailable without that display, or when the
  // sound cannot be captured, at first or to the end.
  RecordingAudioLevelPayload sample(std::string_view displayID) const;

 private:
  const ContentService& content_;
  CaptureDevices& devices_;
  QueueFactory makeQueue_;
  Sleeper sleep_;
};

} // namespace tessarin
