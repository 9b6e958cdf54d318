#include "backends/pipewire/ServerState.hpp"

#include <algorithm>

namespace tessarin::pipewire {

namespace {

bool isSource(const ServerNode& node, MediaKind kind) {
  if (node.name.empty()) {
    return false;
  }
  return kind == MediaKind::audio
             ? node.mediaClass == "Audio/Source" || node.mediaClass == "Audio/Source/Virtual" ||
                   node.mediaClass == "Audio/Duplex"
             : node.mediaClass == "Video/Source" || node.mediaClass == "Video/Source/Virtual";
}

std::string label(const ServerNode& node) {
  if (!node.description.empty()) {
    return node.description;
  }
  return node.nick.empty() ? node.name : node.nick;
}

template<class Holds> const ServerNode* findNode(const ServerState& state, Holds holds) {
  const auto found = std::find_if(state.nodes.begin(), state.nodes.end(), holds);
  return found == state.nodes.end() ? nullptr : &*found;
}

// The first of the greatest priority.
const ServerNode* findPreferredSource(const ServerState& state, MediaKind kind) {
  const ServerNode* preferred = nullptr;
  for (const auto& node : state.nodes) {
    if (isSource(node, kind) && (!preferred || node.priority > preferred->priority)) {
      preferred = &node;
    }
  }
  return preferred;
}

const ServerNode* findDefaultSource(const ServerState& state, MediaKind kind) {
  const auto& chosen = kind == MediaKind::audio ? state.defaultAudioSource : state.defaultVideoSource;
  if (!chosen.empty()) {
    return findNode(state,
                    [&](const ServerNode& node) { return node.name == chosen && isSource(node, kind); });
  }
  return kind == MediaKind::video ? findPreferredSource(state, kind) : nullptr;
}

} // namespace

bool isSink(const ServerNode& node) {
  return !node.name.empty() && (node.mediaClass == "Audio/Sink" || node.mediaClass == "Audio/Duplex");
}

std::vector<CaptureDevice> captureDevices(const ServerState& state, MediaKind kind) {
  const auto* chosen = findDefaultSource(state, kind);
  std::vector<CaptureDevice> devices;
  for (const auto& node : state.nodes) {
    if (isSource(node, kind)) {
      devices.push_back({node.name, label(node), &node == chosen});
    }
  }
  return devices;
}

const ServerNode* findSource(const ServerState& state, MediaKind kind, const std::string* deviceID) {
  if (!deviceID) {
    return findDefaultSource(state, kind);
  }
  return findNode(state,
                  [&](const ServerNode& node) { return node.name == *deviceID && isSource(node, kind); });
}

const ServerNode* findDefaultSink(const ServerState& state) {
  return findNode(
      state, [&](const ServerNode& node) { return node.name == state.defaultAudioSink && isSink(node); });
}

} // namespace tessarin::pipewire
