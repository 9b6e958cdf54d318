#include "backends/x11/ExclusionPlan.hpp"

#include <xcb/shape.h>

#include <algorithm>
#include <string>

namespace tessarin::x11 {

namespace {

bool hasCompositingManager(Connection& connection) {
  return connection
             .required(xcb_get_selection_owner_reply,
                       xcb_get_selection_owner(connection.get(), compositingManagerSelection(connection)))
             ->owner != XCB_NONE;
}

struct ShapeQuery {
  xcb_get_geometry_cookie_t geometry{};
  xcb_shape_query_extents_cookie_t extents{};
  xcb_shape_get_rectangles_cookie_t rectangles{};
};

void takeShape(Connection& connection, const ShapeQuery& query, bool hasShapes, StackedWindow& stacked) {
  const auto& outer = stacked.window.outer;
  if (const auto geometry = connection.reply(xcb_get_geometry_reply, query.geometry)) {
    stacked.borderWidth = geometry->border_width;
  }
  stacked.shape = Region(outer);
  if (!hasShapes) {
    return;
  }
  const auto extents = connection.reply(xcb_shape_query_extents_reply, query.extents);
  const auto shape = connection.reply(xcb_shape_get_rectangles_reply, query.rectangles);
  // The rectangle given for a window without a shape leaves out a part of its border.
  if (!extents || !extents->bounding_shaped || !shape) {
    return;
  }
  stacked.isShaped = true;
  stacked.shape = {};
  const auto* rectangles = xcb_shape_get_rectangles_rectangles(shape.get());
  for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(shape.get()); ++i) {
    const PixelRect rectangle{outer.x + stacked.borderWidth + rectangles[i].x,
                              outer.y + stacked.borderWidth + rectangles[i].y, rectangles[i].width,
                              rectangles[i].height};
    stacked.shape.add(rectangle.intersection(outer));
  }
}

std::vector<xcb_window_t> othersOf(Connection& connection, xcb_query_tree_cookie_t cookie) {
  const auto reply = connection.required(xcb_query_tree_reply, cookie);
  const auto* first = xcb_query_tree_children(reply.get());
  std::vector<xcb_window_t> windows(first, first + xcb_query_tree_children_length(reply.get()));
  std::erase_if(windows, [&](xcb_window_t each) {
    return connection.clientBase(each) == connection.setup().resource_id_base;
  });
  return windows;
}

std::int64_t sizeOf(const Region& region) {
  std::int64_t size = 0;
  for (const auto& rectangle : region.rectangles()) {
    size += std::int64_t{rectangle.width} * rectangle.height;
  }
  return size;
}

PixelRect grownBy(const PixelRect& rectangle, std::int32_t distance) {
  return {rectangle.x - distance, rectangle.y - distance, rectangle.width + 2 * distance,
          rectangle.height + 2 * distance};
}

// The rounded shape of a panel consists of a rectangle for every row. Its whole rectangle is the same picture
// with a hundredth of the work.
Region simplified(const Region& shape) {
  const auto extents = shape.extents();
  return sizeOf(shape) * 2 >= sizeOf(Region(extents)) ? Region(extents) : shape;
}

// From the front: `background` is what no window covers that stays.
std::vector<ExclusionPlan::Layer>
layersOf(const WindowStack& stack, const std::vector<std::int32_t>& excludedProcesses, Region& background) {
  std::vector<ExclusionPlan::Layer> layers;
  for (auto index = stack.windows.size(); index-- > 0 && !background.isEmpty();) {
    const auto& stacked = stack.windows[index];
    if (isExcluded(stacked, excludedProcesses)) {
      continue;
    }
    auto part = background.intersection(stacked.shape);
    if (part.isEmpty()) {
      continue;
    }
    const bool isBlended = !stack.isOpaque(stacked);
    if (!isBlended) {
      background.subtract(stacked.shape);
    }
    layers.push_back({index, std::move(part), isBlended});
  }
  std::reverse(layers.begin(), layers.end());
  return layers;
}

} // namespace

std::vector<xcb_window_t> childrenOfRoot(Connection& connection) {
  return othersOf(connection, xcb_query_tree(connection.get(), connection.root()));
}

xcb_atom_t compositingManagerSelection(Connection& connection) {
  const auto name = "_NET_WM_CM_S" + std::to_string(connection.screenNumber());
  return connection
      .required(xcb_intern_atom_reply,
                xcb_intern_atom(connection.get(), 0, static_cast<std::uint16_t>(name.size()), name.data()))
      ->atom;
}

Region WindowStack::hiddenPart(std::size_t index) const {
  auto seen = windows[index].shape.intersection(screen);
  for (auto above = index + 1; above < windows.size(); ++above) {
    seen.subtract(windows[above].shape);
  }
  auto hidden = windows[index].shape;
  hidden.subtract(seen);
  return hidden;
}

WindowStack readWindowStack(Connection& connection, const PixelRect& screen) {
  WindowStack stack{screen, hasCompositingManager(connection), {}, {}};
  for (auto& window : readWindows(connection, screen)) {
    stack.windows.push_back({std::move(window), 0, {}});
  }
  const bool hasShapes = connection.extension(Extension::shape).isPresent;
  std::vector<ShapeQuery> queries;
  for (const auto& stacked : stack.windows) {
    auto& query = queries.emplace_back();
    query.geometry = xcb_get_geometry(connection.get(), stacked.window.top);
    if (hasShapes) {
      query.extents = xcb_shape_query_extents(connection.get(), stacked.window.top);
      query.rectangles =
          xcb_shape_get_rectangles(connection.get(), stacked.window.top, XCB_SHAPE_SK_BOUNDING);
    }
  }
  const auto tree = xcb_query_tree(connection.get(), connection.root());
  for (std::size_t i = 0; i < queries.size(); ++i) {
    takeShape(connection, queries[i], hasShapes, stack.windows[i]);
  }
  stack.order = othersOf(connection, tree);
  return stack;
}

bool isExcluded(const StackedWindow& stacked, const std::vector<std::int32_t>& excludedProcesses) {
  const auto process = stacked.window.owner.processID;
  return process &&
         std::find(excludedProcesses.begin(), excludedProcesses.end(), *process) != excludedProcesses.end();
}

ExclusionPlan planExclusion(const WindowStack& stack, const std::vector<std::int32_t>& excludedProcesses,
                            const PixelRect& area, const std::vector<PixelRect>& pastPlaces) {
  ExclusionPlan plan;
  const auto seenArea = area.intersection(stack.screen);
  Region covered; // by what stays, from the front
  for (auto stacked = stack.windows.rbegin(); stacked != stack.windows.rend(); ++stacked) {
    if (!isExcluded(*stacked, excludedProcesses)) {
      if (!stack.isComposited) {
        covered.add(stacked->shape.intersection(seenArea));
      }
      continue;
    }
    const auto place =
        stack.isComposited
            ? Region(grownBy(stacked->shape.extents(), stacked->shape.isEmpty() ? 0 : shadowReach))
            : simplified(stacked->shape);
    auto seen = place.intersection(seenArea);
    seen.subtract(covered);
    if (!seen.isEmpty()) {
      const auto& parts = seen.rectangles();
      plan.places.insert(plan.places.end(), parts.begin(), parts.end());
      plan.patch.add(seen);
    }
  }
  for (const auto& past : pastPlaces) {
    plan.patch.add(past.intersection(seenArea));
  }
  plan.background = plan.patch;
  plan.layers = layersOf(stack, excludedProcesses, plan.background);
  return plan;
}

std::vector<std::size_t> windowsAround(const WindowStack& stack,
                                       const std::vector<std::int32_t>& excludedProcesses,
                                       const ExclusionPlan& plan, std::int32_t distance) {
  Region around;
  for (const auto& place : plan.places) {
    around.add(grownBy(place, distance).intersection(stack.screen));
  }
  std::vector<std::size_t> windows;
  for (const auto& layer : layersOf(stack, excludedProcesses, around)) {
    windows.push_back(layer.window);
  }
  return windows;
}

} // namespace tessarin::x11
