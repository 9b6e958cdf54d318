#pragma once

#include "backends/x11/Windows.hpp"
#include "ports/Desktop.hpp"

#include <map>
#include <optional>
#include <tuple>
#include <vector>

namespace tessarin::x11 {

// The applications behind some windows: one for each process, named after the desktop entry of its window
// class, else after the class itself, else after the process. Where the process is not known, as for a client
// on another machine, a window class makes an application of process 0.
class DiscoveryApplications {
 public:
  explicit DiscoveryApplications(const std::vector<TopLevelWindow>& windows);

  // Nothing for a window of which neither process nor class is known.
  std::optional<RunningApplication> of(const WindowOwner& owner) const;
  // In the order of their processes.
  std::vector<RunningApplication> all() const;

 private:
  struct Key {
    std::int32_t processID = 0;
    std::string className; // only without a process

    bool operator<(const Key& other) const {
      return std::tie(processID, className) < std::tie(other.processID, other.className);
    }
  };

  static std::optional<Key> keyOf(const WindowOwner& owner);
  void add(const WindowOwner& owner);

  std::map<Key, WindowOwner> owners_; // the window that speaks for the application
  std::map<Key, RunningApplication> applications_;
};

} // namespace tessarin::x11
