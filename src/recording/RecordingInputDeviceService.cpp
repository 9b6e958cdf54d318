#include "recording/RecordingInputDeviceService.hpp"

#include "base/NameOrder.hpp"
#include "base/Text.hpp"

#include <algorithm>

namespace tessarin {

std::vector<RecordingInputDeviceDTO> RecordingInputDeviceService::devices(MediaKind kind) const {
  std::vector<RecordingInputDeviceDTO> result;
  for (const CaptureDevice& device : devices_.devices(kind))
    result.push_back(
        {.id = repairedUtf8(device.id), .name = repairedUtf8(device.name), .isDefault = device.isDefault});
  std::stable_sort(
      result.begin(), result.end(), [](const RecordingInputDeviceDTO& a, const RecordingInputDeviceDTO& b) {
        return a.isDefault != b.isDefault ? a.isDefault : std::is_lt(compareNames(a.name, b.name));
      });
  return result;
}

} // namespace tessarin
