#pragma once

#include "backends/x11/ExclusionBackground.hpp"
#include "backends/x11/ExclusionPast.hpp"
#include "backends/x11/ExclusionPlan.hpp"
#include "backends/x11/SharedMemory.hpp"
#include "backends/x11/WindowPixmap.hpp"
#include "base/HostClock.hpp"
#include "pixels/Canvas.hpp"
#include "ports/Desktop.hpp"

#include <xcb/damage.h>
#include <xcb/shape.h>

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace tessarin::x11 {

// Paints pictures of the screen as if the windows of some processes were not there, now and as windows come,
// go and move. Pixels that don't show such a window are left alone. Confined to the connection's thread.
//
//   refresh(); read the screen; request(); collect(); paint(); and, unless the events that came meanwhile
//   have made it stale, the picture is right.
class Exclusion {
 public:
  // Asks for events of the root window: selects them on it for this connection. Throws DesktopFailure.
  Exclusion(Connection& connection, PixelReader& reader, const HostClock& clock,
            const std::vector<RunningApplication>& excluded, const PixelRect& area);
  ~Exclusion();
  Exclusion(const Exclusion&) = delete;
  Exclusion& operator=(const Exclusion&) = delete;

  // Where, by the event, the picture may be another one now; nothing when it tells of no change.
  std::optional<PixelRect> handle(const xcb_generic_event_t& event);
  // The same for what changes with the time alone.
  std::optional<PixelRect> handleTime();
  // Whether the windows have changed since the last refresh.
  bool isStale() const { return isStale_ || isPlanStale_; }

  // Takes up what has become of the windows: those that merely moved are known from their events; otherwise
  // all are read anew. Waits, within bounds, for what has to be painted first. Events that come meanwhile go
  // to the handler as well. The result is where the picture may be another one now. Throws DesktopFailure,
  // and CaptureFailure for windows whose pixels are of an unknown kind.
  PixelRect refresh(const PixelRect& screen, const EventHandler& others);

  // Reads what has to be painted over. Only sends: the caller may keep the server to itself meanwhile.
  void request();
  // False when a window has changed meanwhile.
  bool collect();
  // `canvas` begins at (left, top) of the root window; what lies outside of the area is not touched.
  void paint(const pixels::Canvas& canvas, std::int32_t left, std::int32_t top) const;

  // Whether the screen's pixels and those painted over them are of one moment only if other clients are kept
  // from painting between the two readings. A compositing manager is behind the windows either way.
  bool needsStillness() const { return !stack_.isComposited && !plan_.layers.empty(); }

  // Whether a change of the screen within this rectangle cannot be seen: it is painted over there, and what
  // lies beneath tells of its changes itself.
  bool hides(const PixelRect& rectangle) const { return plan_.patch.contains(rectangle); }

 private:
  struct Kept {
    WindowPixmap pixmap;
    xcb_damage_damage_t damage = 0;
    bool isDamaged = false;
  };
  struct Piece {
    PixelRect area; // of the root window
    std::size_t offset = 0;
    PixelReader::Pending pending = {};
  };

  std::optional<PixelRect> handleDamage(const xcb_damage_notify_event_t& event);
  std::optional<PixelRect> handleShape(const xcb_shape_notify_event_t& event);
  std::optional<PixelRect> handleConfigure(const xcb_configure_notify_event_t& event);
  std::optional<PixelRect> becomeStale();
  std::optional<PixelRect> takeMove();
  void readStack(const PixelRect& screen);
  bool watchShape(xcb_window_t window);
  void rememberPlaces(const ExclusionPlan& before, std::int64_t showsOn);
  void requireKnownPixels() const;
  void keepPixmaps(const EventHandler& others);
  void watchHidden(RepaintWatch& watch, const ExclusionPlan::Layer& layer) const;
  void watchNew(RepaintWatch& watch) const;
  void keep(xcb_window_t window);
  void dropUnused();
  void layOutPieces();
  bool isOurOwn(xcb_window_t window) const;

  Connection& connection_;
  PixelReader& reader_;
  const HostClock& clock_;
  std::vector<std::int32_t> excluded_;
  PixelRect area_;
  bool isStale_ = true;            // the stack
  bool isPlanStale_ = true;        // where nothing but the plan has to be made anew
  std::set<xcb_window_t> watched_; // tell of changes of their shape
  WindowStack stack_;
  std::vector<std::size_t> new_; // windows of the stack that were not in it before
  ExclusionPlan plan_;
  std::map<xcb_window_t, Kept> kept_;
  PixelBuffer pieces_;        // of the layers, one behind the other
  std::vector<Piece> layers_; // in the plan's order
  ExclusionBackground background_;
  PastPlaces past_;
};

} // namespace tessarin::x11
