#pragma once

#include "base/SerialQueue.hpp"

#include <memory>

namespace tessarin {

// A watch over a descriptor. Destroyed on its queue, after which the task is not called any more; the
// descriptor stays open until then, and stays its owner's.
class DescriptorWatch {
 public:
  virtual ~DescriptorWatch() = default;
};

// A serial queue that waits for descriptors too, such as the main thread's, where windows live.
class EventQueue : public SerialQueue {
 public:
  // Calls the task while the descriptor is readable, or at its end. On the queue only. The task must not
  // throw.
  [[nodiscard]] virtual std::unique_ptr<DescriptorWatch> whenReadable(int descriptor, Task task) = 0;
};

} // namespace tessarin
