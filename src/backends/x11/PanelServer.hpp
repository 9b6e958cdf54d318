#pragma once

#include "backends/x11/PanelRaising.hpp"
#include "backends/x11/PanelWindow.hpp"
#include "base/EventQueue.hpp"

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace tessarin::x11 {

// The connection of all panels: hands its events to them, follows the compositing manager, and keeps them in
// front. Confined to the main queue. When the server is lost it stops watching and calls nothing any more.
class PanelServer : public std::enable_shared_from_this<PanelServer> {
 public:
  // Throws DesktopFailure. The queue outlives it.
  PanelServer(std::unique_ptr<Connection> connection, EventQueue& queue);
  // Waits for a second at most, until the server has carried out what the last panel has asked of it.
  ~PanelServer();
  PanelServer(const PanelServer&) = delete;
  PanelServer& operator=(const PanelServer&) = delete;

  // Throws DesktopFailure. The panel is served until it is given back to removePanel.
  std::shared_ptr<PanelWindow> makePanel(PanelSetup setup);
  void removePanel(const PanelWindow& panel);

  // Does it and sends it, unless the server is lost, or is found to be now.
  void perform(const std::function<void()>& action);
  bool isLost() const { return isLost_; }

 private:
  void watch();
  void chooseVisual();
  void followCompositingManager();
  void readCompositingManager();
  void lose();
  void scheduleTaking();
  void takeEvents();
  void handle(const xcb_generic_event_t& event);
  void forEachPanel(const std::function<void(PanelWindow&)>& action);
  bool isOurs(xcb_window_t window) const;
  void noteStacking(const xcb_generic_event_t& event);
  bool isCovered();
  void answerCover();
  void raiseAll();

  const std::unique_ptr<Connection> connection_;
  EventQueue& queue_;
  PixelReader reader_;
  PanelFocus focus_;
  PanelSurroundings surroundings_;
  const xcb_atom_t compositingManager_;              // the selection that it holds
  std::vector<std::shared_ptr<PanelWindow>> panels_; // back to front
  std::set<xcb_window_t> above_; // what others have put above the panels since their raise
  bool mayBeCovered_ = false;
  PanelRaising raising_;
  std::unique_ptr<QueueTimer> raiseTimer_; // set while the panels give way
  bool isTakingScheduled_ = false;
  bool isLost_ = false;
  std::unique_ptr<DescriptorWatch> watch_;
};

} // namespace tessarin::x11
