#include "modules/media/ReadinessObservers.hpp"

#include <utility>

namespace tessarin::media {

// The mutex is held during a call, so that ending the observation waits for it; it is recursive so that
// the handler itself may end it.
struct ReadinessObservers::Observer {
  explicit Observer(std::function<void()> handlerIn) : handler(std::move(handlerIn)) {}

  void call() {
    const std::lock_guard lock(mutex);
    if (isActive)
      handler();
  }
  void end() {
    const std::lock_guard lock(mutex);
    isActive = false;
  }

  std::recursive_mutex mutex;
  bool isActive = true; // under the mutex
  const std::function<void()> handler;
};

class ReadinessObservers::Observation final : public ReadinessObservation {
 public:
  explicit Observation(std::shared_ptr<Observer> observer) : observer_(std::move(observer)) {}
  ~Observation() override { observer_->end(); }

 private:
  std::shared_ptr<Observer> observer_;
};

std::unique_ptr<ReadinessObservation> ReadinessObservers::add(std::function<void()> handler) {
  auto observer = std::make_shared<Observer>(std::move(handler));
  {
    const std::lock_guard lock(mutex_);
    observers_.push_back(observer);
  }
  observer->call();
  return std::make_unique<Observation>(std::move(observer));
}

void ReadinessObservers::notify() {
  std::vector<std::shared_ptr<Observer>> present;
  {
    const std::lock_guard lock(mutex_);
    std::erase_if(observers_, [](const auto& each) { return each.expired(); });
    for (const auto& each : observers_)
      if (auto observer = each.lock())
        present.push_back(std::move(observer));
  }
  for (const auto& observer : present)
    observer->call();
}

} // namespace tessarin::media
