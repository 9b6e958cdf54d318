#include "backends/x11/Windows.hpp"

#include "backends/x11/WindowsProperties.hpp"
#include "backends/x11/WindowsTree.hpp"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace tessarin::x11 {

namespace {

// The layer of each window type; menus that are managed have been torn off.
struct TypeLayer {
  Atom type;
  std::int64_t managed;
  std::int64_t unmanaged;
};

constexpr auto typeLayers = std::to_array<TypeLayer>({
    {Atom::typeDesktop, WindowLayer::desktop, WindowLayer::desktop},
    {Atom::typeDock, WindowLayer::menuBar, WindowLayer::menuBar},
    {Atom::typeToolbar, WindowLayer::raised, WindowLayer::raised},
    {Atom::typeUtility, WindowLayer::raised, WindowLayer::raised},
    {Atom::typeMenu, WindowLayer::raised, WindowLayer::popUp},
    {Atom::typeDropdownMenu, WindowLayer::popUp, WindowLayer::popUp},
    {Atom::typePopupMenu, WindowLayer::popUp, WindowLayer::popUp},
    {Atom::typeTooltip, WindowLayer::popUp, WindowLayer::popUp},
    {Atom::typeNotification, WindowLayer::popUp, WindowLayer::popUp},
    {Atom::typeCombo, WindowLayer::popUp, WindowLayer::popUp},
    {Atom::typeDnd, WindowLayer::popUp, WindowLayer::popUp},
    {Atom::typeSplash, WindowLayer::ordinary, WindowLayer::ordinary},
    {Atom::typeDialog, WindowLayer::ordinary, WindowLayer::ordinary},
    {Atom::typeNormal, WindowLayer::ordinary, WindowLayer::ordinary},
});

// The first type that is known decides; types come in the order of preference.
std::int64_t layerOf(const Connection& connection, const WindowProperties& properties,
                     bool isOverrideRedirect) {
  auto layer = isOverrideRedirect ? WindowLayer::popUp : WindowLayer::ordinary;
  for (const auto type : properties.types) {
    const auto found = std::find_if(typeLayers.begin(), typeLayers.end(), [&](const TypeLayer& each) {
      return connection.atom(each.type) == type;
    });
    if (found != typeLayers.end()) {
      layer = isOverrideRedirect ? found->unmanaged : found->managed;
      break;
    }
  }
  return layer == WindowLayer::ordinary && properties.isAbove ? WindowLayer::raised : layer;
}

// A window manager's helpers, which nobody is to see.
bool isHelper(const TreeWindow& window, const PixelRect& root) {
  const bool isPixel = window.visible.width <= 1 && window.visible.height <= 1;
  return !window.isManaged && (isPixel || window.visible.intersection(root).isEmpty());
}

// Without the shadow that the client draws itself, on the sides where it is not decorated.
PixelRect withoutShadow(const PixelRect& visible, const PixelRect& client,
                        const std::array<std::uint32_t, 4>& shadow) {
  const auto side = [](std::int32_t decoration, std::uint32_t extent) {
    return decoration > 0 ? std::int64_t{0} : std::int64_t{extent};
  };
  const auto left = side(client.x - visible.x, shadow[0]);
  const auto right = side(visible.right() - client.right(), shadow[1]);
  const auto top = side(client.y - visible.y, shadow[2]);
  const auto bottom = side(visible.bottom() - client.bottom(), shadow[3]);
  if (left + right >= visible.width || top + bottom >= visible.height) {
    return visible;
  }
  return {visible.x + static_cast<std::int32_t>(left), visible.y + static_cast<std::int32_t>(top),
          visible.width - static_cast<std::int32_t>(left + right),
          visible.height - static_cast<std::int32_t>(top + bottom)};
}

WindowOwner ownerFrom(const Connection& connection, xcb_window_t client, WindowProperties& properties,
                      const std::map<std::uint32_t, std::int32_t>& processes) {
  const auto found = processes.find(connection.clientBase(client));
  return {found != processes.end() ? std::optional(found->second) : properties.processID,
          std::move(properties.instanceName), std::move(properties.className)};
}

// Where a client lies on the screen, without its border.
class PlaceQuery {
 public:
  PlaceQuery(Connection& connection, xcb_window_t window)
      : connection_(&connection), geometry_(xcb_get_geometry(connection.get(), window)),
        place_(xcb_translate_coordinates(connection.get(), window, connection.root(), 0, 0)) {}

  // The fallback when the window is gone.
  PixelRect result(const PixelRect& fallback) {
    const auto geometry = connection_->reply(xcb_get_geometry_reply, geometry_);
    const auto place = connection_->reply(xcb_translate_coordinates_reply, place_);
    return geometry && place ? PixelRect{place->dst_x, place->dst_y, geometry->width, geometry->height}
                             : fallback;
  }

 private:
  Connection* connection_;
  xcb_get_geometry_cookie_t geometry_;
  xcb_translate_coordinates_cookie_t place_;
};

void readIcons(Connection& connection, std::vector<TopLevelWindow>& windows) {
  std::vector<std::size_t> indices;
  std::vector<xcb_window_t> docks;
  for (std::size_t i = 0; i < windows.size(); ++i) {
    if (windows[i].layer == WindowLayer::menuBar) {
      indices.push_back(i);
      docks.push_back(windows[i].client);
    }
  }
  const auto embedded = readEmbedded(connection, docks);

  std::vector<PropertiesQuery> queries;
  std::vector<xcb_window_t> clients;
  for (const auto& each : embedded) {
    queries.emplace_back(connection, each.window);
    clients.push_back(each.window);
  }
  ProcessQuery processQuery(connection, clients);
  std::vector<WindowProperties> properties;
  properties.reserve(queries.size());
  for (auto& query : queries) {
    properties.push_back(query.result());
  }
  const auto processes = processQuery.result();
  for (std::size_t i = 0; i < embedded.size(); ++i) {
    auto& icons = windows[indices[embedded[i].dock]].icons;
    icons.push_back({embedded[i].window, embedded[i].bounds, std::move(properties[i].title),
                     ownerFrom(connection, embedded[i].window, properties[i], processes)});
  }
}

} // namespace

std::vector<TopLevelWindow> readWindows(Connection& connection, const PixelRect& root) {
  auto tree = readTree(connection);
  std::erase_if(tree, [&](const TreeWindow& each) { return each.visible.isEmpty() || isHelper(each, root); });

  std::vector<PropertiesQuery> propertyQueries;
  std::vector<PlaceQuery> placeQueries;
  std::vector<xcb_window_t> clients;
  for (const auto& each : tree) {
    propertyQueries.emplace_back(connection, each.client);
    placeQueries.emplace_back(connection, each.client);
    clients.push_back(each.client);
  }
  ProcessQuery processQuery(connection, clients);

  std::vector<WindowProperties> properties;
  std::vector<PixelRect> places;
  for (std::size_t i = 0; i < tree.size(); ++i) {
    properties.push_back(propertyQueries[i].result());
    places.push_back(placeQueries[i].result(tree[i].visible));
  }
  const auto processes = processQuery.result();

  std::vector<TopLevelWindow> windows;
  for (std::size_t i = 0; i < tree.size(); ++i) {
    const auto& each = tree[i];
    TopLevelWindow window;
    window.client = each.client;
    window.top = each.top;
    window.outer = each.outer;
    window.bounds = withoutShadow(each.visible, places[i], properties[i].shadow);
    window.depth = each.depth;
    window.visual = each.visual;
    window.isOverrideRedirect = !each.isManaged && each.isOverrideRedirect;
    window.layer = layerOf(connection, properties[i], window.isOverrideRedirect);
    window.title = std::move(properties[i].title);
    window.owner = ownerFrom(connection, each.client, properties[i], processes);
    windows.push_back(std::move(window));
  }
  readIcons(connection, windows);
  return windows;
}

} // namespace tessarin::x11
