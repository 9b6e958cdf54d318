#include "backends/x11/PanelServer.hpp"

#include "backends/x11/ExclusionPlan.hpp"
#include "ports/Capture.hpp"

#include <xcb/xfixes.h>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <utility>

namespace tessarin::x11 {

namespace {

constexpr std::string_view shadowProperty = "_COMPTON_SHADOW";
constexpr std::chrono::milliseconds lastPatience = std::chrono::seconds(1);

PixelReader makeReader(Connection& connection) {
  try {
    return PixelReader(connection);
  } catch (const CaptureFailure&) {
    throw DesktopFailure();
  }
}

// A visual with alpha, if there is one that we can paint.
std::optional<xcb_visualid_t> alphaVisual(const Connection& connection, const PixelReader& reader) {
  auto depths = xcb_screen_allowed_depths_iterator(&connection.screen());
  for (; depths.rem > 0; xcb_depth_next(&depths)) {
    auto visuals = xcb_depth_visuals_iterator(depths.data);
    for (; depths.data->depth == 32 && visuals.rem > 0; xcb_visualtype_next(&visuals)) {
      if (visuals.data->_class == XCB_VISUAL_CLASS_TRUE_COLOR &&
          reader.understands(32, visuals.data->visual_id)) {
        return visuals.data->visual_id;
      }
    }
  }
  return std::nullopt;
}

// Whether a panel may have to do with the event: what it has asked the server for, and its window's end.
bool concerns(const xcb_generic_event_t& event, xcb_window_t window) {
  switch (event.response_type & 0x7F) {
  case XCB_KEY_PRESS:
  case XCB_BUTTON_PRESS:
  case XCB_BUTTON_RELEASE:
  case XCB_MOTION_NOTIFY:
  case XCB_ENTER_NOTIFY:
  case XCB_LEAVE_NOTIFY:
    return reinterpret_cast<const xcb_button_press_event_t&>(event).event == window;
  case XCB_UNMAP_NOTIFY:
    return reinterpret_cast<const xcb_unmap_notify_event_t&>(event).window == window;
  case XCB_DESTROY_NOTIFY:
    return reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window == window;
  case XCB_CREATE_NOTIFY:
  case XCB_CONFIGURE_NOTIFY:
  case XCB_MAP_NOTIFY:
  case XCB_REPARENT_NOTIFY:
  case XCB_CIRCULATE_NOTIFY:
    return false;
  default:
    return true;
  }
}

} // namespace

PanelServer::PanelServer(std::unique_ptr<Connection> connection, EventQueue& queue)
    : connection_(std::move(connection)), queue_(queue), reader_(makeReader(*connection_)),
      focus_(*connection_), surroundings_{.connection = *connection_, .reader = reader_, .focus = focus_},
      compositingManager_(compositingManagerSelection(*connection_)) {
  // Shapes are what hides the transparent parts, and what lets the pointer through.
  if (!connection_->extension(Extension::shape).isAtLeast(1, 1)) {
    throw DesktopFailure();
  }
  const auto shadow = xcb_intern_atom(connection_->get(), 0, shadowProperty.size(), shadowProperty.data());
  surroundings_.scale = DisplayQuery(*connection_).result().scale;
  surroundings_.shadowProperty = connection_->required(xcb_intern_atom_reply, shadow)->atom;
  chooseVisual();
  followCompositingManager();
  constexpr std::uint32_t listening = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
  xcb_change_window_attributes(connection_->get(), connection_->root(), XCB_CW_EVENT_MASK, &listening);
  connection_->flush();
}

// A server drops what it has not read yet when a client is gone.
PanelServer::~PanelServer() {
  connection_->setPatience(lastPatience);
  try {
    connection_->sync();
  } catch (const DesktopFailure&) {
    // It ends the windows by itself when it sees that we are gone.
  }
}

void PanelServer::chooseVisual() {
  const auto& screen = connection_->screen();
  surroundings_.visual = {screen.root_depth, screen.root_visual, screen.default_colormap, false};
  if (const auto visual = alphaVisual(*connection_, reader_)) {
    surroundings_.visual = {32, *visual, xcb_generate_id(connection_->get()), true};
    xcb_create_colormap(connection_->get(), XCB_COLORMAP_ALLOC_NONE, surroundings_.visual.colormap,
                        connection_->root(), *visual);
  }
}

void PanelServer::followCompositingManager() {
  if (connection_->extension(Extension::xfixes).isPresent) {
    xcb_xfixes_select_selection_input(connection_->get(), connection_->root(), compositingManager_,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
  }
  readCompositingManager();
}

void PanelServer::readCompositingManager() {
  const auto reply = connection_->required(xcb_get_selection_owner_reply,
                                           xcb_get_selection_owner(connection_->get(), compositingManager_));
  surroundings_.isMixing = reply->owner != XCB_NONE;
}

std::shared_ptr<PanelWindow> PanelServer::makePanel(PanelSetup setup) {
  if (!watch_) {
    watch_ = queue_.whenReadable(connection_->descriptor(), [weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->takeEvents();
      }
    });
  }
  auto panel = std::make_shared<PanelWindow>(surroundings_, std::move(setup));
  connection_->sync(); // others know it from now on
  panels_.push_back(panel);
  scheduleTaking();
  return panel;
}

void PanelServer::removePanel(const PanelWindow& panel) {
  std::erase_if(panels_, [&](const auto& each) { return each.get() == &panel; });
}

void PanelServer::perform(const std::function<void()>& action) {
  if (isLost_) {
    return;
  }
  try {
    action();
    connection_->flush();
    scheduleTaking();
  } catch (const DesktopFailure&) {
    lose();
  }
}

void PanelServer::lose() {
  if (isLost_) {
    return;
  }
  isLost_ = true;
  watch_.reset();
  raiseTimer_.reset();
  // Not within whatever call has found it out.
  queue_.async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->forEachPanel([](PanelWindow& panel) { panel.loseButton(); });
    }
  });
}

// Events may have come with an answer, of which the descriptor does not tell.
void PanelServer::scheduleTaking() {
  if (!std::exchange(isTakingScheduled_, true)) {
    queue_.async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->takeEvents();
      }
    });
  }
}

void PanelServer::takeEvents() {
  isTakingScheduled_ = false;
  if (isLost_) {
    return;
  }
  try {
    for (;;) {
      while (const auto event = connection_->pollEvent()) {
        handle(*event);
      }
      forEachPanel([](PanelWindow& panel) { panel.finishHandling(); });
      if (!std::exchange(mayBeCovered_, false)) {
        break;
      }
      answerCover();
    }
    connection_->flush();
  } catch (const DesktopFailure&) {
    lose();
  }
}

void PanelServer::handle(const xcb_generic_event_t& event) {
  const auto& xfixes = connection_->extension(Extension::xfixes);
  const auto type = event.response_type & 0x7F;
  if (xfixes.isPresent && type == xfixes.firstEvent + XCB_XFIXES_SELECTION_NOTIFY) {
    const bool wasMixing = surroundings_.isMixing;
    readCompositingManager();
    for (const auto& panel : panels_) {
      if (surroundings_.isMixing != wasMixing) {
        panel->noteMixing();
      }
    }
    return;
  }
  noteStacking(event);
  forEachPanel([&](PanelWindow& panel) {
    if (concerns(event, panel.id())) {
      panel.handle(event);
    }
  });
}

// A handler may make a panel or end another one.
void PanelServer::forEachPanel(const std::function<void(PanelWindow&)>& action) {
  for (std::size_t i = 0; i < panels_.size(); ++i) {
    const auto panel = panels_[i];
    action(*panel);
  }
}

bool PanelServer::isOurs(xcb_window_t window) const {
  return std::any_of(panels_.begin(), panels_.end(), [=](const auto& each) { return each->id() == window; });
}

// Keeps in mind which windows of others lie above the panels: those that were made since, and those that
// were put above a panel or one of them.
void PanelServer::noteStacking(const xcb_generic_event_t& event) {
  const auto root = connection_->root();
  const auto notePlace = [&](xcb_window_t window, bool isAbove, bool isSeen) {
    if (isOurs(window)) {
      return;
    }
    if (isAbove) {
      above_.insert(window);
    } else {
      above_.erase(window);
    }
    mayBeCovered_ = mayBeCovered_ || (isAbove && isSeen);
  };
  switch (event.response_type & 0x7F) {
  case XCB_CREATE_NOTIFY: {
    const auto& create = reinterpret_cast<const xcb_create_notify_event_t&>(event);
    notePlace(create.window, create.parent == root, false);
    break;
  }
  case XCB_CONFIGURE_NOTIFY: {
    const auto& configure = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
    notePlace(configure.window, isOurs(configure.above_sibling) || above_.contains(configure.above_sibling),
              true);
    break;
  }
  case XCB_MAP_NOTIFY: {
    const auto& map = reinterpret_cast<const xcb_map_notify_event_t&>(event);
    notePlace(map.window, above_.contains(map.window), true);
    break;
  }
  case XCB_REPARENT_NOTIFY: {
    const auto& reparent = reinterpret_cast<const xcb_reparent_notify_event_t&>(event);
    notePlace(reparent.window, reparent.parent == root, true);
    break;
  }
  case XCB_CIRCULATE_NOTIFY: {
    const auto& circulate = reinterpret_cast<const xcb_circulate_notify_event_t&>(event);
    notePlace(circulate.window, circulate.place == XCB_PLACE_ON_TOP, true);
    break;
  }
  case XCB_DESTROY_NOTIFY:
    above_.erase(reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window);
    break;
  default:
    break;
  }
}

// Whether a window of somebody else that is to be seen lies above a panel, wherever it is.
bool PanelServer::isCovered() {
  const auto tree =
      connection_->required(xcb_query_tree_reply, xcb_query_tree(connection_->get(), connection_->root()));
  const auto* first = xcb_query_tree_children(tree.get());
  const auto* last = first + xcb_query_tree_children_length(tree.get());
  std::vector<xcb_get_window_attributes_cookie_t> cookies;
  for (const auto* each = std::find_if(first, last, [this](auto window) { return isOurs(window); });
       each < last; ++each) {
    // What the server itself puts up, such as a compositing manager's overlay, belongs above.
    if (!isOurs(*each) && connection_->clientBase(*each) != 0) {
      cookies.push_back(xcb_get_window_attributes(connection_->get(), *each));
    }
  }
  bool isAnySeen = false;
  for (const auto& cookie : cookies) {
    const auto attributes = connection_->reply(xcb_get_window_attributes_reply, cookie);
    isAnySeen = isAnySeen || (attributes && attributes->_class == XCB_WINDOW_CLASS_INPUT_OUTPUT &&
                              attributes->map_state == XCB_MAP_STATE_VIEWABLE);
  }
  return isAnySeen;
}

void PanelServer::answerCover() {
  if (raiseTimer_ || !isCovered()) {
    return;
  }
  const auto wait = raising_.waitWhenCovered(std::chrono::steady_clock::now());
  if (wait == PanelRaising::Duration::zero()) {
    raiseAll();
    return;
  }
  raiseTimer_ = queue_.after(wait, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->raiseTimer_.reset();
      self->perform([&] {
        if (self->isCovered()) {
          self->raiseAll();
        }
      });
    }
  });
}

void PanelServer::raiseAll() {
  for (const auto& panel : panels_) {
    panel->raise();
  }
  above_.clear();
  raising_.noteRaised(std::chrono::steady_clock::now());
}

} // namespace tessarin::x11
