#include "ClientWindow.hpp"

#include <time.h>
#include <unistd.h>

#include <xcb/shape.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace tessarin::client {

namespace {

constexpr std::uint32_t windowEvents = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE |
                                       XCB_EVENT_MASK_VISIBILITY_CHANGE | XCB_EVENT_MASK_EXPOSURE;

std::string hostName() {
  char name[256] = {};
  gethostname(name, sizeof name - 1);
  return name;
}

std::string capitals(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

} // namespace

ClientWindow::ClientWindow(Server& server, Options options)
    : server_(server), options_(std::move(options)), width_(options_.width), height_(options_.height),
      depth_(options_.hasAlpha ? 32 : server.screen().root_depth), window_(xcb_generate_id(server.get())),
      isWindowManagerThere_(server.hasWindowManager()) {
  if (options_.isFullScreen) {
    options_.x = 0;
    options_.y = 0;
    width_ = server.screen().width_in_pixels;
    height_ = server.screen().height_in_pixels;
  }
  create();
  setProperties();
  setShape();
  if (options_.painting == Painting::counter) {
    counter_ = std::make_unique<CounterPainting>(server_, window_, depth_, options_.frameRate);
  } else if (options_.repaintDelay < 0) {
    setBackground();
  }
}

bool ClientWindow::isManaged() const {
  return isWindowManagerThere_ && options_.style != Style::overrideRedirect && options_.parent == 0 &&
         !options_.isTrayIcon;
}

void ClientWindow::create() {
  auto* c = server_.get();
  auto visual = static_cast<xcb_visualid_t>(XCB_COPY_FROM_PARENT);
  std::uint32_t mask =
      XCB_CW_BACK_PIXMAP | XCB_CW_BORDER_PIXEL | XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK;
  std::vector<std::uint32_t> values = {XCB_NONE, 0xFFD0A020, options_.style == Style::overrideRedirect,
                                       windowEvents};
  if (options_.hasAlpha) {
    visual = server_.alphaVisual();
    const auto colormap = xcb_generate_id(c);
    xcb_create_colormap(c, XCB_COLORMAP_ALLOC_NONE, colormap, server_.root(), visual);
    mask |= XCB_CW_COLORMAP;
    values.push_back(colormap);
  }
  xcb_create_window(c, depth_, window_, options_.parent != 0 ? options_.parent : server_.root(),
                    static_cast<std::int16_t>(options_.x), static_cast<std::int16_t>(options_.y),
                    static_cast<std::uint16_t>(width_), static_cast<std::uint16_t>(height_),
                    static_cast<std::uint16_t>(options_.borderWidth), XCB_WINDOW_CLASS_INPUT_OUTPUT, visual,
                    mask, values.data());
}

void ClientWindow::setProperties() {
  setTitle(options_.title);
  using namespace std::string_literals;
  const auto& [instance, name] = options_.windowClass;
  if (!instance.empty() || !name.empty()) {
    server_.setProperty(window_, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, instance + "\0"s + name + "\0"s);
  }
  if (options_.pidProperty) {
    server_.setProperty(window_, server_.atom("_NET_WM_PID"), XCB_ATOM_CARDINAL,
                        std::vector{*options_.pidProperty});
    server_.setProperty(window_, XCB_ATOM_WM_CLIENT_MACHINE, XCB_ATOM_STRING,
                        options_.machine.empty() ? hostName() : options_.machine);
  }
  std::vector<std::uint32_t> types;
  for (const auto& type : options_.types) {
    types.push_back(server_.atom("_NET_WM_WINDOW_TYPE_" + capitals(type)));
  }
  if (!types.empty()) {
    server_.setProperty(window_, server_.atom("_NET_WM_WINDOW_TYPE"), XCB_ATOM_ATOM, types);
  }
  std::vector<std::uint32_t> states;
  if (options_.isAbove) {
    states.push_back(server_.atom("_NET_WM_STATE_ABOVE"));
  }
  if (options_.isFullScreen) {
    states.push_back(server_.atom("_NET_WM_STATE_FULLSCREEN"));
  }
  if (!states.empty()) {
    server_.setProperty(window_, server_.atom("_NET_WM_STATE"), XCB_ATOM_ATOM, states);
  }
  if (options_.style == Style::borderless) {
    constexpr std::uint32_t decorationsFlag = 2;
    const auto hints = server_.atom("_MOTIF_WM_HINTS");
    server_.setProperty(window_, hints, hints, std::vector<std::uint32_t>{decorationsFlag, 0, 0, 0, 0});
  }
  if (options_.shadow) {
    server_.setProperty(window_, server_.atom("_GTK_FRAME_EXTENTS"), XCB_ATOM_CARDINAL,
                        std::vector<std::uint32_t>(options_.shadow->begin(), options_.shadow->end()));
  }
  if (options_.parent != 0 || options_.isTrayIcon) {
    constexpr std::uint32_t version = 0;
    constexpr std::uint32_t mapped = 1;
    const auto info = server_.atom("_XEMBED_INFO");
    server_.setProperty(window_, info, info, std::vector{version, mapped});
  }
  if (options_.isIconic) {
    constexpr std::uint32_t stateHint = 2;
    constexpr std::uint32_t iconicState = 3;
    server_.setProperty(window_, XCB_ATOM_WM_HINTS, XCB_ATOM_WM_HINTS,
                        std::vector<std::uint32_t>{stateHint, 0, iconicState, 0, 0, 0, 0, 0, 0});
  }
  setSizeHints();
}

void ClientWindow::setTitle(const std::string& title) {
  if (options_.titleType == "utf8") {
    server_.setProperty(window_, server_.atom("_NET_WM_NAME"), server_.atom("UTF8_STRING"), title);
  } else {
    const auto type = options_.titleType == "compound" ? server_.atom("COMPOUND_TEXT")
                                                       : static_cast<xcb_atom_t>(XCB_ATOM_STRING);
    server_.setProperty(window_, XCB_ATOM_WM_NAME, type, title);
  }
}

// The place is the user's, so that a window manager keeps it.
void ClientWindow::setSizeHints() {
  constexpr std::uint32_t userPosition = 1;
  constexpr std::uint32_t userSize = 2;
  std::vector<std::uint32_t> hints(18);
  hints[0] = userPosition | userSize;
  server_.setProperty(window_, XCB_ATOM_WM_NORMAL_HINTS, XCB_ATOM_WM_SIZE_HINTS, hints);
}

void ClientWindow::setShape() {
  std::vector<xcb_rectangle_t> parts;
  const auto add = [&](int x, int y, int w, int h) {
    parts.push_back({static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                     static_cast<std::uint16_t>(w), static_cast<std::uint16_t>(h)});
  };
  if (options_.shape == Shape::circle) {
    const int diameter = std::min(width_, height_);
    for (int y = 0; y < diameter; ++y) {
      int inset = 0;
      const auto distance = [&](int x) {
        const int dx = 2 * x + 1 - diameter;
        const int dy = 2 * y + 1 - diameter;
        return dx * dx + dy * dy;
      };
      while (inset < diameter / 2 && distance(inset) > diameter * diameter) {
        ++inset;
      }
      add(inset, y, diameter - 2 * inset, 1);
    }
  } else if (options_.shape == Shape::corner) {
    // An L in the lower three quarters of the height: the bounding box is smaller than the window.
    const int top = height_ / 4;
    add(0, top, width_ / 3, height_ - top);
    add(0, height_ * 3 / 4, width_ * 3 / 4, height_ - height_ * 3 / 4);
  } else {
    return;
  }
  xcb_shape_rectangles(server_.get(), XCB_SHAPE_SO_SET, XCB_SHAPE_SK_BOUNDING, XCB_CLIP_ORDERING_UNSORTED,
                       window_, 0, 0, static_cast<std::uint32_t>(parts.size()), parts.data());
}

// Painted by the server from now on, also where parts come to light.
void ClientWindow::setBackground() {
  const auto pixmap = paintPixmap(server_, window_, depth_, options_, width_, height_);
  xcb_change_window_attributes(server_.get(), window_, XCB_CW_BACK_PIXMAP, &pixmap);
  xcb_free_pixmap(server_.get(), pixmap);
  xcb_clear_area(server_.get(), 0, window_, 0, 0, 0, 0);
}

// Painted by the client, as applications do: nothing is there before.
void ClientWindow::paintNow() {
  const auto pixmap = paintPixmap(server_, window_, depth_, options_, width_, height_);
  const auto graphics = xcb_generate_id(server_.get());
  xcb_create_gc(server_.get(), graphics, window_, 0, nullptr);
  xcb_copy_area(server_.get(), pixmap, window_, graphics, 0, 0, 0, 0, static_cast<std::uint16_t>(width_),
                static_cast<std::uint16_t>(height_));
  xcb_free_gc(server_.get(), graphics);
  xcb_free_pixmap(server_.get(), pixmap);
}

void ClientWindow::show() {
  if (options_.isTrayIcon) {
    askTray();
  } else {
    xcb_map_window(server_.get(), window_);
  }
  if (options_.isIconic) {
    const auto state = server_.atom("WM_STATE");
    while (isManaged() && server_.property(window_, state) == 0) {
      server_.waitForEvent(10);
    }
  } else {
    waitUntilShown();
  }
  if (counter_) {
    paintDueFrame();
  } else if (options_.repaintDelay >= 0) {
    paintNow();
  }
  server_.sync();
}

// A managed window is ready when its manager has said so and it can be seen; the manager may still move it
// after that, and tells when it has.
void ClientWindow::waitUntilShown() {
  const auto state = server_.atom("WM_STATE");
  constexpr int step = 10;
  for (int waited = 0; waited < 8000;) {
    if (server_.isViewable(window_) && (!isManaged() || server_.property(window_, state) != 0)) {
      break;
    }
    const auto event = server_.waitForEvent(step);
    waited += event ? 0 : step;
    if (event) {
      handle(*event);
    }
  }
  if (!server_.isViewable(window_)) {
    throw std::runtime_error("the window did not appear");
  }
  if (isManaged()) {
    // Answered after everything that belongs to the appearance of the window.
    const std::uint32_t size[2] = {static_cast<std::uint32_t>(width_), static_cast<std::uint32_t>(height_)};
    configure(XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
  }
}

void ClientWindow::waitForConfiguration() {
  constexpr int step = 10;
  for (int waited = 0; !isConfigured_ && waited < 300;) {
    const auto event = server_.waitForEvent(step);
    waited += event ? 0 : step;
    if (event) {
      handle(*event);
    }
  }
  server_.sync();
}

void ClientWindow::configure(std::uint16_t mask, const std::uint32_t* values) {
  isConfigured_ = false;
  xcb_configure_window(server_.get(), window_, mask, values);
  if (isManaged()) {
    waitForConfiguration();
  }
}

void ClientWindow::carryOut(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "move") {
    std::int32_t place[2] = {};
    words >> place[0] >> place[1];
    configure(XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y, reinterpret_cast<const std::uint32_t*>(place));
  } else if (command == "resize") {
    words >> width_ >> height_;
    const std::uint32_t size[2] = {static_cast<std::uint32_t>(width_), static_cast<std::uint32_t>(height_)};
    configure(XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    setShape();
    if (!counter_) {
      options_.repaintDelay < 0 ? setBackground() : paintNow();
    }
  } else if (command == "paint") {
    std::string colour;
    words >> colour;
    options_.colour = parseColour(colour);
    options_.repaintDelay < 0 ? setBackground() : paintNow();
  } else if (command == "title") {
    setTitle(line.size() > 6 ? line.substr(6) : "");
  } else if (command == "flash") {
    std::int64_t at = 0;
    int milliseconds = 0;
    words >> at >> milliseconds;
    flash(at, milliseconds);
  } else if (command == "raise") {
    const std::uint32_t above = XCB_STACK_MODE_ABOVE;
    configure(XCB_CONFIG_WINDOW_STACK_MODE, &above);
  } else if (command == "unmap") {
    const auto shownBy = frame();
    xcb_unmap_window(server_.get(), window_);
    waitUntilHidden(shownBy);
  } else if (command == "map") {
    xcb_map_window(server_.get(), window_);
    waitUntilShown();
  } else if (command == "close") {
    closeWindow();
  } else if (command == "cover") {
    cover();
  } else if (command == "uncover") {
    xcb_destroy_window(server_.get(), covering_);
  } else {
    throw std::runtime_error("unknown command " + command);
  }
  server_.sync();
}

// Waits by itself, so that the white is there at the moment and not after the next event.
void ClientWindow::flash(std::int64_t at, int milliseconds) {
  constexpr std::int64_t second = 1'000'000'000;
  const timespec moment{at / second, at % second};
  const auto graphics = xcb_generate_id(server_.get());
  const std::uint32_t white = 0xFFFFFFFF;
  xcb_create_gc(server_.get(), graphics, window_, XCB_GC_FOREGROUND, &white);
  server_.sync();
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &moment, nullptr);
  const xcb_rectangle_t whole{0, 0, static_cast<std::uint16_t>(width_), static_cast<std::uint16_t>(height_)};
  xcb_poly_fill_rectangle(server_.get(), window_, graphics, 1, &whole);
  server_.sync();
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  xcb_free_gc(server_.get(), graphics);
  xcb_clear_area(server_.get(), 0, window_, 0, 0, 0, 0);
}

void ClientWindow::closeWindow() {
  counter_.reset();
  const auto shownBy = frame();
  xcb_destroy_window(server_.get(), window_);
  waitUntilHidden(shownBy);
}

// The child of the root that shows the window.
xcb_window_t ClientWindow::frame() {
  auto window = window_;
  for (;;) {
    const Reply<xcb_query_tree_reply_t> tree(
        xcb_query_tree_reply(server_.get(), xcb_query_tree(server_.get(), window), nullptr));
    if (!tree || tree->parent == server_.root() || tree->parent == XCB_NONE) {
      return window;
    }
    window = tree->parent;
  }
}

void ClientWindow::waitUntilHidden(xcb_window_t window) {
  constexpr int step = 2;
  for (int waited = 0; isManaged() && server_.isViewable(window) && waited < 2000; waited += step) {
    if (const auto event = server_.waitForEvent(step)) {
      handle(*event);
    }
  }
}

void ClientWindow::cover() {
  const Reply<xcb_translate_coordinates_reply_t> place(xcb_translate_coordinates_reply(
      server_.get(), xcb_translate_coordinates(server_.get(), window_, server_.root(), 0, 0), nullptr));
  if (!place) {
    throw std::runtime_error("the window is gone");
  }
  covering_ = xcb_generate_id(server_.get());
  const std::uint32_t values[] = {0xFF7F7F7F, 1};
  xcb_create_window(server_.get(), XCB_COPY_FROM_PARENT, covering_, server_.root(), place->dst_x,
                    place->dst_y, static_cast<std::uint16_t>(width_), static_cast<std::uint16_t>(height_), 0,
                    XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT,
                    XCB_CW_BACK_PIXEL | XCB_CW_OVERRIDE_REDIRECT, values);
  xcb_map_window(server_.get(), covering_);
}

void ClientWindow::askTray() {
  const auto manager = server_.selectionOwner(server_.atom("_NET_SYSTEM_TRAY_S0"));
  if (manager == XCB_NONE) {
    throw std::runtime_error("no tray");
  }
  constexpr std::uint32_t requestDock = 0;
  xcb_client_message_event_t message{};
  message.response_type = XCB_CLIENT_MESSAGE;
  message.format = 32;
  message.window = manager;
  message.type = server_.atom("_NET_SYSTEM_TRAY_OPCODE");
  message.data.data32[1] = requestDock;
  message.data.data32[2] = window_;
  xcb_send_event(server_.get(), 0, manager, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&message));
}

void ClientWindow::handle(const xcb_generic_event_t& event) {
  const auto kind = event.response_type & 0x7F;
  if (kind == XCB_CONFIGURE_NOTIFY) {
    const auto& notify = reinterpret_cast<const xcb_configure_notify_event_t&>(event);
    isConfigured_ = true;
    if ((notify.width != width_ || notify.height != height_) && notify.window == window_) {
      width_ = notify.width;
      height_ = notify.height;
      if (!counter_ && options_.repaintDelay < 0) {
        setBackground();
      }
    }
  } else if (kind == XCB_EXPOSE && options_.repaintDelay >= 0) {
    if (reinterpret_cast<const xcb_expose_event_t&>(event).count == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(options_.repaintDelay));
      paintNow();
    }
  }
}

} // namespace tessarin::client
