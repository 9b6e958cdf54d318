#include "recording/RecordingHealthMonitor.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace tessarin {

namespace {

constexpr MediaTime stalledAge(3, 1);  // seconds without samples
constexpr MediaTime quietAge(8, 1);    // seconds without audible samples
constexpr MediaTime terminalAge(8, 1); // seconds without samples
constexpr MediaTime inspectionInterval(250, 1000);
constexpr std::chrono::seconds checkInterval(1);

constexpr double audibleMeanSquare = 1e-6;
constexpr std::size_t inspectedFrames = 4096;
constexpr std::size_t maximumSegmentFiles = 4096;

std::size_t bytesPerSample(PcmFormat format) {
  switch (format) {
  case PcmFormat::float32:
    return sizeof(float);
  case PcmFormat::int16:
    return sizeof(std::int16_t);
  case PcmFormat::int32:
    return sizeof(std::int32_t);
  case PcmFormat::other:
    return 0;
  }
  return 0;
}

template<class Sample> double sampleAt(const std::byte* bytes) {
  Sample sample;
  std::memcpy(&sample, bytes, sizeof sample);
  return static_cast<double>(sample);
}

double sampleAt(const std::byte* bytes, PcmFormat format) {
  switch (format) {
  case PcmFormat::float32:
    return sampleAt<float>(bytes);
  case PcmFormat::int16:
    return sampleAt<std::int16_t>(bytes) / 0x1p15;
  case PcmFormat::int32:
    return sampleAt<std::int32_t>(bytes) / 0x1p31;
  case PcmFormat::other:
    break;
  }
  return std::numeric_limits<double>::quiet_NaN();
}

std::optional<std::int64_t> freeBytes(FileSystem& files, const std::string& directory) {
  try {
    const std::uint64_t bytes = files.availableBytes(directory);
    return static_cast<std::int64_t>(
        std::min<std::uint64_t>(bytes, std::numeric_limits<std::int64_t>::max()));
  } catch (const FileFailure&) {
    return std::nullopt;
  }
}

bool isMovieName(const std::string& name) {
  static constexpr std::string_view extension = ".mp4";
  return name.size() > extension.size() && name.ends_with(extension);
}

// The bytes of all segment files; nothing when they cannot all be read, or are too many.
std::optional<std::int64_t> segmentBytes(FileSystem& files, const std::string& directory) {
  try {
    const auto names = files.list(directory, maximumSegmentFiles);
    if (!names)
      return std::nullopt;
    std::int64_t total = 0;
    for (const std::string& name : *names) {
      if (!isMovieName(name))
        continue;
      const std::optional<FileInfo> info = files.info(std::string(directory).append("/").append(name));
      if (!info)
        return std::nullopt;
      if (info->kind == FileKind::regular)
        total += info->sizeBytes;
    }
    return total;
  } catch (const FileFailure&) {
    return std::nullopt;
  }
}

RecordingSourceHealth stalledOrHealthy(MediaTime age) {
  return age >= stalledAge ? RecordingSourceHealth::stalled : RecordingSourceHealth::healthy;
}

RecordingSourceHealth quietOrHealthy(MediaTime audibleAge) {
  return audibleAge >= quietAge ? RecordingSourceHealth::quiet : RecordingSourceHealth::healthy;
}

std::size_t indexOf(RecordingHealthMonitor::Lane lane) {
  return static_cast<std::size_t>(lane);
}

} // namespace

bool isAudible(const PcmView& audio) {
  const std::size_t sampleBytes = bytesPerSample(audio.format);
  if (sampleBytes == 0 || audio.channelCount < 1 || audio.channelCount > 8)
    return false;
  const auto channels = static_cast<std::size_t>(audio.channelCount);
  const std::size_t frames =
      std::min({audio.frameCount, inspectedFrames, audio.data.size() / (sampleBytes * channels)});
  const std::size_t count = frames * channels;
  double sum = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const double sample = sampleAt(audio.data.data() + i * sampleBytes, audio.format);
    if (!std::isfinite(sample))
      return false;
    sum += sample * sample;
  }
  return count > 0 && sum / static_cast<double>(count) > audibleMeanSquare;
}

RecordingHealthMonitor::RecordingHealthMonitor(const HostClock& clock, FileSystem& files,
                                               const QueueFactory& makeQueue)
    : clock_(clock), files_(files), queue_(makeQueue("com.tessarin.recording.health")) {}

RecordingHealthMonitor::~RecordingHealthMonitor() {
  stop();
}

void RecordingHealthMonitor::start(const RecordingSettingsDTO& settings, LatestCameraFrame latestCameraFrame,
                                   const std::string& outputDirectory, const std::string& sessionID,
                                   RecordingEventWriter& eventWriter, std::function<void()> onFailure) {
  queue_->sync([&] {
    timer_.reset();
    watch_ = {settings,     std::move(latestCameraFrame), outputDirectory, sessionID,
              &eventWriter, std::move(onFailure),         clock_.now(),    std::nullopt};
    timer_ = queue_->every(checkInterval, checkInterval, [this] { checkOnQueue(); });
  });
}

void RecordingHealthMonitor::stop() {
  queue_->sync([this] { timer_.reset(); });
}

std::optional<NativeServiceError> RecordingHealthMonitor::terminalError() {
  std::optional<NativeServiceError> failure;
  queue_->sync([&] { failure = failure_; });
  return failure;
}

void RecordingHealthMonitor::wroteScreenFrame() {
  const MediaTime now = clock_.now();
  const std::lock_guard guard(lock_);
  samples_[indexOf(Lane::screen)] = now;
}

void RecordingHealthMonitor::receivedAudio(Lane lane, const PcmView& audio) {
  const MediaTime now = clock_.now();
  const std::size_t index = indexOf(lane);
  {
    const std::lock_guard guard(lock_);
    samples_[index] = now;
    if (now - inspected_[index].value_or(MediaTime::zero()) < inspectionInterval)
      return;
    inspected_[index] = now;
  }
  if (!isAudible(audio))
    return;
  const std::lock_guard guard(lock_);
  audible_[index] = now;
}

void RecordingHealthMonitor::checkOnQueue() {
  if (failure_)
    return;
  const Ages ages = agesOnQueue();
  const RecordingHealth health = judgeOnQueue(ages);
  if (watch_.previous != health) {
    try {
      watch_.eventWriter->write({watch_.sessionID, RecordingEvent::HealthChanged{health}});
    } catch (...) {
      failure_ = serviceErrors::recordingFailed();
    }
    watch_.previous = health;
  }
  if (!failure_)
    failure_ = terminalFailureOnQueue(ages, health.storage);
  if (!failure_)
    return;
  timer_->cancel();
  watch_.onFailure();
}

RecordingHealthMonitor::Ages RecordingHealthMonitor::agesOnQueue() const {
  Stamps samples;
  Stamps audible;
  {
    const std::lock_guard guard(lock_);
    samples = samples_;
    audible = audible_;
  }
  const MediaTime now = clock_.now();
  const auto age = [&](const std::optional<MediaTime>& stamp) {
    const MediaTime since = std::max(stamp.value_or(watch_.startedAt), watch_.startedAt);
    return std::max(now - since, MediaTime::zero());
  };
  Ages ages;
  ages.screen = age(samples[indexOf(Lane::screen)]);
  ages.microphone = age(samples[indexOf(Lane::microphone)]);
  ages.microphoneAudible = age(audible[indexOf(Lane::microphone)]);
  ages.systemAudioAudible = age(audible[indexOf(Lane::systemAudio)]);
  ages.camera = age(watch_.latestCameraFrame ? watch_.latestCameraFrame() : std::nullopt);
  return ages;
}

RecordingHealth RecordingHealthMonitor::judgeOnQueue(const Ages& ages) const {
  RecordingHealth health;
  health.screen = stalledOrHealthy(ages.screen);
  if (watch_.settings.microphone)
    health.microphone = ages.microphone >= stalledAge ? RecordingSourceHealth::stalled
                                                      : quietOrHealthy(ages.microphoneAudible);
  if (watch_.settings.systemAudio)
    health.systemAudio = quietOrHealthy(ages.systemAudioAudible);
  if (watch_.settings.camera)
    health.camera = stalledOrHealthy(ages.camera);
  health.storage = storageHealth(watch_.outputDirectory);
  return health;
}

std::optional<NativeServiceError>
RecordingHealthMonitor::terminalFailureOnQueue(const Ages& ages, RecordingStorageHealth storage) const {
  if (storage == RecordingStorageHealth::critical)
    return serviceErrors::recordingStorageLow();
  if (watch_.settings.microphone && ages.microphone >= terminalAge)
    return serviceErrors::microphoneUnavailable();
  if (watch_.settings.camera && ages.camera >= terminalAge)
    return serviceErrors::cameraUnavailable();
  if (ages.screen >= terminalAge)
    return serviceErrors::recordingScreenStalled();
  return std::nullopt;
}

RecordingStorageHealth RecordingHealthMonitor::storageHealth(const std::string& outputDirectory) const {
  const std::optional<std::int64_t> source = segmentBytes(files_, outputDirectory + "/segments");
  if (!source)
    return RecordingStorageHealth::unknown;
  return RecordingHealthPolicy::storage(freeBytes(files_, outputDirectory), *source);
}

} // namespace tessarin
