#pragma once

#include "backends/x11/CanvasReader.hpp"
#include "backends/x11/Exclusion.hpp"
#include "backends/x11/StreamSource.hpp"
#include "ports/Desktop.hpp"

#include <xcb/damage.h>

#include <optional>
#include <vector>

namespace tessarin::x11 {

// A rectangle of the screen, with or without the windows of some applications. What lies outside of the
// screen is black.
class StreamDisplay final : public StreamSource {
 public:
  StreamDisplay(Connection& connection, PixelReader& reader, const HostClock& clock, const PixelRect& area,
                const std::vector<RunningApplication>& excluded);
  ~StreamDisplay() override;

  Sign handle(const xcb_generic_event_t& event) override;
  Sign handleTime() override;
  void prepare(const PixelRect& screen, const EventHandler& others) override;
  bool isStale() const override;
  PixelRect area() const override { return area_; }
  void request(const PixelRect& wanted, const PixelBuffer& buffer, const pixels::Canvas& canvas) override;
  bool collect(const PixelRect& wanted, const pixels::Canvas& canvas) override;
  PixelRect changedArea() const override { return changes_.read(); }
  void keepChanges() override { changes_.keep(); }

 private:
  Sign noteDamage(const xcb_damage_notify_event_t& event);
  Sign noteChange(const std::optional<PixelRect>& changed);

  Connection& connection_;
  CanvasReader canvasReader_;
  PixelRect area_;
  PixelRect screen_;
  std::optional<Exclusion> exclusion_;
  xcb_damage_damage_t damage_ = 0;
  ChangeNotes changes_;
};

} // namespace tessarin::x11
