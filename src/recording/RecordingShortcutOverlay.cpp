#include "recording/RecordingShortcutOverlay.hpp"

#include "recording/RecordingOverlayRegistration.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tessarin {

RecordingShortcutOverlay::RecordingShortcutOverlay(RecordingOverlayEnvironment environment,
                                                   const RectDTO& captureRect)
    : environment_(std::move(environment)), renderer_(environment_.typesetter), captureRect_(captureRect),
      panel_(RecordingOverlayRegistration::makePanel(
          environment_.panels,
          {.frame = emptyFrame(), .accessibilityLabel = {}, .ignoresMouseEvents = true, .handlers = {}})) {}

std::optional<std::uint32_t> RecordingShortcutOverlay::windowID() const {
  return panel_ ? std::optional(panel_->windowID()) : std::nullopt;
}

void RecordingShortcutOverlay::receive(const RecordingShortcutUpdate& update) {
  if (!panel_ || update.revision <= revision_)
    return;
  revision_ = update.revision;
  if (!mayShow(update))
    return clear();
  const std::optional<ShortcutBadgeRenderer::Badge> badge =
      renderer_.image(*update.keys, InteractionShortcutStyleDTO::dark,
                      {captureRect_.width, captureRect_.height}, panel_->backingScale());
  if (!badge)
    return clear();
  show(*badge, *update.expiresAt);
}

bool RecordingShortcutOverlay::mayShow(const RecordingShortcutUpdate& update) const {
  return update.keys && update.expiresAt && environment_.clock.now() < *update.expiresAt &&
         !environment_.interactions.isSecureInput();
}

void RecordingShortcutOverlay::show(const ShortcutBadgeRenderer::Badge& badge, MediaTime expiresAt) {
  panel_->setFrame(
      {captureRect_.x + badge.rect.x, captureRect_.y + badge.rect.y, badge.rect.width, badge.rect.height});
  panel_->setPicture(badge.picture);
  expiresAt_ = expiresAt;
  const MediaTime left = (expiresAt - environment_.clock.now()).convertedTo(MediaTime::nanosecondScale);
  timer_ = environment_.mainQueue.after(std::chrono::nanoseconds(std::max<std::int64_t>(left.value(), 0)),
                                        [this] { refresh(); });
}

void RecordingShortcutOverlay::refresh() {
  if (!panel_ || !expiresAt_)
    return;
  if (environment_.interactions.isSecureInput() || environment_.clock.now() >= *expiresAt_)
    clear();
}

void RecordingShortcutOverlay::clear() {
  expiresAt_.reset();
  timer_.reset();
  if (!panel_)
    return;
  panel_->setPicture({});
  panel_->setFrame(emptyFrame());
}

void RecordingShortcutOverlay::close() {
  clear();
  panel_.reset();
}

RectDTO RecordingShortcutOverlay::emptyFrame() const {
  return {captureRect_.x + captureRect_.width / 2, captureRect_.y + captureRect_.height / 2, 0, 0};
}

} // namespace tessarin
