#pragma once

#include "base/HostClock.hpp"
#include "ports/Capture.hpp"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace tessarin {

// A 2 by 2 picture whose every byte is the number.
Picture numberedPicture(std::uint8_t number);

// A stream that delivers what the test tells it to. Shared by the test and the stream that it stands for.
class ScriptedScreenStream {
 public:
  // The script.
  bool refusesOutputs = false;
  bool refusesToStart = false;
  bool refusesToStop = false; // as a stream does that has ended by itself
  // Delivered at once to every output of a stream that captures, at the clock's time.
  std::optional<std::uint8_t> presentPicture;
  std::function<void()> onStop;         // on the stopping thread, before the stop ends
  std::function<void()> onRemoveOutput; // likewise

  // Delivers on the outputs' queues and waits there, so that the outputs have seen it on return.
  void deliver(const ScreenSample& sample);
  void deliver(std::uint8_t picture, MediaTime presentationTime);
  // The stream ends by itself.
  void end();

  // The log.
  ContentFilter filter;
  StreamConfiguration configuration;
  std::vector<std::string> calls; // addScreenOutput, removeScreenOutput, startCapture, stopCapture
  std::size_t outputCount();

 private:
  friend class ScriptedScreenStreamFactory;
  class Handle;
  struct Output {
    const ScreenSampleOutput* identity = nullptr;
    std::weak_ptr<ScreenSampleOutput> output;
    SerialQueue* queue = nullptr;
  };
  void deliverTo(const Output& output, const ScreenSample& sample);
  void deliverPresentPicture();

  std::mutex lock_; // guards calls and all below
  const HostClock* clock_ = nullptr;
  std::weak_ptr<ScreenStreamDelegate> delegate_;
  std::vector<Output> outputs_;
  bool isCapturing_ = false;
};

class ScriptedScreenStreamFactory final : public ScreenStreamFactory {
 public:
  // The clock outlives the factory and its streams.
  explicit ScriptedScreenStreamFactory(const HostClock& clock) : clock_(clock) {}

  bool refuses = false;
  // Prepares the script of each stream.
  std::function<void(ScriptedScreenStream&)> prepare;
  std::vector<std::shared_ptr<ScriptedScreenStream>> streams;

  std::unique_ptr<ScreenStream> makeStream(const ContentFilter& filter,
                                           const StreamConfiguration& configuration,
                                           std::weak_ptr<ScreenStreamDelegate> delegate) override;

 private:
  const HostClock& clock_;
};

} // namespace tessarin
