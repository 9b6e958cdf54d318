#include "support/ScriptedScreenStream.hpp"

#include <utility>

namespace tessarin {

Picture numberedPicture(std::uint8_t number) {
  constexpr std::int32_t side = 2;
  constexpr std::ptrdiff_t stride = side * 4;
  const auto pixels = std::make_shared<std::vector<std::uint8_t>>(stride * side, number);
  return {.view = {.data = pixels->data(), .width = side, .height = side, .stride = stride}, .owner = pixels};
}

class ScriptedScreenStream::Handle final : public ScreenStream {
 public:
  explicit Handle(std::shared_ptr<ScriptedScreenStream> script) : script_(std::move(script)) {}

  void addScreenOutput(std::weak_ptr<ScreenSampleOutput> output, SerialQueue& queue) override {
    {
      const std::lock_guard lock(script_->lock_);
      script_->calls.emplace_back("addScreenOutput");
      if (script_->refusesOutputs)
        throw CaptureFailure();
      script_->outputs_.push_back({output.lock().get(), std::move(output), &queue});
    }
    script_->deliverPresentPicture();
  }

  void removeScreenOutput(const ScreenSampleOutput* output) override {
    if (script_->onRemoveOutput)
      script_->onRemoveOutput();
    const std::lock_guard lock(script_->lock_);
    script_->calls.emplace_back("removeScreenOutput");
    std::erase_if(script_->outputs_, [output](const Output& each) { return each.identity == output; });
  }

  void startCapture() override {
    {
      const std::lock_guard lock(script_->lock_);
      script_->calls.emplace_back("startCapture");
      if (script_->refusesToStart)
        throw CaptureFailure();
      script_->isCapturing_ = true;
    }
    script_->deliverPresentPicture();
  }

  void stopCapture() override {
    {
      const std::lock_guard lock(script_->lock_);
      script_->calls.emplace_back("stopCapture");
      script_->isCapturing_ = false;
    }
    if (script_->onStop)
      script_->onStop();
    if (script_->refusesToStop)
      throw CaptureFailure();
  }

 private:
  std::shared_ptr<ScriptedScreenStream> script_;
};

void ScriptedScreenStream::deliverTo(const Output& output, const ScreenSample& sample) {
  output.queue->sync([&] {
    if (const auto receiver = output.output.lock())
      receiver->screenSample(sample);
  });
}

void ScriptedScreenStream::deliver(const ScreenSample& sample) {
  std::vector<Output> outputs;
  {
    const std::lock_guard lock(lock_);
    outputs = outputs_;
  }
  for (const Output& output : outputs)
    deliverTo(output, sample);
}

void ScriptedScreenStream::deliver(std::uint8_t picture, MediaTime presentationTime) {
  deliver({numberedPicture(picture), presentationTime});
}

void ScriptedScreenStream::deliverPresentPicture() {
  {
    const std::lock_guard lock(lock_);
    if (!isCapturing_ || !presentPicture)
      return;
  }
  deliver(*presentPicture, clock_->now());
}

void ScriptedScreenStream::end() {
  {
    const std::lock_guard lock(lock_);
    isCapturing_ = false;
    refusesToStop = true;
  }
  if (const auto delegate = delegate_.lock())
    delegate->streamDidStopWithError();
}

std::size_t ScriptedScreenStream::outputCount() {
  const std::lock_guard lock(lock_);
  return outputs_.size();
}

std::unique_ptr<ScreenStream>
ScriptedScreenStreamFactory::makeStream(const ContentFilter& filter, const StreamConfiguration& configuration,
                                        std::weak_ptr<ScreenStreamDelegate> delegate) {
  if (refuses)
    throw CaptureFailure();
  auto script = std::make_shared<ScriptedScreenStream>();
  script->filter = filter;
  script->configuration = configuration;
  script->delegate_ = std::move(delegate);
  script->clock_ = &clock_;
  if (prepare)
    prepare(*script);
  streams.push_back(script);
  return std::make_unique<ScriptedScreenStream::Handle>(script);
}

} // namespace tessarin
