#pragma once

#include "base/FileSystem.hpp"
#include "base/HostClock.hpp"
#include "base/SerialQueue.hpp"
#include "model/Errors.hpp"
#include "model/Sound.hpp"
#include "recording/RecordingEventWriter.hpp"
#include "recording/RecordingHealth.hpp"
#include "recording/RecordingModels.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace tessarin {

// Whether the mean square of (at most the first 4096 frames of) the samples lies above 1e-6 of full scale.
// False for other formats, for other than 1 to 8 channels, and when a sample is not finite. Pure.
bool isAudible(const PcmView& audio);

// Watches a running segment once a second: tells the host what its sources and its storage are like, and
// ends the session before a dead source or a full disk ruins it. Sources only stamp times; all judgement
// happens on the monitor's own queue.
class RecordingHealthMonitor {
 public:
  enum class Lane : std::uint8_t { screen, microphone, systemAudio };
  // Host time at which the newest camera picture came; nothing when none has. Called on the monitor's queue.
  using LatestCameraFrame = std::function<std::optional<MediaTime>()>;

  // Clock and file system outlive the monitor.
  RecordingHealthMonitor(const HostClock& clock, FileSystem& files, const QueueFactory& makeQueue);
  ~RecordingHealthMonitor();

  // Starts a watch, or starts it anew: ages count from now at the earliest, and the first check reports in
  // any case. The event writer must live until stop() has returned. `onFailure` is called on the monitor's
  // queue, at most once per watch, after the first failure of the session is on record; it must not block.
  // Any thread but the monitor's queue, as are stop and terminalError.
  void start(const RecordingSettingsDTO& settings, LatestCameraFrame latestCameraFrame,
             const std::string& outputDirectory, const std::string& sessionID,
             RecordingEventWriter& eventWriter, std::function<void()> onFailure);

  // No check runs once this has returned. The failure stays. Waits for a check under way, that is, for the
  // volume to answer and for the host to take an event, which the event writer's output bounds.
  void stop();

  // The failure that this monitor has ended the session for.
  std::optional<NativeServiceError> terminalError();

  // From the writer's queues, any thread.
  void wroteScreenFrame();
  void receivedAudio(Lane lane, const PcmView& audio);

 private:
  static constexpr std::size_t laneCount = 3;
  using Stamps = std::array<std::optional<MediaTime>, laneCount>;

  struct Watch {
    RecordingSettingsDTO settings;
    LatestCameraFrame latestCameraFrame;
    std::string outputDirectory;
    std::string sessionID;
    RecordingEventWriter* eventWriter = nullptr;
    std::function<void()> onFailure;
    MediaTime startedAt;
    std::optional<RecordingHealth> previous; // as last sent to the host
  };

  struct Ages {
    MediaTime screen;
    MediaTime microphone;
    MediaTime microphoneAudible;
    MediaTime systemAudioAudible;
    MediaTime camera;
  };

  void checkOnQueue();
  Ages agesOnQueue() const;
  RecordingHealth judgeOnQueue(const Ages& ages) const;
  std::optional<NativeServiceError> terminalFailureOnQueue(const Ages& ages,
                                                           RecordingStorageHealth storage) const;
  RecordingStorageHealth storageHealth(const std::string& outputDirectory) const;

  const HostClock& clock_;
  FileSystem& files_;

  mutable std::mutex lock_;
  // Guarded by lock_.
  Stamps samples_;
  Stamps audible_;
  Stamps inspected_;

  const std::unique_ptr<SerialQueue> queue_;
  // Confined to queue_.
  Watch watch_;
  std::optional<NativeServiceError> failure_;
  std::unique_ptr<QueueTimer> timer_;
};

} // namespace tessarin
