#pragma once

#include "base/Json.hpp"
#include "ports/Devices.hpp"

#include <string>
#include <vector>

namespace tessarin {

// A microphone or a camera as the host offers it to a person. Plain value.
struct RecordingInputDeviceDTO {
  std::string id; // what a recording's request names
  std::string name;
  bool isDefault = false;

  static constexpr auto fields() {
    return json::table(json::field("id", &RecordingInputDeviceDTO::id),
                       json::field("name", &RecordingInputDeviceDTO::name),
                       json::field("isDefault", &RecordingInputDeviceDTO::isDefault));
  }
  bool operator==(const RecordingInputDeviceDTO&) const = default;
};

// The answer of `recording-input-devices`. Plain value.
struct RecordingInputDevicesPayload {
  std::vector<RecordingInputDeviceDTO> microphones;
  std::vector<RecordingInputDeviceDTO> cameras;

  static constexpr auto fields() {
    return json::table(json::field("microphones", &RecordingInputDevicesPayload::microphones),
                       json::field("cameras", &RecordingInputDevicesPayload::cameras));
  }
  bool operator==(const RecordingInputDevicesPayload&) const = default;
};

// Lists the devices that a recording could use. Keeps nothing. Confined as the devices are.
class RecordingInputDeviceService {
 public:
  // Not owned.
  explicit RecordingInputDeviceService(CaptureDevices& devices) : devices_(devices) {}

  // The default device first, then in the order of names, then in the platform's own. Names and ids are
  // valid UTF-8.
  std::vector<RecordingInputDeviceDTO> devices(MediaKind kind) const;

 private:
  CaptureDevices& devices_;
};

} // namespace tessarin
