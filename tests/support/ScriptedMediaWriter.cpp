#include "support/ScriptedMediaWriter.hpp"

#include "base/FileSystem.hpp"

#include <algorithm>
#include <utility>

namespace tessarin {

namespace {

class ScriptedPicture final : public CodablePicture {
 public:
  explicit ScriptedPicture(int pictureNumber) : number(pictureNumber) {}
  const int number;
};

} // namespace

class ScriptedMediaTrack::Observation final : public ReadinessObservation {
 public:
  Observation(std::shared_ptr<ScriptedMediaFile> file, ScriptedMediaTrack& track)
      : file_(std::move(file)), track_(track) {}
  ~Observation() override {
    const std::lock_guard lock(track_.readinessLock_);
    std::erase_if(track_.observers_, [this](const auto& observer) { return observer.first == this; });
  }
  Observation(const Observation&) = delete;
  Observation& operator=(const Observation&) = delete;

 private:
  const std::shared_ptr<ScriptedMediaFile> file_; // keeps the track
  ScriptedMediaTrack& track_;
};

void ScriptedMediaTrack::setReady(bool isReady) {
  const std::lock_guard lock(readinessLock_);
  isReady_ = isReady;
  for (const auto& [owner, handler] : observers_)
    handler();
}

void ScriptedMediaTrack::becomeReadyUnnoticed() {
  const std::lock_guard lock(readinessLock_);
  isReady_ = true;
}

std::size_t ScriptedMediaTrack::observerCount() {
  const std::lock_guard lock(readinessLock_);
  return observers_.size();
}

std::string ScriptedMediaTrack::appends() const {
  std::string text;
  for (const Append& append : appended) {
    if (!text.empty())
      text += ' ';
    text += std::to_string(append.number) + "@" + std::to_string(append.time.value()) + "/" +
            std::to_string(append.time.timescale());
  }
  return text;
}

ScriptedMediaTrack& ScriptedMediaFile::track(std::size_t index) {
  return index == 0 ? *this : laterTracks_[index];
}

bool ScriptedMediaFile::succeeds(const std::function<void(ScriptedMediaFile&)>& step) {
  try {
    step(*this);
    return true;
  } catch (const FileFailure&) {
    return false;
  }
}

void ScriptedMediaFile::failMeanwhile() {
  status_ = MediaWriterStatus::failed;
  setReady(false);
  for (auto& [index, track] : laterTracks_)
    track.setReady(false);
}

void ScriptedMediaFile::complete() {
  status_ = completes ? MediaWriterStatus::completed : MediaWriterStatus::failed;
  if (onFinish && !succeeds(onFinish))
    status_ = MediaWriterStatus::failed;
  std::exchange(heldCompletion_, nullptr)();
}

// What the inputs of both kinds have in common: one track of a file.
class ScriptedTrackState {
 public:
  ScriptedTrackState(std::shared_ptr<ScriptedMediaFile> file, std::size_t index)
      : file_(std::move(file)), index_(index), track_(file_->track(index)) {}

  ScriptedMediaTrack& track() { return track_; }

  bool isReady() const {
    const std::lock_guard lock(track_.readinessLock_);
    return track_.isReady_;
  }

  std::unique_ptr<ReadinessObservation> observe(std::function<void()> handler) {
    auto observation = std::make_unique<ScriptedMediaTrack::Observation>(file_, track_);
    const std::lock_guard lock(track_.readinessLock_);
    handler();
    track_.observers_.emplace_back(observation.get(), std::move(handler));
    return observation;
  }

  void markAsFinished() {
    file_->calls.push_back(index_ == 0 ? "markAsFinished" : "markAsFinished " + std::to_string(index_));
  }

  bool append(int number, MediaTime time) {
    if (track_.refusedAppend == track_.appended.size())
      file_->status_ = MediaWriterStatus::failed;
    if (file_->status_ != MediaWriterStatus::writing)
      return false;
    track_.appended.push_back({number, time});
    return true;
  }

 private:
  const std::shared_ptr<ScriptedMediaFile> file_;
  const std::size_t index_;
  ScriptedMediaTrack& track_;
};

namespace {

class ScriptedVideoInput final : public VideoInput {
 public:
  explicit ScriptedVideoInput(ScriptedTrackState state) : state_(std::move(state)) {}

  bool isReadyForMoreMediaData() const override { return state_.isReady(); }
  std::unique_ptr<ReadinessObservation> observeReadiness(std::function<void()> handler) override {
    return state_.observe(std::move(handler));
  }
  void markAsFinished() override { state_.markAsFinished(); }

  std::shared_ptr<const CodablePicture> render(const PictureView& source) override {
    ++state_.track().renderCount;
    if (!state_.track().renders)
      return nullptr;
    return std::make_shared<ScriptedPicture>(source.data[0]);
  }

  bool append(std::shared_ptr<const CodablePicture> picture, MediaTime presentationTime) override {
    return state_.append(static_cast<const ScriptedPicture&>(*picture).number, presentationTime);
  }

 private:
  ScriptedTrackState state_;
};

class ScriptedAudioInput final : public AudioInput {
 public:
  explicit ScriptedAudioInput(ScriptedTrackState state) : state_(std::move(state)) {}

  bool isReadyForMoreMediaData() const override { return state_.isReady(); }
  std::unique_ptr<ReadinessObservation> observeReadiness(std::function<void()> handler) override {
    return state_.observe(std::move(handler));
  }
  void markAsFinished() override { state_.markAsFinished(); }

  bool append(const AudioSample& sample) override {
    return state_.append(static_cast<int>(sample.pcm.frameCount), sample.presentationTime);
  }

 private:
  ScriptedTrackState state_;
};

} // namespace

class ScriptedMediaFileWriter final : public MediaFileWriter {
 public:
  explicit ScriptedMediaFileWriter(std::shared_ptr<ScriptedMediaFile> file) : file_(std::move(file)) {}
  ~ScriptedMediaFileWriter() override { file_->isDestroyed = true; }
  ScriptedMediaFileWriter(const ScriptedMediaFileWriter&) = delete;
  ScriptedMediaFileWriter& operator=(const ScriptedMediaFileWriter&) = delete;

  bool canApply(const VideoSettings&) override { return file_->appliesSettings; }

  VideoInput* addVideoInput(const VideoSettings& settings) override {
    return add<ScriptedVideoInput>(settings, &ScriptedMediaTrack::video);
  }
  AudioInput* addAudioInput(const AudioSettings& settings) override {
    return add<ScriptedAudioInput>(settings, &ScriptedMediaTrack::audio);
  }

  bool startWriting() override {
    file_->calls.emplace_back("startWriting");
    const bool hasStarted = file_->startsWriting && (!file_->onStart || file_->succeeds(file_->onStart));
    file_->status_ = hasStarted ? MediaWriterStatus::writing : MediaWriterStatus::failed;
    return hasStarted;
  }

  void startSession(MediaTime sourceTime) override {
    file_->calls.push_back("startSession " + std::to_string(sourceTime.value()));
  }

  void finishWriting(std::function<void()> completion) override {
    file_->calls.emplace_back("finishWriting");
    file_->heldCompletion_ = std::move(completion);
    file_->isFinishing_ = true;
    if (!file_->holdsCompletion)
      file_->complete();
  }

  void cancelWriting() override {
    file_->calls.emplace_back("cancelWriting");
    file_->status_ = MediaWriterStatus::cancelled;
    if (file_->onCancel)
      file_->onCancel(*file_);
  }

  MediaWriterStatus status() const override { return file_->status_; }
  std::optional<MediaWriterError> error() const override { return file_->error; }

 private:
  template<class Input, class Settings>
  Input* add(const Settings& settings, std::optional<Settings> ScriptedMediaTrack::*place) {
    const std::size_t index = file_->trackCount;
    ScriptedMediaTrack& track = file_->track(index);
    if (!track.addsInput)
      return nullptr;
    track.*place = settings;
    ++file_->trackCount;
    auto input = std::make_unique<Input>(ScriptedTrackState(file_, index));
    Input* const added = input.get();
    inputs_.push_back(std::move(input));
    return added;
  }

  const std::shared_ptr<ScriptedMediaFile> file_;
  std::vector<std::unique_ptr<MediaInput>> inputs_;
};

std::unique_ptr<MediaFileWriter> ScriptedMediaFileWriterFactory::makeWriter(const MediaFileOptions& options) {
  if (isUnavailable)
    throw MediaUnavailable();
  auto file = std::make_shared<ScriptedMediaFile>();
  file->options = options;
  if (prepare)
    prepare(*file, files.size());
  files.push_back(file);
  return std::make_unique<ScriptedMediaFileWriter>(file);
}

} // namespace tessarin
