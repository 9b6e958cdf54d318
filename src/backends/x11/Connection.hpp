#pragma once

#include "backends/x11/Atoms.hpp"
#include "ports/Desktop.hpp"

#include <xcb/xcb.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The connection to the X server on which every service of this room stands.
namespace tessarin::x11 {

struct FreeDeleter {
  void operator()(void* memory) const noexcept { std::free(memory); }
};
// Replies, errors and events come from malloc.
template<class T> using Owned = std::unique_ptr<T, FreeDeleter>;

enum class Extension : std::uint8_t { composite, damage, randr, render, res, shape, shm, xfixes };
inline constexpr std::size_t extensionCount = 8;

struct ExtensionInfo {
  bool isPresent = false;
  std::uint8_t majorOpcode = 0;
  std::uint8_t firstEvent = 0;
  std::uint8_t firstError = 0;
  std::uint32_t majorVersion = 0; // as agreed with the server; 0.0 when absent
  std::uint32_t minorVersion = 0;

  bool isAtLeast(std::uint32_t major, std::uint32_t minor) const {
    return isPresent && (majorVersion > major || (majorVersion == major && minorVersion >= minor));
  }
};

class Handshake;

// One connection with its screen, agreed extensions and interned atoms; opening it costs two round trips
// beside the handshake. Confined to one thread at a time: a stream with a thread of its own opens its own.
//
// Requests are made with the xcb functions on get(); their replies are fetched here, so that a lost server
// becomes a DesktopFailure everywhere. Send all requests of a step first, then fetch the replies: a step
// then costs one round trip however many requests it has.
//
// A server that is there but does not answer, or does not read, within the connection's patience counts as
// lost, and stays so. What is sent without a wait has to fit into the socket.
//
// A lost server raises SIGPIPE on the next write; the process must ignore that signal.
class Connection {
 public:
  using Patience = std::optional<std::chrono::milliseconds>; // nothing: without end
  // Far longer than a client may reasonably keep the server to itself.
  static constexpr std::chrono::milliseconds usualPatience = std::chrono::seconds(10);

  // Opens the display named, or the one of the environment. Throws DesktopFailure. A handshake that lasts
  // longer than the patience goes on by itself until the server answers; a caller who keeps it, and hands it
  // in when the same display is to be opened again, waits for that one then instead of beginning another.
  explicit Connection(const std::optional<std::string>& displayName = std::nullopt,
                      Patience patience = usualPatience, std::shared_ptr<Handshake>* underWay = nullptr);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  xcb_connection_t* get() const { return connection_; }
  const xcb_setup_t& setup() const { return *xcb_get_setup(connection_); }
  // As it was when the connection was opened: a screen that has been resized since has another size.
  const xcb_screen_t& screen() const { return *screen_; }
  int screenNumber() const { return screenNumber_; }
  xcb_window_t root() const { return screen_->root; }

  xcb_atom_t atom(Atom name) const { return atoms_[static_cast<std::size_t>(name)]; }
  const ExtensionInfo& extension(Extension name) const { return extensions_[static_cast<std::size_t>(name)]; }

  // For a connection whose owner cuts it by its descriptor when it has waited enough.
  void setPatience(Patience patience) { patience_ = patience; }

  // The resource's owner, as the part of its number that all resources of one client share.
  std::uint32_t clientBase(std::uint32_t resource) const { return resource & ~setup().resource_id_mask; }

  // The reply; null when the server refused the request, as it does for a window that is gone, and the
  // refusal is told to those who ask. Throws DesktopFailure when the server is lost. The function tells the
  // reply's type.
  //
  //   auto geometry = connection.reply(xcb_get_geometry_reply, xcb_get_geometry(connection.get(), window));
  template<class Reply, class Cookie>
  Owned<Reply> reply(Reply* (* /*fetch*/)(xcb_connection_t*, Cookie, xcb_generic_error_t**), Cookie cookie,
                     Owned<xcb_generic_error_t>* refusal = nullptr) {
    auto answer = await(cookie.sequence);
    if (refusal) {
      *refusal = std::move(answer.error);
    }
    return Owned<Reply>(static_cast<Reply*>(answer.reply));
  }

  // As above; a refused request is a DesktopFailure too.
  template<class Reply, class Cookie>
  Owned<Reply> required(Reply* (*fetch)(xcb_connection_t*, Cookie, xcb_generic_error_t**), Cookie cookie) {
    auto result = reply(fetch, cookie);
    if (!result) {
      throw DesktopFailure();
    }
    return result;
  }

  // Whether a request made with an xcb ..._checked function was carried out. Throws DesktopFailure when the
  // server is lost.
  bool succeeded(xcb_void_cookie_t cookie);

  // The next event without waiting, also errors of requests that were not checked; null when there is none.
  // Throws DesktopFailure when the server is lost.
  Owned<xcb_generic_event_t> pollEvent();

  // Drops what the server has sent unasked, such as the news that the keyboard has another layout, and tells
  // whether the connection still stands. Does not wait, and sends nothing.
  bool dropEvents();

  // Sends what is buffered. Throws DesktopFailure when the server is lost.
  void flush();

  // Returns when the server has carried out everything sent so far. Throws DesktopFailure.
  void sync();

  // When its patience was at its end; nothing when it never was.
  std::optional<std::chrono::steady_clock::time_point> gaveUpAt() const { return gaveUpAt_; }

  bool isLost() const { return xcb_connection_has_error(connection_) != 0; }

  // Becomes readable when there may be an event, or the server is lost.
  int descriptor() const { return xcb_get_file_descriptor(connection_); }

  // How often a reply was awaited whose request had gone out since the wait before: the round trips made.
  std::uint64_t roundTrips() const { return roundTrips_; }

 private:
  // One of the two is there.
  struct Answer {
    void* reply = nullptr; // the caller's
    Owned<xcb_generic_error_t> error;
  };

  void findScreen();
  void agree();
  Answer await(unsigned int sequence);
  void awaitRoom();
  void giveUp();
  void waitForInput(std::chrono::steady_clock::time_point start);
  void willWait(unsigned int sequence);
  void requireAlive() const;

  Patience patience_;
  std::optional<std::chrono::steady_clock::time_point> gaveUpAt_;
  int screenNumber_ = 0; // opening the connection sets it
  xcb_connection_t* connection_ = nullptr;
  std::deque<Owned<xcb_generic_event_t>> events_; // that came before a reply
  const xcb_screen_t* screen_ = nullptr;
  std::array<xcb_atom_t, atomCount> atoms_{};
  std::array<ExtensionInfo, extensionCount> extensions_{};
  std::uint64_t roundTrips_ = 0;
  unsigned int answeredThrough_ = 0; // the last request that went out before the latest round trip
};

// A window of this process's own.
struct OwnWindow {
  xcb_window_t window = 0;
  std::string title; // UTF-8
};
// Instance and class of all of them.
inline constexpr std::string_view ownWindowClass = "tessarin-native";

class PixelBuffer;

// The display server of this job: opened on first use, then shared by the services that run one at a time.
// None of them asks for events on the shared connection.
class DisplayServer {
 public:
  // Nothing means the display that the environment names.
  explicit DisplayServer(std::optional<std::string> displayName = std::nullopt,
                         Connection::Patience patience = Connection::usualPatience);

  // The shared connection; opened anew when the last one was lost, also when that was while nobody used it.
  // Throws DesktopFailure.
  Connection& connection();
  // A connection of the caller's own, for another thread. Throws DesktopFailure; at once where the server has
  // kept somebody waiting for all of the patience until just now, so that one who asks several times does not
  // wait several times.
  std::unique_ptr<Connection> open() const;
  // Memory that the shared connection's server knows, kept from one still to the next. May be empty; ends
  // before the connection. Used by whom uses the connection.
  std::shared_ptr<PixelBuffer>& stillMemory() { return stillMemory_; }

  // The windows of our own, which belong to the desktop's content even while nothing of them is to be seen.
  // Any thread.
  void addOwnWindow(OwnWindow window);
  void removeOwnWindow(xcb_window_t window);
  std::vector<OwnWindow> ownWindows() const;

 private:
  // How long a server that has kept somebody waiting is not asked again.
  static constexpr std::chrono::milliseconds rest{500};

  void noteGivenUp(std::optional<std::chrono::steady_clock::time_point> when) const;

  std::optional<std::string> displayName_;
  Connection::Patience patience_;
  std::unique_ptr<Connection> connection_;
  std::shared_ptr<PixelBuffer> stillMemory_; // on the connection

  mutable std::mutex lock_;
  std::vector<OwnWindow> ownWindows_; // guarded by lock_, as is
  mutable std::optional<std::chrono::steady_clock::time_point> gaveUpAt_;
  mutable std::shared_ptr<Handshake> handshake_; // that nobody waits for at the moment
};

} // namespace tessarin::x11
