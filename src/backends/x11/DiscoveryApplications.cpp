#include "backends/x11/DiscoveryApplications.hpp"

#include "backends/x11/DesktopEntries.hpp"
#include "base/Text.hpp"

#include <fstream>
#include <string>

namespace tessarin::x11 {

namespace {

std::string processName(std::int32_t processID) {
  std::ifstream file("/proc/" + std::to_string(processID) + "/comm");
  std::string name;
  std::getline(file, name);
  return repairedUtf8(name);
}

WindowClass classOf(const WindowOwner& owner) {
  return {owner.instanceName, owner.className};
}

} // namespace

DiscoveryApplications::DiscoveryApplications(const std::vector<TopLevelWindow>& windows) {
  // From the front, managed windows first: a menu seldom says more than its application's main window.
  for (const bool isOverrideRedirect : {false, true}) {
    for (auto window = windows.rbegin(); window != windows.rend(); ++window) {
      if (window->isOverrideRedirect == isOverrideRedirect) {
        add(window->owner);
      }
    }
  }
  for (const auto& window : windows) {
    for (const auto& icon : window.icons) {
      add(icon.owner);
    }
  }

  std::vector<WindowClass> classes;
  for (const auto& [key, owner] : owners_) {
    classes.push_back(classOf(owner));
  }
  const auto names = applicationNames(classes, applicationDirectories());
  for (const auto& [key, owner] : owners_) {
    const auto found = names.find(classOf(owner));
    auto name = found != names.end() ? found->second : owner.className;
    if (name.empty()) {
      name = processName(key.processID);
    }
    applications_.emplace(key, RunningApplication{owner.className, key.processID, std::move(name)});
  }
}

std::optional<DiscoveryApplications::Key> DiscoveryApplications::keyOf(const WindowOwner& owner) {
  if (owner.processID) {
    return Key{*owner.processID, {}};
  }
  return owner.className.empty() ? std::nullopt : std::optional(Key{0, owner.className});
}

void DiscoveryApplications::add(const WindowOwner& owner) {
  if (const auto key = keyOf(owner)) {
    const auto [entry, isNew] = owners_.emplace(*key, owner);
    if (!isNew && entry->second.className.empty()) {
      entry->second = owner;
    }
  }
}

std::optional<RunningApplication> DiscoveryApplications::of(const WindowOwner& owner) const {
  const auto key = keyOf(owner);
  const auto found = key ? applications_.find(*key) : applications_.end();
  return found != applications_.end() ? std::optional(found->second) : std::nullopt;
}

std::vector<RunningApplication> DiscoveryApplications::all() const {
  std::vector<RunningApplication> result;
  for (const auto& [key, application] : applications_) {
    result.push_back(application);
  }
  return result;
}

} // namespace tessarin::x11
