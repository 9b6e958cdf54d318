#include "recording/RecordingInputDeviceService.hpp"

#include "support/ScriptedDevices.hpp"

#include <gtest/gtest.h>

namespace tessarin {
namespace {

using List = std::vector<RecordingInputDeviceDTO>;

TEST(RecordingInputDeviceService, TheDefaultComesBeforeNamesThatComeEarlier) {
  ScriptedDevices devices;
  devices.microphoneList = {{"a", "Alpha", false}, {"z", "Zeta", true}, {"b", "Beta", false}};
  EXPECT_EQ(RecordingInputDeviceService(devices).devices(MediaKind::audio),
            (List{{"z", "Zeta", true}, {"a", "Alpha", false}, {"b", "Beta", false}}));
}

TEST(RecordingInputDeviceService, NamesAreInTheOrderThatAPersonExpects) {
  ScriptedDevices devices;
  devices.cameraList = {{"1", "Mic 10", false},
                        {"2", "mic 2", false},
                        {"3", "Mic 1", false},
                        {"4", "\u00C4ther", false},
                        {"5", "azur", false}};
  EXPECT_EQ(RecordingInputDeviceService(devices).devices(MediaKind::video), (List{{"4", "\u00C4ther", false},
                                                                                  {"5", "azur", false},
                                                                                  {"3", "Mic 1", false},
                                                                                  {"2", "mic 2", false},
                                                                                  {"1", "Mic 10", false}}));
}

TEST(RecordingInputDeviceService, DevicesOfOneNameKeepThePlatformsOrder) {
  ScriptedDevices devices;
  devices.microphoneList = {
      {"b", "USB", false}, {"a", "USB", false}, {"d", "AAA", false}, {"c", "USB", false}};
  EXPECT_EQ(RecordingInputDeviceService(devices).devices(MediaKind::audio),
            (List{{"d", "AAA", false}, {"b", "USB", false}, {"a", "USB", false}, {"c", "USB", false}}));
}

TEST(RecordingInputDeviceService, WithoutDevicesTheListsAreEmpty) {
  ScriptedDevices devices;
  devices.cameraList.clear();
  const RecordingInputDeviceService service(devices);
  EXPECT_EQ(json::encode(RecordingInputDevicesPayload{service.devices(MediaKind::audio),
                                                      service.devices(MediaKind::video)}),
            R"({"cameras":[],"microphones":[{"id":"microphone-1","isDefault":true,"name":"Microphone"}]})");
  devices.reachable = false;
  EXPECT_TRUE(service.devices(MediaKind::audio).empty());
}

TEST(RecordingInputDeviceService, ANameThatIsNotUtf8IsRepaired) {
  ScriptedDevices devices;
  devices.microphoneList = {{"m", "Mic \xFF", false}};
  EXPECT_EQ(RecordingInputDeviceService(devices).devices(MediaKind::audio),
            (List{{"m", "Mic \uFFFD", false}}));
}

} // namespace
} // namespace tessarin
