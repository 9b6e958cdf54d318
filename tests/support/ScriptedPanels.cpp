#include "support/ScriptedPanels.hpp"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessarin {

class ScriptedPanel::Handle final : public Panel {
 public:
  explicit Handle(std::shared_ptr<ScriptedPanel> panel) : panel_(std::move(panel)) {}
  ~Handle() override {
    panel_->noteThread();
    panel_->isClosed = true;
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  std::uint32_t windowID() const override {
    panel_->noteThread();
    return panel_->windowID;
  }
  double backingScale() const override {
    panel_->noteThread();
    return panel_->scale_;
  }
  SizeDTO pixelSize() const override {
    panel_->noteThread();
    const RectDTO& frame = panel_->frame();
    if (frame.width <= 0 || frame.height <= 0)
      return {};
    const auto touched = [&](double start, double length) {
      const double end = std::ceil((start + length) * panel_->scale_);
      return static_cast<std::int64_t>(end - std::floor(start * panel_->scale_));
    };
    return {touched(frame.x, frame.width), touched(frame.y, frame.height)};
  }
  void setFrame(const RectDTO& frame) override {
    panel_->noteThread();
    panel_->frames.push_back(frame);
  }
  void setPicture(const Picture& picture) override {
    panel_->noteThread();
    panel_->pictures.push_back(picture);
  }

 private:
  const std::shared_ptr<ScriptedPanel> panel_;
};

void ScriptedPanel::mouseDown(double x, double y) const {
  if (takesInput() && setup.handlers.onMouseDown)
    setup.handlers.onMouseDown({x, y});
}

void ScriptedPanel::mouseDragged(double x, double y) const {
  if (takesInput() && setup.handlers.onMouseDragged)
    setup.handlers.onMouseDragged({x, y});
}

void ScriptedPanel::mouseUp() const {
  if (takesInput() && setup.handlers.onMouseUp)
    setup.handlers.onMouseUp();
}

void ScriptedPanel::keyDown(std::uint16_t evdevCode) const {
  if (takesInput() && setup.handlers.onKeyDown)
    setup.handlers.onKeyDown(evdevCode);
}

bool ScriptedPanel::showsPicture() const {
  return !isClosed && !pictures.empty() && pictures.back().view.data != nullptr && frame().width > 0 &&
         frame().height > 0;
}

void ScriptedPanel::noteThread() {
  stayedOnItsThread = stayedOnItsThread && std::this_thread::get_id() == thread_;
}

std::size_t ScriptedPanelFactory::openCount() const {
  return static_cast<std::size_t>(
      std::count_if(panels.begin(), panels.end(),
                    [](const std::shared_ptr<ScriptedPanel>& each) { return !each->isClosed; }));
}

std::vector<ShareableWindow> ScriptedPanelFactory::windows(const RunningApplication& owner) const {
  std::vector<ShareableWindow> listed;
  for (const std::shared_ptr<ScriptedPanel>& panel : panels)
    if (!panel->isClosed)
      listed.push_back({.windowID = panel->windowID,
                        .frame = panel->frame(),
                        .title = std::nullopt,
                        .windowLayer = 3,
                        .isOnScreen = true,
                        .owningApplication = owner});
  return listed;
}

std::unique_ptr<Panel> ScriptedPanelFactory::makePanel(PanelSetup setup) {
  if (refuses)
    throw DesktopFailure();
  const auto panel = std::make_shared<ScriptedPanel>();
  panel->frames.push_back(setup.frame);
  panel->setup = std::move(setup);
  panel->windowID = nextWindowID++;
  panel->scale_ = backingScale;
  panel->thread_ = std::this_thread::get_id();
  panels.push_back(panel);
  return std::make_unique<ScriptedPanel::Handle>(panel);
}

} // namespace tessarin
