#include "backends/x11/Discovery.hpp"

#include "backends/x11/DiscoveryApplications.hpp"
#include "backends/x11/Displays.hpp"
#include "backends/x11/Windows.hpp"
#include "backends/x11/WindowsProperties.hpp"

#include <unistd.h>

#include <algorithm>
#include <functional>
#include <utility>

namespace tessarin::x11 {

namespace {

// By which a host recognises a menu bar, whatever program draws it.
constexpr auto menuBarOwner = "Menubar";

std::string nameOf(const std::optional<RunningApplication>& application) {
  return application ? application->applicationName : std::string();
}

// The desktop itself is no entry of the list. Icons lie in front of the dock that holds them.
void appendEntries(const TopLevelWindow& window, const std::function<RectDTO(const PixelRect&)>& points,
                   const DiscoveryApplications& applications, std::vector<WindowListEntry>& list) {
  if (window.layer < 0) {
    return;
  }
  for (auto icon = window.icons.rbegin(); icon != window.icons.rend(); ++icon) {
    list.push_back({.number = icon->window,
                    .layer = WindowLayer::statusItem,
                    .bounds = points(icon->bounds),
                    .ownerName = nameOf(applications.of(icon->owner)),
                    .name = icon->title.value_or("")});
  }
  const bool isMenuBar = window.layer == WindowLayer::menuBar;
  list.push_back({.number = window.client,
                  .layer = window.layer,
                  .bounds = points(window.bounds),
                  .ownerName = isMenuBar ? menuBarOwner : nameOf(applications.of(window.owner)),
                  .name = window.title.value_or("")});
}

// Those of our own windows of which nothing is to be seen at the moment lie in front. Their process has the
// number by which the server knows it, as for windows that are seen: in a container it has another one
// itself.
void appendHidden(Connection& connection, std::vector<OwnWindow> own, std::vector<TopLevelWindow>& windows) {
  std::erase_if(own, [&](const OwnWindow& each) {
    return std::any_of(windows.begin(), windows.end(),
                       [&](const auto& window) { return window.client == each.window; });
  });
  std::vector<xcb_window_t> hidden(own.size());
  std::transform(own.begin(), own.end(), hidden.begin(), [](const OwnWindow& each) { return each.window; });
  const auto processes = ProcessQuery(connection, hidden).result();
  for (const auto& each : own) {
    const auto process = processes.find(connection.clientBase(each.window));
    TopLevelWindow window;
    window.client = each.window;
    window.top = each.window;
    window.isOverrideRedirect = true;
    window.layer = WindowLayer::raised;
    window.title = each.title;
    window.owner = {process != processes.end() ? process->second : getpid(), std::string(ownWindowClass),
                    std::string(ownWindowClass)};
    windows.push_back(std::move(window));
  }
}

class Discovery final : public DesktopContent {
 public:
  explicit Discovery(std::shared_ptr<DisplayServer> server) : server_(std::move(server)) {}

  bool hasScreenCaptureAccess() override {
    try {
      server_->connection();
      return true;
    } catch (const DesktopFailure&) {
      return false;
    }
  }

  ShareableContent content() override {
    auto& connection = server_->connection();
    const auto layout = DisplayQuery(connection).result();
    auto windows = readWindows(connection, layout.root);
    appendHidden(connection, server_->ownWindows(), windows);
    const DiscoveryApplications applications(windows);

    ShareableContent content;
    double factor = layout.scale;
    for (const auto& display : layout.displays) {
      const auto frame = displayPointsFromPixels(display.bounds, layout.scale);
      content.displays.push_back({display.id, frame, layout.scale, display.isMain});
      factor = std::max(factor, display.bounds.width / frame.width);
    }
    const auto points = [&](const PixelRect& pixels) {
      return pointsFromPixels(pixels, layout.scale, factor);
    };
    auto& list = content.windowList.emplace();
    for (auto window = windows.rbegin(); window != windows.rend(); ++window) {
      content.windows.push_back({.windowID = window->client,
                                 .frame = points(window->bounds),
                                 .title = window->title,
                                 .windowLayer = window->layer,
                                 .isOnScreen = !window->bounds.isEmpty(),
                                 .owningApplication = applications.of(window->owner)});
      appendEntries(*window, points, applications, list);
    }
    content.applications = applications.all();
    return content;
  }

 private:
  std::shared_ptr<DisplayServer> server_;
};

} // namespace

std::unique_ptr<DesktopContent> makeDesktopContent(std::shared_ptr<DisplayServer> server) {
  return std::make_unique<Discovery>(std::move(server));
}

} // namespace tessarin::x11
