#include "backends/x11/WindowsTree.hpp"

#include <xcb/shape.h>

#include <optional>
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

void appendChildren(Connection& connection, xcb_query_tree_cookie_t cookie, std::size_t ancestor,
                    std::vector<Descendant>& into) {
  if (const auto reply = connection.reply(xcb_query_tree_reply, cookie)) {
    const auto* children = xcb_query_tree_children(reply.get());
    for (int i = 0; i < xcb_query_tree_children_length(reply.get()); ++i) {
      into.push_back({ancestor, children[i]});
    }
  }
}

struct TopCookies {
  xcb_window_t window = 0;
  xcb_get_window_attributes_cookie_t attributes{};
  xcb_get_geometry_cookie_t geometry{};
  std::optional<xcb_shape_query_extents_cookie_t> extents;
  xcb_get_property_cookie_t state{};
  xcb_query_tree_cookie_t tree{};
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
  cookies.tree = xcb_query_tree(c, window);
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

// Takes all replies, whatever they say. Nothing for a window that is not to be seen; otherwise its children
// are added, unless it is the client itself.
std::optional<TreeWindow> takeTop(Connection& connection, const TopCookies& cookies, std::size_t index,
                                  std::vector<Descendant>& children) {
  const auto attributes = connection.reply(xcb_get_window_attributes_reply, cookies.attributes);
  const auto geometry = connection.reply(xcb_get_geometry_reply, cookies.geometry);
  const auto extents = cookies.extents ? connection.reply(xcb_shape_query_extents_reply, *cookies.extents)
                                       : Owned<xcb_shape_query_extents_reply_t>();
  const bool isManaged = isPresent(connection, cookies.state);
  std::vector<Descendant> own;
  appendChildren(connection, cookies.tree, index, own);

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
  if (!isManaged) {
    children.insert(children.end(), own.begin(), own.end());
  }
  return window;
}

// A managed client has a state; its frame has none.
void findClients(Connection& connection, std::vector<TreeWindow>& windows, std::vector<Descendant> level) {
  for (int depth = 1; depth <= deepestClient && !level.empty(); ++depth) {
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
      appendChildren(connection, cookies[i].second, level[i].ancestor, next);
    }
    std::erase_if(next, [&](const Descendant& each) { return windows[each.ancestor].isManaged; });
    level = std::move(next);
  }
}

} // namespace

std::vector<TreeWindow> readTree(Connection& connection) {
  std::vector<Descendant> tops;
  appendChildren(connection, xcb_query_tree(connection.get(), connection.root()), 0, tops);
  // A compositing manager's overlay shows the other windows once more.
  std::erase_if(tops, [&](const Descendant& each) { return connection.clientBase(each.window) == 0; });

  std::vector<TopCookies> cookies;
  cookies.reserve(tops.size());
  for (const auto& each : tops) {
    cookies.push_back(askTop(connection, each.window));
  }
  std::vector<TreeWindow> windows;
  std::vector<Descendant> children;
  for (const auto& each : cookies) {
    if (auto window = takeTop(connection, each, windows.size(), children)) {
      windows.push_back(*window);
    }
  }
  findClients(connection, windows, std::move(children));
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
      std::vector<Descendant> children;
      appendChildren(connection, cookies[i].tree, level[i].ancestor, children);
      if (!attributes || !geometry || !place || attributes->map_state != XCB_MAP_STATE_VIEWABLE) {
        continue;
      }
      if (isEmbedded) {
        found.push_back({level[i].ancestor,
                         level[i].window,
                         {place->dst_x, place->dst_y, geometry->width, geometry->height}});
      } else {
        next.insert(next.end(), children.begin(), children.end());
      }
    }
    level = std::move(next);
  }
  return found;
}

} // namespace tessarin::x11
