#pragma once

#include "ports/Desktop.hpp"
#include "ports/Panels.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace tessarin {

// A window that a test looks at and moves. Shared by the test and the panel that it stands for.
class ScriptedPanel {
 public:
  PanelSetup setup; // as it was asked for
  std::uint32_t windowID = 0;

  // What a person does; nothing happens to a panel that is closed or lets the pointer through.
  void mouseDown(double x, double y) const;
  void mouseDragged(double x, double y) const;
  void mouseUp() const;
  void keyDown(std::uint16_t evdevCode) const;

  // The log. The first frame is that of the setup; a picture that clears the panel is in it too.
  std::vector<RectDTO> frames;
  std::vector<Picture> pictures;
  bool isClosed = false;
  bool stayedOnItsThread = true; // every call came on the thread that made the panel

  const RectDTO& frame() const { return frames.back(); }
  // There are pixels on it, and a frame in which they are seen, and it is not closed.
  bool showsPicture() const;

 private:
  friend class ScriptedPanelFactory;
  class Handle;
  bool takesInput() const { return !isClosed && !setup.ignoresMouseEvents; }
  void noteThread();

  double scale_ = 1;
  std::thread::id thread_;
};

// A desktop's panels, as a test has them. The test and the panels' thread take turns.
class ScriptedPanelFactory final : public PanelFactory {
 public:
  // The script.
  bool refuses = false;
  double backingScale = 1;           // pixels per point, of panels made from now on
  std::uint32_t nextWindowID = 9000; // each panel takes the next number

  // The panels that were made, in order, closed ones too.
  std::vector<std::shared_ptr<ScriptedPanel>> panels;
  std::size_t openCount() const;
  // The panels that are open as a desktop lists them, all of the one application.
  std::vector<ShareableWindow> windows(const RunningApplication& owner) const;

  std::unique_ptr<Panel> makePanel(PanelSetup setup) override;
};

} // namespace tessarin
