#include "support/ScriptedMediaWriter.hpp"

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

class ScriptedMediaFile::Observation final : public ReadinessObservation {
 public:
  explicit Observation(std::shared_ptr<ScriptedMediaFile> file) : file_(std::move(file)) {}
  ~Observation() override {
    const std::lock_guard lock(file_->readinessLock_);
    std::erase_if(file_->observers_, [this](const auto& observer) { return observer.first == this; });
  }

 private:
  std::shared_ptr<ScriptedMediaFile> file_;
};

void ScriptedMediaFile::setReady(bool isReady) {
  const std::lock_guard lock(readinessLock_);
  isReady_ = isReady;
  for (const auto& [owner, handler] : observers_)
    handler();
}

void ScriptedMediaFile::failMeanwhile() {
  status_ = MediaWriterStatus::failed;
  setReady(false);
}

void ScriptedMediaFile::becomeReadyUnnoticed() {
  const std::lock_guard lock(readinessLock_);
  isReady_ = true;
}

void ScriptedMediaFile::complete() {
  status_ = completes ? MediaWriterStatus::completed : MediaWriterStatus::failed;
  if (onFinish)
    onFinish(*this);
  std::exchange(heldCompletion_, nullptr)();
}

std::size_t ScriptedMediaFile::observerCount() {
  const std::lock_guard lock(readinessLock_);
  return observers_.size();
}

std::string ScriptedMediaFile::appends() const {
  std::string text;
  for (const Append& append : appended) {
    if (!text.empty())
      text += ' ';
    text += std::to_string(append.picture) + "@" + std::to_string(append.time.value()) + "/" +
            std::to_string(append.time.timescale());
  }
  return text;
}

class ScriptedVideoInput final : public VideoInput {
 public:
  explicit ScriptedVideoInput(std::shared_ptr<ScriptedMediaFile> file) : file_(std::move(file)) {}

  bool isReadyForMoreMediaData() const override {
    const std::lock_guard lock(file_->readinessLock_);
    return file_->isReady_;
  }

  std::unique_ptr<ReadinessObservation> observeReadiness(std::function<void()> handler) override {
    auto observation = std::make_unique<ScriptedMediaFile::Observation>(file_);
    const std::lock_guard lock(file_->readinessLock_);
    handler();
    file_->observers_.emplace_back(observation.get(), std::move(handler));
    return observation;
  }

  void markAsFinished() override { file_->calls.emplace_back("markAsFinished"); }

  std::shared_ptr<const CodablePicture> render(const PictureView& source) override {
    ++file_->renderCount;
    if (!file_->renders)
      return nullptr;
    return std::make_shared<ScriptedPicture>(source.data[0]);
  }

  bool append(std::shared_ptr<const CodablePicture> picture, MediaTime presentationTime) override {
    if (file_->refusedAppend == file_->appended.size())
      file_->status_ = MediaWriterStatus::failed;
    if (file_->status_ == MediaWriterStatus::failed)
      return false;
    file_->appended.push_back({static_cast<const ScriptedPicture&>(*picture).number, presentationTime});
    return true;
  }

 private:
  std::shared_ptr<ScriptedMediaFile> file_;
};

class ScriptedMediaFileWriter final : public MediaFileWriter {
 public:
  explicit ScriptedMediaFileWriter(std::shared_ptr<ScriptedMediaFile> file) : file_(std::move(file)) {}
  ~ScriptedMediaFileWriter() override { file_->isDestroyed = true; }

  bool canApply(const VideoSettings&) override { return file_->appliesSettings; }

  AudioInput* addAudioInput(const AudioSettings&) override { return nullptr; }
  VideoInput* addVideoInput(const VideoSettings& settings) override {
    if (!file_->addsInput)
      return nullptr;
    file_->video = settings;
    input_ = std::make_unique<ScriptedVideoInput>(file_);
    return input_.get();
  }

  bool startWriting() override {
    file_->calls.emplace_back("startWriting");
    file_->status_ = file_->startsWriting ? MediaWriterStatus::writing : MediaWriterStatus::failed;
    if (file_->startsWriting && file_->onStart)
      file_->onStart(*file_);
    return file_->startsWriting;
  }

  void startSession(MediaTime sourceTime) override {
    file_->calls.push_back("startSession " + std::to_string(sourceTime.value()));
  }

  void finishWriting(std::function<void()> completion) override {
    file_->calls.emplace_back("finishWriting");
    file_->heldCompletion_ = std::move(completion);
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
  std::shared_ptr<ScriptedMediaFile> file_;
  std::unique_ptr<ScriptedVideoInput> input_;
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
