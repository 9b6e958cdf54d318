#include "backends/x11/ExclusionPlan.hpp"

#include <xcb/shape.h>

#include <algorithm>
#include <string>

namespace tessarin::x11 {

namespace {

bool hasCompositingManager(Connection& connection) {
  const auto name = "_NET_WM_CM_S" + std::to_string(connection.screenNumber());
  const auto atom = connection.required(
      xcb_intern_atom_reply,
      xcb_intern_atom(connection.get(), 0, static_cast<std::uint16_t>(name.size()), name.data()));
  return connection
             .required(xcb_get_selection_owner_reply, xcb_get_selection_owner(connection.get(), atom->atom))
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
  stacked.shape = {};
  const auto* rectangles = xcb_shape_get_rectangles_rectangles(shape.get());
  for (int i = 0; i < xcb_shape_get_rectangles_rectangles_length(shape.get()); ++i) {
    const PixelRect rectangle{outer.x + stacked.borderWidth + rectangles[i].x,
                              outer.y + stacked.borderWidth + rectangles[i].y, rectangles[i].width,
                              rectangles[i].height};
    stacked.shape.add(rectangle.intersection(outer));
  }
}

} // namespace

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
  WindowStack stack{screen, hasCompositingManager(connection), {}};
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
  for (std::size_t i = 0; i < queries.size(); ++i) {
    takeShape(connection, queries[i], hasShapes, stack.windows[i]);
  }
  return stack;
}

ExclusionPlan planExclusion(const WindowStack& stack, const std::vector<std::int32_t>& excludedProcesses,
                            const PixelRect& area) {
  const auto isExcluded = [&](const StackedWindow& stacked) {
    const auto process = stacked.window.owner.processID;
    return process &&
           std::find(excludedProcesses.begin(), excludedProcesses.end(), *process) != excludedProcesses.end();
  };
  ExclusionPlan plan;
  const auto seenArea = area.intersection(stack.screen);
  Region covered; // by what stays, from the front
  for (auto stacked = stack.windows.rbegin(); stacked != stack.windows.rend(); ++stacked) {
    const auto shape = stacked->shape.intersection(seenArea);
    if (isExcluded(*stacked)) {
      auto seen = shape;
      seen.subtract(covered);
      plan.patch.add(seen);
    } else if (stack.isOpaque(*stacked)) {
      covered.add(shape);
    }
  }
  plan.background = plan.patch;
  for (auto index = stack.windows.size(); index-- > 0 && !plan.background.isEmpty();) {
    const auto& stacked = stack.windows[index];
    auto part = plan.background.intersection(stacked.shape);
    if (isExcluded(stacked) || part.isEmpty()) {
      continue;
    }
    const bool isBlended = !stack.isOpaque(stacked);
    if (!isBlended) {
      plan.background.subtract(part);
    }
    plan.layers.insert(plan.layers.begin(), {index, std::move(part), isBlended});
  }
  return plan;
}

} // namespace tessarin::x11
