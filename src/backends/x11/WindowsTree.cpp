#include "backends/x11/WindowsTree.hpp"

#include <xcb/shape.h>

#include <algorithm>
#include <map>
#include <optional>
#include <span>
#include <utility>

namespace tessarin::x11 {

namespace {

// Window managers put a client at most this far below their frame.
constexpr int deepestClient = 3;
// Docks hold their icons in a few layers of containers.
constexpr int deepestIcon = 5;

// A window on the way down, and whose descendant it is.
struct Descendant {
  std::size_t ancestor = 0;
  xcb_window_t window = 0;
};

xcb_get_property_cookie_t askPresence(Connection& connection, xcb_window_t window, Atom property) {
  return xcb_get_property(connection.get(), 0, window, connection.atom(property), XCB_ATOM_ANY, 0, 0);
}

bool isPresent(Connection& connection, xcb_get_property_cookie_t cookie) {
  const auto reply = connection.reply(xcb_get_property_reply, cookie);
  return reply && reply->type != XCB_ATOM_NONE;
}

std::vector<xcb_window_t> childrenFrom(Connection& connection, xcb_query_tree_cookie_t cookie) {
  const auto reply = connection.reply(xcb_query_tree_reply, cookie);
  if (!reply) {
    return {};
  }
  const auto* first = xcb_query_tree_children(reply.get());
  return {first, first + xcb_query_tree_children_length(reply.get())};
}

void append(std::vector<Descendant>& into, std::size_t ancestor, std::span<const xcb_window_t> children) {
  for (const auto child : children) {
    into.push_back({ancestor, child});
  }
}

xcb_get_property_cookie_t askWindows(Connection& connection, xcb_window_t window, Atom property) {
  constexpr std::uint32_t most = 4096;
  return xcb_get_property(connection.get(), 0, window, connection.atom(property), XCB_ATOM_WINDOW, 0, most);
}

std::vector<xcb_window_t> windowsFrom(Connection& connection, xcb_get_property_cookie_t cookie) {
  const auto reply = connection.reply(xcb_get_property_reply, cookie);
  if (!reply || reply->format != 32) {
    return {};
  }
  const auto* first = static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
  return {first, first + xcb_get_property_value_length(reply.get()) / 4};
}

struct TopCookies {
  xcb_window_t window = 0;
  xcb_get_window_attributes_cookie_t attributes{};
  xcb_get_geometry_cookie_t geometry{};
  std::optional<xcb_shape_query_extents_cookie_t> extents;
  xcb_get_property_cookie_t state{};
};

TopCookies askTop(Connection& connection, xcb_window_t window) {
  auto* c = connection.get();
  TopCookies cookies;
  cookies.window = window;
  cookies.attributes = xcb_get_window_attributes(c, window);
  cookies.geometry = xcb_get_geometry(c, window);
  if (connection.extension(Extension::shape).isPresent) {
    cookies.extents = xcb_shape_query_extents(c, window);
  }
  cookies.state = askPresence(connection, window, Atom::wmState);
  return cookies;
}

// Extents are told from the corner inside the border, with the border where there is no shape.
PixelRect visibleRect(const xcb_get_geometry_reply_t& geometry, const PixelRect& outer,
                      const xcb_shape_query_extents_reply_t* extents) {
  if (!extents) {
    return outer;
  }
  return {geometry.x + geometry.border_width + extents->bounding_shape_extents_x,
          geometry.y + geometry.border_width + extents->bounding_shape_extents_y,
          extents->bounding_shape_extents_width, extents->bounding_shape_extents_height};
}

// Takes all replies, whatever they say. Nothing for a window that is not to be seen.
std::optional<TreeWindow> takeTop(Connection& connection, const TopCookies& cookies) {
  const auto attributes = connection.reply(xcb_get_window_attributes_reply, cookies.attributes);
  const auto geometry = connection.reply(xcb_get_geometry_reply, cookies.geometry);
  const auto extents = cookies.extents ? connection.reply(xcb_shape_query_extents_reply, *cookies.extents)
                                       : Owned<xcb_shape_query_extents_reply_t>();
  const bool isManaged = isPresent(connection, cookies.state);
  if (!attributes || !geometry || attributes->_class != XCB_WINDOW_CLASS_INPUT_OUTPUT ||
      attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
    return std::nullopt;
  }
  TreeWindow window;
  window.top = cookies.window;
  window.client = cookies.window;
  window.isManaged = isManaged;
  window.isOverrideRedirect = attributes->override_redirect != 0;
  window.outer = {geometry->x, geometry->y, geometry->width + 2 * geometry->border_width,
                  geometry->height + 2 * geometry->border_width};
  window.visible = visibleRect(*geometry, window.outer, extents.get());
  window.depth = geometry->depth;
  window.visual = attributes->visual;
  return window;
}

// The clients that a window manager lists, followed up to the windows that show them. Decorations may have
// dozens of windows for each client, so that looking downwards for the clients costs ten times more.
class ListedClients {
 public:
  // Asks for the parents of the clients.
  ListedClients(Connection& connection, std::span<const xcb_window_t> clients) : connection_(connection) {
    for (const auto client : clients) {
      ascents_.push_back({client, client, xcb_query_tree(connection.get(), client)});
    }
  }

  // The client of each of the top-level windows that has one. They are in ascending order.
  std::map<xcb_window_t, xcb_window_t> follow(const std::vector<xcb_window_t>& tops) {
    std::map<xcb_window_t, xcb_window_t> clientOfTop;
    for (int height = 0; height <= deepestClient && !ascents_.empty(); ++height) {
      std::vector<Ascent> higher;
      for (const auto& each : ascents_) {
        const auto reply = connection_.reply(xcb_query_tree_reply, each.tree);
        if (std::binary_search(tops.begin(), tops.end(), each.reached)) {
          clientOfTop.emplace(each.reached, each.client);
        } else if (reply && std::binary_search(tops.begin(), tops.end(), reply->parent)) {
          clientOfTop.emplace(reply->parent, each.client);
        } else if (reply && reply->parent != XCB_NONE && height < deepestClient) {
          higher.push_back({each.client, reply->parent, {}});
        }
      }
      ascents_ = std::move(higher);
      for (auto& each : ascents_) {
        each.tree = xcb_query_tree(connection_.get(), each.reached);
      }
    }
    return clientOfTop;
  }

 private:
  struct Ascent {
    xcb_window_t client = 0;
    xcb_window_t reached = 0;
    xcb_query_tree_cookie_t tree{};
  };

  Connection& connection_;
  std::vector<Ascent> ascents_;
};

// For window managers that list nothing: a managed client has a state; its frame has none.
void searchClients(Connection& connection, std::vector<TreeWindow>& windows) {
  std::vector<Descendant> level;
  for (std::size_t i = 0; i < windows.size(); ++i) {
    if (!windows[i].isManaged) {
      level.push_back({i, windows[i].top});
    }
  }
  for (int depth = 0; depth <= deepestClient && !level.empty(); ++depth) {
    std::vector<std::pair<xcb_get_property_cookie_t, xcb_query_tree_cookie_t>> cookies;
    cookies.reserve(level.size());
    for (const auto& each : level) {
      cookies.emplace_back(askPresence(connection, each.window, Atom::wmState),
                           xcb_query_tree(connection.get(), each.window));
    }
    std::vector<Descendant> next;
    for (std::size_t i = 0; i < level.size(); ++i) {
      auto& window = windows[level[i].ancestor];
      if (isPresent(connection, cookies[i].first) && !window.isManaged) {
        window.client = level[i].window;
        window.isManaged = true;
      }
      append(next, level[i].ancestor, childrenFrom(connection, cookies[i].second));
    }
    std::erase_if(next, [&](const Descendant& each) { return windows[each.ancestor].isManaged; });
    level = std::move(next);
  }
}

} // namespace

std::vector<TreeWindow> readTree(Connection& connection) {
  const auto root = connection.root();
  const auto rootTree = xcb_query_tree(connection.get(), root);
  const auto rootList = askWindows(connection, root, Atom::netClientList);
  const auto rootCheck = askWindows(connection, root, Atom::netSupportingWmCheck);
  auto tops = childrenFrom(connection, rootTree);
  const auto listed = windowsFrom(connection, rootList);
  const auto check = windowsFrom(connection, rootCheck);
  // A compositing manager's overlay shows the other windows once more.
  std::erase_if(tops, [&](xcb_window_t each) { return connection.clientBase(each) == 0; });

  std::vector<TopCookies> cookies;
  cookies.reserve(tops.size());
  for (const auto each : tops) {
    cookies.push_back(askTop(connection, each));
  }
  // The properties outlive a window manager that is gone; the window they point to doesn't.
  ListedClients clients(connection, listed);
  std::optional<xcb_get_property_cookie_t> checkCookie;
  if (!check.empty()) {
    checkCookie = askWindows(connection, check.front(), Atom::netSupportingWmCheck);
  }

  std::vector<TreeWindow> windows;
  for (const auto& each : cookies) {
    if (const auto window = takeTop(connection, each)) {
      windows.push_back(*window);
    }
  }
  std::sort(tops.begin(), tops.end());
  const auto clientOfTop = clients.follow(tops);
  if (checkCookie && windowsFrom(connection, *checkCookie) == std::vector{check.front()}) {
    for (auto& window : windows) {
      if (const auto found = clientOfTop.find(window.top); found != clientOfTop.end()) {
        window.client = found->second;
        window.isManaged = true;
      }
    }
  } else {
    searchClients(connection, windows);
  }
  return windows;
}

std::vector<EmbeddedWindow> readEmbedded(Connection& connection, const std::vector<xcb_window_t>& docks) {
  struct Cookies {
    xcb_get_window_attributes_cookie_t attributes;
    xcb_get_geometry_cookie_t geometry;
    xcb_translate_coordinates_cookie_t place;
    xcb_get_property_cookie_t info;
    xcb_query_tree_cookie_t tree;
  };
  auto* c = connection.get();
  std::vector<EmbeddedWindow> found;
  std::vector<Descendant> level;
  for (std::size_t i = 0; i < docks.size(); ++i) {
    level.push_back({i, docks[i]});
  }
  for (int depth = 0; depth <= deepestIcon && !level.empty(); ++depth) {
    std::vector<Cookies> cookies;
    cookies.reserve(level.size());
    for (const auto& each : level) {
      cookies.push_back({xcb_get_window_attributes(c, each.window), xcb_get_geometry(c, each.window),
                         xcb_translate_coordinates(c, each.window, connection.root(), 0, 0),
                         askPresence(connection, each.window, Atom::xembedInfo),
                         xcb_query_tree(c, each.window)});
    }
    std::vector<Descendant> next;
    for (std::size_t i = 0; i < level.size(); ++i) {
      const auto attributes = connection.reply(xcb_get_window_attributes_reply, cookies[i].attributes);
      const auto geometry = connection.reply(xcb_get_geometry_reply, cookies[i].geometry);
      const auto place = connection.reply(xcb_translate_coordinates_reply, cookies[i].place);
      const bool isEmbedded = isPresent(connection, cookies[i].info) && depth > 0;
      const auto children = childrenFrom(connection, cookies[i].tree);
      if (!attributes || !geometry || !place || attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
        continue;
      }
      if (isEmbedded) {
        found.push_back({level[i].ancestor,
                         level[i].window,
                         {place->dst_x, place->dst_y, geometry->width, geometry->height}});
      } else {
        append(next, level[i].ancestor, children);
      }
    }
    level = std::move(next);
  }
  return found;
}

} // namespace tessarin::x11
