#include "recording/RecordingCameraOverlay.hpp"

#include "base/SafeFile.hpp"
#include "model/Errors.hpp"
#include "recording/CameraOverlayLayout.hpp"
#include "recording/RecordingOverlayRegistration.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>
#include <vector>

namespace tessarin {

namespace {

constexpr std::chrono::nanoseconds refreshInterval{1'000'000'000 / 30};
constexpr std::uint64_t nanosecondsPerMillisecond = 1'000'000;
constexpr const char* accessibilityLabel = "Camera / \u6444\u50cf\u5934";

NormalizedVideoRectDTO startingRect(const RecordingSettingsDTO& settings,
                                    const RecordingConfigurationPlan& plan) {
  const auto placement = settings.presentation ? settings.presentation->cameraPlacement
                                               : std::optional<RecordingCameraPlacementDTO>();
  const RectDTO pixels =
      CameraOverlayLayout::rect({plan.outputWidth, plan.outputHeight}, settings.cameraPosition, placement);
  const auto width = static_cast<double>(plan.outputWidth);
  const auto height = static_cast<double>(plan.outputHeight);
  return {pixels.x / width, pixels.y / height, pixels.width / width, pixels.height / height};
}

RecordedCameraLayout startingLayout(const RecordingRequestDTO& request,
                                    const RecordingConfigurationPlan& plan) {
  const RecordingSettingsDTO& settings = request.settings;
  RecordedCameraLayout layout;
  layout.sessionID = request.sessionID;
  layout.camera.visible = true;
  layout.camera.rect = startingRect(settings, plan);
  layout.camera.shape = VideoCameraShapeDTO::rounded;
  layout.camera.mirrored = settings.cameraPreviewMirrored.value_or(true);
  layout.camera.borderVisible = !settings.presentation || settings.presentation->cameraBorder;
  layout.camera.recordedPositions = {{0, layout.camera.rect}};
  return layout;
}

// Fractions of the capture do not come back to points exactly. What is left of that, which is far less than
// a pixel, must not make the panel touch another one.
double withoutNoise(double points) {
  constexpr double steps = 65536;
  return std::round(points * steps) / steps;
}

} // namespace

RecordingCameraOverlay::RecordingCameraOverlay(RecordingOverlayEnvironment environment,
                                               CameraOverlaySource& source,
                                               const RecordingRequestDTO& request,
                                               const RecordingConfigurationPlan& plan,
                                               std::function<void()> failureHandler)
    : environment_(std::move(environment)), source_(source), captureRect_(plan.captureRect),
      filePath_(request.outputDirectory + '/' + RecordedCameraLayout::fileName),
      layout_(startingLayout(request, plan)), failureHandler_(std::move(failureHandler)),
      view_({.onMove = [this](const PointerLocation& delta) { move(delta); },
             .onFinish = [this] { persistSoon(); },
             .panelOrigin =
                 [this] {
                   const RectDTO frame = panelFrame();
                   return PointerLocation{frame.x, frame.y};
                 }}) {
  createFile();
  TemporaryFile created(environment_.files, filePath_);
  showPanel();
  created.keep();
}

void RecordingCameraOverlay::createFile() {
  try {
    if (exists(environment_.files, filePath_))
      throw serviceErrors::outputFailed();
  } catch (const FileFailure&) {
    throw serviceErrors::outputFailed();
  }
  write(encodedLayout());
}

std::string RecordingCameraOverlay::encodedLayout() const {
  try {
    return json::encode(layout_);
  } catch (const json::EncodingFailure&) {
    throw serviceErrors::outputFailed();
  }
}

void RecordingCameraOverlay::write(const std::string& text) {
  try {
    writeFileAtomically(environment_.files, filePath_, text);
  } catch (const FileFailure&) {
    throw serviceErrors::outputFailed();
  }
}

void RecordingCameraOverlay::showPanel() {
  panel_ = RecordingOverlayRegistration::makePanel(
      environment_.panels,
      {.frame = panelFrame(),
       .accessibilityLabel = accessibilityLabel,
       .ignoresMouseEvents = false,
       .handlers = {.onMouseDown = [this](const PointerLocation& at) { view_.mouseDown(at); },
                    .onMouseDragged = [this](const PointerLocation& at) { view_.mouseDragged(at); },
                    .onMouseUp = [this] { view_.mouseUp(); },
                    .onKeyDown = [this](std::uint16_t evdevCode) { return view_.keyDown(evdevCode); }}});
  timer_ = environment_.mainQueue.every(refreshInterval, refreshInterval, [this] { refresh(); });
}

std::optional<std::uint32_t> RecordingCameraOverlay::windowID() const {
  return panel_ ? std::optional(panel_->windowID()) : std::nullopt;
}

void RecordingCameraOverlay::refresh() {
  if (!panel_)
    return;
  const std::optional<Picture> frame = source_.latestFrame();
  if (!frame)
    return;
  const SizeDTO pixels = panel_->pixelSize();
  if (pixels.width <= 0 || pixels.height <= 0 || isShown(*frame, pixels))
    return;
  VideoCameraLayerDTO layer;
  layer.visible = true;
  layer.rect = {0, 0, 1, 1};
  layer.shape = layout_.camera.shape;
  layer.mirrored = layout_.camera.mirrored;
  layer.borderVisible = layout_.camera.borderVisible;
  panel_->setPicture(renderer_.image(frame->view, layer, pixels).picture);
  shownFrame_ = *frame;
  shownPixels_ = pixels;
}

bool RecordingCameraOverlay::isShown(const Picture& frame, const SizeDTO& pixels) const {
  return frame.owner && frame.owner == shownFrame_.owner && frame.view.data == shownFrame_.view.data &&
         pixels == shownPixels_;
}

RectDTO RecordingCameraOverlay::panelFrame() const {
  const NormalizedVideoRectDTO& rect = layout_.camera.rect;
  return {withoutNoise(captureRect_.x + rect.x * captureRect_.width),
          withoutNoise(captureRect_.y + rect.y * captureRect_.height),
          withoutNoise(rect.width * captureRect_.width), withoutNoise(rect.height * captureRect_.height)};
}

void RecordingCameraOverlay::placePanel() {
  if (panel_)
    panel_->setFrame(panelFrame());
}

void RecordingCameraOverlay::move(const PointerLocation& delta) {
  if (failed_)
    return;
  VideoCameraLayerDTO& camera = layout_.camera;
  NormalizedVideoRectDTO moved = camera.rect;
  moved.x = std::clamp(moved.x + delta.x / captureRect_.width, 0.0, 1 - moved.width);
  moved.y = std::clamp(moved.y + delta.y / captureRect_.height, 0.0, 1 - moved.height);
  if (moved == camera.rect)
    return;
  camera.rect = moved;
  camera.visible = true;
  if (const std::optional<std::int64_t> timeMs = activeTimeNow())
    appendPosition(*timeMs);
  placePanel();
}

std::optional<std::int64_t> RecordingCameraOverlay::activeTimeNow() const {
  const std::optional<std::uint64_t> now = hostNanoseconds(environment_.clock.now());
  if (!segmentEpochNs_ || !now || *now < *segmentEpochNs_)
    return std::nullopt;
  return baseMs_ + static_cast<std::int64_t>((*now - *segmentEpochNs_) / nanosecondsPerMillisecond);
}

void RecordingCameraOverlay::appendPosition(std::int64_t timeMs) {
  std::vector<VideoCameraPositionDTO>& positions = *layout_.camera.recordedPositions;
  if (!positions.empty() && positions.back().sourceTimeMs == timeMs)
    positions.back().rect = layout_.camera.rect;
  else if (positions.size() >= RecordedCameraLayout::maximumPositions)
    failOnce();
  else
    positions.push_back({timeMs, layout_.camera.rect});
}

void RecordingCameraOverlay::startSegment(std::int64_t activeDurationMs, std::uint64_t epochHostTimeNs) {
  segmentEpochNs_ = epochHostTimeNs;
  baseMs_ = activeDurationMs;
  appendPosition(activeDurationMs);
}

void RecordingCameraOverlay::pauseSegment() {
  segmentEpochNs_.reset();
  persistOrFail();
}

void RecordingCameraOverlay::finish(std::int64_t durationMs) {
  pauseSegment();
  std::erase_if(*layout_.camera.recordedPositions,
                [&](const VideoCameraPositionDTO& position) { return position.sourceTimeMs > durationMs; });
  const std::string text = encodedLayout();
  if (text.size() > RecordedCameraLayout::maximumBytes)
    throw serviceErrors::outputFailed();
  write(text);
  if (failed_)
    throw serviceErrors::outputFailed();
}

// Behind all that waits on the queue, and once for it: the presses of a key that is held come faster than a
// busy disk takes a file, and the queue would serve nothing else.
void RecordingCameraOverlay::persistSoon() {
  if (!save_)
    save_ = environment_.mainQueue.after(std::chrono::nanoseconds::zero(), [this] { persistOrFail(); });
}

void RecordingCameraOverlay::persistOrFail() {
  save_.reset();
  try {
    write(encodedLayout());
  } catch (const NativeServiceError&) {
    failOnce();
  }
}

void RecordingCameraOverlay::failOnce() {
  failed_ = true;
  if (const std::function<void()> handler = std::exchange(failureHandler_, nullptr))
    handler();
}

void RecordingCameraOverlay::close() {
  timer_.reset();
  save_.reset();
  panel_.reset();
  shownFrame_ = {};
}

} // namespace tessarin
