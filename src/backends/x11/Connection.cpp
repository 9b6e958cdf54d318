#include "backends/x11/Connection.hpp"

#include <xcb/composite.h>
#include <xcb/damage.h>
#include <xcb/randr.h>
#include <xcb/render.h>
#include <xcb/res.h>
#include <xcb/shape.h>
#include <xcb/shm.h>
#include <xcb/xcbext.h>
#include <xcb/xfixes.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace tessarin::x11 {

namespace {

// In the order of the enumeration.
const std::array<xcb_extension_t*, extensionCount>& extensionHandles() {
  static const std::array<xcb_extension_t*, extensionCount> handles = {
      &xcb_composite_id, &xcb_damage_id, &xcb_randr_id, &xcb_render_id,
      &xcb_res_id,       &xcb_shape_id,  &xcb_shm_id,   &xcb_xfixes_id};
  return handles;
}

} // namespace

// The library waits for the server without end, so that the handshake is left to a thread that can be left
// behind. What came of it is ended with the last who holds it.
class Handshake {
 public:
  // Begins one. Throws DesktopFailure.
  static std::shared_ptr<Handshake> begun(const std::optional<std::string>& displayName) {
    auto handshake = std::make_shared<Handshake>();
    try {
      std::thread([handshake, displayName] { handshake->make(displayName); }).detach();
    } catch (const std::system_error&) {
      throw DesktopFailure();
    }
    return handshake;
  }
  Handshake() = default;
  ~Handshake() {
    if (connection_) {
      xcb_disconnect(connection_);
    }
  }
  Handshake(const Handshake&) = delete;
  Handshake& operator=(const Handshake&) = delete;

  // The connection, which is the caller's from then on; null after the time.
  xcb_connection_t* taken(std::chrono::milliseconds limit, int& screenNumber) {
    std::unique_lock lock(mutex_);
    done_.wait_for(lock, limit, [&] { return connection_ != nullptr; });
    screenNumber = screenNumber_;
    return std::exchange(connection_, nullptr);
  }
  bool isUnderWay() {
    const std::lock_guard lock(mutex_);
    return connection_ == nullptr;
  }

 private:
  void make(const std::optional<std::string>& displayName) {
    int screenNumber = 0;
    auto* connection = xcb_connect(displayName ? displayName->c_str() : nullptr, &screenNumber);
    const std::lock_guard lock(mutex_);
    connection_ = connection;
    screenNumber_ = screenNumber;
    done_.notify_one();
  }

  std::mutex mutex_;
  std::condition_variable done_;
  xcb_connection_t* connection_ = nullptr; // guarded by mutex_, as is
  int screenNumber_ = 0;
};

namespace {

// One that has ended meanwhile is no use: its server may have gone since.
xcb_connection_t* connected(const std::optional<std::string>& displayName, Connection::Patience patience,
                            std::shared_ptr<Handshake>* underWay, int& screenNumber) {
  if (!patience) {
    return xcb_connect(displayName ? displayName->c_str() : nullptr, &screenNumber);
  }
  auto handshake = underWay ? std::exchange(*underWay, nullptr) : nullptr;
  if (!handshake || !handshake->isUnderWay()) {
    handshake = Handshake::begun(displayName);
  }
  auto* const connection = handshake->taken(*patience, screenNumber);
  if (!connection) {
    if (underWay) {
      *underWay = std::move(handshake);
    }
    throw DesktopFailure();
  }
  return connection;
}

} // namespace

Connection::Connection(const std::optional<std::string>& displayName, Patience patience,
                       std::shared_ptr<Handshake>* underWay)
    : patience_(patience), connection_(connected(displayName, patience, underWay, screenNumber_)) {
  try {
    requireAlive();
    findScreen();
    agree();
  } catch (...) {
    xcb_disconnect(connection_);
    throw;
  }
}

Connection::~Connection() {
  xcb_disconnect(connection_);
}

void Connection::findScreen() {
  auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection_));
  for (int number = 0; screens.rem > 0; xcb_screen_next(&screens), ++number) {
    if (number == screenNumber_) {
      screen_ = screens.data;
    }
  }
  if (!screen_) {
    throw DesktopFailure();
  }
}

// Two steps: which extensions there are, and the atoms; then the versions, which some extensions insist on
// hearing before anything else.
void Connection::agree() {
  for (auto* handle : extensionHandles()) {
    xcb_prefetch_extension_data(connection_, handle);
  }
  std::array<xcb_intern_atom_cookie_t, atomCount> atomCookies{};
  for (std::size_t i = 0; i < atomCount; ++i) {
    atomCookies[i] =
        xcb_intern_atom(connection_, 0, static_cast<std::uint16_t>(atomTexts[i].size()), atomTexts[i].data());
  }
  for (std::size_t i = 0; i < atomCount; ++i) {
    atoms_[i] = required(xcb_intern_atom_reply, atomCookies[i])->atom;
  }
  for (std::size_t i = 0; i < extensionCount; ++i) {
    const auto* data = xcb_get_extension_data(connection_, extensionHandles()[i]);
    if (!data) {
      throw DesktopFailure();
    }
    auto& info = extensions_[i];
    info.isPresent = data->present != 0;
    info.majorOpcode = data->major_opcode;
    info.firstEvent = data->first_event;
    info.firstError = data->first_error;
  }

  // An absent extension would shut the connection when asked.
  const auto ask = [this](Extension name, auto request, auto... version) {
    using Cookie = decltype(request(connection_, version...));
    return extension(name).isPresent ? std::optional<Cookie>(request(connection_, version...)) : std::nullopt;
  };
  const auto composite = ask(Extension::composite, xcb_composite_query_version, 0U, 4U);
  const auto damage = ask(Extension::damage, xcb_damage_query_version, 1U, 1U);
  const auto randr = ask(Extension::randr, xcb_randr_query_version, 1U, 5U);
  const auto render = ask(Extension::render, xcb_render_query_version, 0U, 11U);
  const auto res = ask(Extension::res, xcb_res_query_version, std::uint8_t{1}, std::uint8_t{2});
  const auto shape = ask(Extension::shape, xcb_shape_query_version);
  const auto shm = ask(Extension::shm, xcb_shm_query_version);
  const auto xfixes = ask(Extension::xfixes, xcb_xfixes_query_version, 5U, 0U);

  const auto take = [this](Extension name, auto fetch, const auto& cookie) {
    if (cookie) {
      auto& info = extensions_[static_cast<std::size_t>(name)];
      const auto answer = required(fetch, *cookie);
      if constexpr (requires { answer->server_major; }) {
        info.majorVersion = answer->server_major;
        info.minorVersion = answer->server_minor;
      } else {
        info.majorVersion = answer->major_version;
        info.minorVersion = answer->minor_version;
      }
    }
  };
  take(Extension::composite, xcb_composite_query_version_reply, composite);
  take(Extension::damage, xcb_damage_query_version_reply, damage);
  take(Extension::randr, xcb_randr_query_version_reply, randr);
  take(Extension::render, xcb_render_query_version_reply, render);
  take(Extension::res, xcb_res_query_version_reply, res);
  take(Extension::shape, xcb_shape_query_version_reply, shape);
  take(Extension::shm, xcb_shm_query_version_reply, shm);
  take(Extension::xfixes, xcb_xfixes_query_version_reply, xfixes);
}

Connection::Answer Connection::await(unsigned int sequence) {
  willWait(sequence);
  const auto start = std::chrono::steady_clock::now();
  Answer answer;
  xcb_generic_error_t* error = nullptr;
  const auto hasCome = [&] { return xcb_poll_for_reply(connection_, sequence, &answer.reply, &error) != 0; };
  if (!hasCome()) {
    awaitRoom();
    xcb_flush(connection_); // which takes in what can be read meanwhile
    while (!hasCome()) {
      waitForInput(start);
    }
  }
  answer.error.reset(error);
  if (!answer.reply && !answer.error) {
    throw DesktopFailure();
  }
  return answer;
}

// The library waits without end for a server that does not read.
void Connection::awaitRoom() {
  if (!patience_) {
    return;
  }
  pollfd output{descriptor(), POLLOUT, 0};
  if (poll(&output, 1, static_cast<int>(patience_->count())) == 0) {
    giveUp();
  }
}

void Connection::giveUp() {
  shutdown(descriptor(), SHUT_RDWR);
  gaveUpAt_ = std::chrono::steady_clock::now();
}

// Takes in what the server sends next. When patience is at its end the connection is cut, which ends all
// waiting on it.
void Connection::waitForInput(std::chrono::steady_clock::time_point start) {
  using std::chrono::milliseconds;
  int left = -1;
  if (patience_) {
    const auto waited = std::chrono::steady_clock::now() - start;
    left = static_cast<int>(
        std::max(milliseconds(0), *patience_ - std::chrono::floor<milliseconds>(waited)).count());
  }
  pollfd input{descriptor(), POLLIN, 0};
  if (poll(&input, 1, left) == 0) {
    giveUp();
  }
  // Only taking events reads from the server.
  while (auto* event = xcb_poll_for_event(connection_)) {
    events_.emplace_back(event);
  }
}

bool Connection::succeeded(xcb_void_cookie_t cookie) {
  sync();
  const Owned<xcb_generic_error_t> error(xcb_request_check(connection_, cookie));
  requireAlive();
  return !error;
}

Owned<xcb_generic_event_t> Connection::pollEvent() {
  if (!events_.empty()) {
    auto first = std::move(events_.front());
    events_.pop_front();
    return first;
  }
  Owned<xcb_generic_event_t> event(xcb_poll_for_event(connection_));
  if (!event) {
    requireAlive();
  }
  return event;
}

bool Connection::dropEvents() {
  events_.clear();
  // Taking them reads from the server, and finds its end.
  while (const Owned<xcb_generic_event_t> event{xcb_poll_for_event(connection_)}) {
  }
  return !isLost();
}

void Connection::flush() {
  awaitRoom();
  if (xcb_flush(connection_) <= 0) {
    throw DesktopFailure();
  }
}

void Connection::sync() {
  required(xcb_get_input_focus_reply, xcb_get_input_focus(connection_));
}

// Counts. A request without effect tells how far the numbering has come; requests up to there share this
// wait.
void Connection::willWait(unsigned int sequence) {
  if (roundTrips_ == 0 || static_cast<int>(sequence - answeredThrough_) > 0) {
    ++roundTrips_;
    answeredThrough_ = xcb_no_operation(connection_).sequence;
  }
}

void Connection::requireAlive() const {
  if (isLost()) {
    throw DesktopFailure();
  }
}

DisplayServer::DisplayServer(std::optional<std::string> displayName, Connection::Patience patience)
    : displayName_(std::move(displayName)), patience_(patience) {}

Connection& DisplayServer::connection() {
  if (!connection_ || !connection_->dropEvents()) {
    if (connection_) {
      noteGivenUp(connection_->gaveUpAt());
    }
    stillMemory_.reset();
    connection_ = open();
  }
  return *connection_;
}

std::unique_ptr<Connection> DisplayServer::open() const {
  const auto begun = std::chrono::steady_clock::now();
  std::shared_ptr<Handshake> handshake;
  {
    const std::lock_guard guard(lock_);
    if (gaveUpAt_ && begun - *gaveUpAt_ < rest) {
      throw DesktopFailure();
    }
    handshake = std::exchange(handshake_, nullptr);
  }
  try {
    return std::make_unique<Connection>(displayName_, patience_, &handshake);
  } catch (const DesktopFailure&) {
    const auto now = std::chrono::steady_clock::now();
    if (patience_ && now - begun >= *patience_) {
      noteGivenUp(now);
    }
    if (handshake) {
      const std::lock_guard guard(lock_);
      handshake_ = std::move(handshake);
    }
    throw;
  }
}

void DisplayServer::noteGivenUp(std::optional<std::chrono::steady_clock::time_point> when) const {
  const std::lock_guard guard(lock_);
  gaveUpAt_ = std::max(gaveUpAt_, when);
}

void DisplayServer::addOwnWindow(OwnWindow window) {
  const std::lock_guard guard(lock_);
  ownWindows_.push_back(std::move(window));
}

void DisplayServer::removeOwnWindow(xcb_window_t window) {
  const std::lock_guard guard(lock_);
  std::erase_if(ownWindows_, [window](const OwnWindow& each) { return each.window == window; });
}

std::vector<OwnWindow> DisplayServer::ownWindows() const {
  const std::lock_guard guard(lock_);
  return ownWindows_;
}

} // namespace tessarin::x11
