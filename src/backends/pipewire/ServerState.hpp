#pragma once

#include "ports/Devices.hpp"

#include <cstdint>
#include <string>
#include <vector>

// What the server tells of its devices, and what of it concerns a recording. Plain values, any thread.
namespace tessarin::pipewire {

// A node of the server's graph that is a device.
struct ServerNode {
  std::uint32_t id = 0;    // in the registry; may be given to another object once this one is gone
  std::string name;        // node.name, the same whenever the device is plugged in
  std::string description; // node.description, empty when it has none
  std::string nick;        // node.nick, empty when it has none
  std::string mediaClass;  // "Audio/Source", "Video/Source", "Audio/Sink", ...
  int priority = 0;        // priority.session; the session manager prefers the greatest
};

struct ServerState {
  std::vector<ServerNode> nodes; // in the order in which the server made them
  // Names of nodes as the session manager chose them; empty when it has not.
  std::string defaultAudioSource;
  std::string defaultAudioSink;
  std::string defaultVideoSource;
};

// Microphones and cameras in the server's order. A sink is no microphone, also where sounds are monitored by
// default: then no microphone is the default. A session manager that chooses no camera leaves the choice to
// priority, and to the order among equals.
std::vector<CaptureDevice> captureDevices(const ServerState& state, MediaKind kind);

// The node of a device of that kind by its id, or the default one; null when there is none.
const ServerNode* findSource(const ServerState& state, MediaKind kind, const std::string* deviceID);

// Whether sound can be played on the node.
bool isSink(const ServerNode& node);

// The sink whose sound people hear; null when there is none, or nobody who chooses among sinks and would
// lead a stream to it.
const ServerNode* findDefaultSink(const ServerState& state);

} // namespace tessarin::pipewire
