#include "recording/RecordingOverlayRegistration.hpp"

#include "model/Errors.hpp"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace tessarin::RecordingOverlayRegistration {

namespace {

constexpr int looks = 8;
constexpr std::chrono::milliseconds betweenLooks{50};

// A desktop that cannot be read at the moment is one look in vain.
std::optional<RunningApplication> ownerOf(std::uint32_t windowNumber, DesktopContent& desktop) {
  try {
    const ShareableContent content = desktop.content();
    const auto window =
        std::find_if(content.windows.begin(), content.windows.end(),
                     [&](const ShareableWindow& each) { return each.windowID == windowNumber; });
    return window == content.windows.end() ? std::nullopt : window->owningApplication;
  } catch (const DesktopFailure&) {
    return std::nullopt;
  }
}

} // namespace

std::unique_ptr<Panel> makePanel(PanelFactory& panels, PanelSetup setup) {
  try {
    return panels.makePanel(std::move(setup));
  } catch (const DesktopFailure&) {
    throw serviceErrors::contentUnavailable();
  }
}

RunningApplication application(std::uint32_t windowNumber, DesktopContent& desktop, const Sleeper& sleep) {
  for (int look = 0; look < looks; ++look) {
    if (look > 0)
      sleep(betweenLooks);
    if (const std::optional<RunningApplication> owner = ownerOf(windowNumber, desktop))
      return *owner;
  }
  throw serviceErrors::contentUnavailable();
}

} // namespace tessarin::RecordingOverlayRegistration
