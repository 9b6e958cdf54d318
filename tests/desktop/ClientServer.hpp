#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tessarin::client {

template<class T> struct Freed {
  void operator()(T* memory) const { std::free(memory); }
};
template<class T> using Reply = std::unique_ptr<T, Freed<T>>;

// The client program's connection with small helpers. Every failure throws std::runtime_error, since a
// client without its server is done.
class Server {
 public:
  Server();
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  xcb_connection_t* get() const { return connection_; }
  const xcb_screen_t& screen() const { return *screen_; }
  xcb_window_t root() const { return screen_->root; }
  xcb_atom_t atom(const std::string& name);
  // A visual of 32 bits with alpha.
  xcb_visualid_t alphaVisual() const;

  void setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type, const std::string& bytes);
  void setProperty(xcb_window_t window, xcb_atom_t property, xcb_atom_t type,
                   const std::vector<std::uint32_t>& values);
  // The first value of 32 bits; 0 when there is none.
  std::uint32_t property(xcb_window_t window, xcb_atom_t property);
  xcb_window_t selectionOwner(xcb_atom_t selection);
  bool hasWindowManager();
  bool isViewable(xcb_window_t window);

  // Returns when everything sent has been done.
  void sync();
  // The next event; null when none comes in time.
  Reply<xcb_generic_event_t> waitForEvent(int milliseconds);

 private:
  xcb_connection_t* connection_;
  const xcb_screen_t* screen_;
  std::map<std::string, xcb_atom_t> atoms_;
};

// Returns when the manager named is there ("window-manager", "compositing-manager", "tray").
void waitForManager(Server& server, const std::string& name);

} // namespace tessarin::client
