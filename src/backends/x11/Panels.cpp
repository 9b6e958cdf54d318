#include "backends/x11/Panels.hpp"

#include "backends/x11/PanelServer.hpp"

#include <utility>

namespace tessarin::x11 {

namespace {

class ServerPanel final : public Panel {
 public:
  // Throws DesktopFailure.
  ServerPanel(std::shared_ptr<DisplayServer> display, std::shared_ptr<PanelServer> server, PanelSetup setup)
      : display_(std::move(display)), server_(std::move(server)),
        window_(server_->makePanel(std::move(setup))) {
    display_->addOwnWindow({window_->id(), window_->label()});
  }
  ~ServerPanel() override {
    display_->removeOwnWindow(window_->id());
    server_->removePanel(*window_);
    server_->perform([this] { window_.reset(); });
  }
  ServerPanel(const ServerPanel&) = delete;
  ServerPanel& operator=(const ServerPanel&) = delete;

  std::uint32_t windowID() const override { return window_->id(); }
  double backingScale() const override { return window_->scale(); }
  SizeDTO pixelSize() const override { return window_->pixelSize(); }

  void setFrame(const RectDTO& frame) override {
    server_->perform([&] { window_->setFrame(frame); });
  }
  void setPicture(const Picture& picture) override {
    server_->perform([&] { window_->setPicture(picture); });
  }

 private:
  const std::shared_ptr<DisplayServer> display_;
  const std::shared_ptr<PanelServer> server_; // outlives the window
  std::shared_ptr<PanelWindow> window_;
};

// The panels share the connection, which ends with the last of them.
class ServerPanelFactory final : public PanelFactory {
 public:
  ServerPanelFactory(std::shared_ptr<DisplayServer> display, EventQueue& queue)
      : display_(std::move(display)), queue_(queue) {}

  std::unique_ptr<Panel> makePanel(PanelSetup setup) override {
    auto server = server_.lock();
    if (!server || server->isLost()) {
      server = std::make_shared<PanelServer>(display_->open(), queue_);
      server_ = server;
    }
    return std::make_unique<ServerPanel>(display_, std::move(server), std::move(setup));
  }

 private:
  const std::shared_ptr<DisplayServer> display_;
  EventQueue& queue_;
  std::weak_ptr<PanelServer> server_;
};

} // namespace

std::unique_ptr<PanelFactory> makePanelFactory(std::shared_ptr<DisplayServer> server, EventQueue& mainQueue) {
  return std::make_unique<ServerPanelFactory>(std::move(server), mainQueue);
}

} // namespace tessarin::x11
