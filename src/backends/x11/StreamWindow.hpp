#pragma once

#include "backends/x11/StreamSource.hpp"
#include "backends/x11/WindowPicture.hpp"

#include <xcb/damage.h>

namespace tessarin::x11 {

// One window by itself; ends with it.
class StreamWindow final : public StreamSource {
 public:
  StreamWindow(Connection& connection, PixelReader& reader, const HostClock& clock, xcb_window_t client);
  ~StreamWindow() override;

  Sign handle(const xcb_generic_event_t& event) override;
  void prepare(const PixelRect& screen, const EventHandler& others) override;
  bool isStale() const override { return window_.isStale(); }
  PixelRect area() const override { return window_.isShown() ? window_.bounds() : PixelRect(); }
  void request(const PixelRect& wanted, const PixelBuffer& buffer, const pixels::Canvas& canvas) override;
  bool collect(const PixelRect& wanted, const pixels::Canvas& canvas) override;
  PixelRect changedArea() const override { return changes_.read(); }
  void keepChanges() override { changes_.keep(); }

 private:
  Connection& connection_;
  WindowPicture window_;
  xcb_window_t damagedWindow_ = 0;
  xcb_damage_damage_t damage_ = 0;
  ChangeNotes changes_;
};

} // namespace tessarin::x11
