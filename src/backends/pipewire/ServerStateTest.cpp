#include "backends/pipewire/ServerState.hpp"

#include <gtest/gtest.h>

namespace tessarin::pipewire {
namespace {

ServerState office() {
  ServerState state;
  state.nodes = {
      {30, "dummy", "", "", "", 0},
      {31, "speakers", "Speakers", "", "Audio/Sink", 1000},
      {35, "desk-mic", "Desk microphone", "Desk", "Audio/Source", 500},
      {33, "room-mic", "", "Room", "Audio/Source", 900},
      {34, "filter", "", "", "Audio/Source/Virtual", 0},
      {36, "interface", "Interface", "", "Audio/Duplex", 100},
      {40, "player", "Player", "", "Stream/Output/Audio", 0},
      {41, "camera-a", "Camera A", "", "Video/Source", 10},
      {42, "camera-b", "Camera B", "", "Video/Source", 20},
      {43, "camera-c", "Camera C", "", "Video/Source", 20},
      {44, "", "Nameless", "", "Video/Source", 90},
  };
  state.defaultAudioSource = "room-mic";
  state.defaultAudioSink = "speakers";
  return state;
}

std::string defaultOf(const ServerState& state, MediaKind kind) {
  std::string found;
  for (const auto& device : captureDevices(state, kind)) {
    found += device.isDefault ? device.id + ";" : "";
  }
  return found;
}

TEST(ServerState, ListsMicrophonesInTheServersOrderUnderTheirNamesForPeople) {
  const std::vector<CaptureDevice> expected = {{"desk-mic", "Desk microphone", false},
                                               {"room-mic", "Room", true},
                                               {"filter", "filter", false},
                                               {"interface", "Interface", false}};
  EXPECT_EQ(captureDevices(office(), MediaKind::audio), expected);
}

TEST(ServerState, ListsCamerasThatHaveAnIdentity) {
  const std::vector<CaptureDevice> expected = {
      {"camera-a", "Camera A", false}, {"camera-b", "Camera B", true}, {"camera-c", "Camera C", false}};
  EXPECT_EQ(captureDevices(office(), MediaKind::video), expected);
}

TEST(ServerState, TakesTheDefaultsOfTheSessionManager) {
  auto state = office();
  state.defaultVideoSource = "camera-a";
  EXPECT_EQ(defaultOf(state, MediaKind::video), "camera-a;");
  state.defaultAudioSource = "interface";
  EXPECT_EQ(defaultOf(state, MediaKind::audio), "interface;");
  state.defaultVideoSource = "gone";
  EXPECT_EQ(defaultOf(state, MediaKind::video), "");
}

TEST(ServerState, KnowsNoDefaultMicrophoneWhereASinkStandsInForIt) {
  for (const char* name : {"speakers", "speakers.monitor", "gone", ""}) {
    auto state = office();
    state.defaultAudioSource = name;
    EXPECT_EQ(defaultOf(state, MediaKind::audio), "") << name;
    EXPECT_EQ(findSource(state, MediaKind::audio, nullptr), nullptr) << name;
  }
}

TEST(ServerState, FindsADeviceOfTheKindByItsId) {
  const auto state = office();
  const std::string camera = "camera-a";
  const std::string microphone = "desk-mic";
  const std::string sink = "speakers";
  EXPECT_EQ(findSource(state, MediaKind::video, &camera)->id, 41U);
  EXPECT_EQ(findSource(state, MediaKind::audio, &microphone)->id, 35U);
  EXPECT_EQ(findSource(state, MediaKind::audio, &camera), nullptr);
  EXPECT_EQ(findSource(state, MediaKind::audio, &sink), nullptr);
  EXPECT_EQ(findSource(state, MediaKind::audio, nullptr)->id, 33U);
  EXPECT_EQ(findSource(state, MediaKind::video, nullptr)->id, 42U);
}

TEST(ServerState, FindsTheSinkThatPeopleHear) {
  auto state = office();
  EXPECT_EQ(findDefaultSink(state)->name, "speakers");
  state.defaultAudioSink = "interface";
  EXPECT_EQ(findDefaultSink(state)->name, "interface");
  for (const char* name : {"", "gone", "desk-mic"}) {
    state.defaultAudioSink = name;
    EXPECT_EQ(findDefaultSink(state), nullptr) << name;
  }
  EXPECT_EQ(findDefaultSink(ServerState()), nullptr);
}

} // namespace
} // namespace tessarin::pipewire
