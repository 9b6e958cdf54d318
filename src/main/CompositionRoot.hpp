#pragma once

#include "base/EventQueue.hpp"
#include "command/MainThreadMode.hpp"
#include "command/NativeCLI.hpp"

#include <memory>
#include <optional>

namespace tessarin {

// The one place that knows which backend serves which port. Making it opens nothing: a backend reaches for
// its server or library when a command first asks something of it.
class CompositionRoot {
 public:
  // The main thread's queue outlives this. Windows live there, in application mode; otherwise there are none.
  // The descriptor is readable once a recording or an export is to end, as endSignals::hold() yields it; it
  // stays open.
  CompositionRoot(EventQueue& mainQueue, MainThreadMode mode, std::optional<int> endSignals);
  ~CompositionRoot();
  CompositionRoot(const CompositionRoot&) = delete;
  CompositionRoot& operator=(const CompositionRoot&) = delete;

  // Refers to this object, which must outlive its users.
  NativeServices services();

  // Opens what every capture of the screen needs, where it is there, and keeps it; a later command finds it
  // open, or opens it anew when it has been lost since.
  void warmUp();

 private:
  struct Backends;
  std::unique_ptr<Backends> backends_;
};

} // namespace tessarin
