#include "trace/InteractionEventRecorder.hpp"

#include "base/FileSystem.hpp"
#include "model/Errors.hpp"
#include "trace/InteractionCoordinateMapper.hpp"
#include "trace/InteractionEventFile.hpp"
#include "trace/InteractionShortcutPrivacy.hpp"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace tessarin {

namespace {

constexpr std::chrono::milliseconds samplingInterval(33);
// A pointer that has moved less, as a fraction of the capture, is sampled only so often.
constexpr double leastMovement = 0.0005;
constexpr std::int64_t idleIntervalMs = 500;
// Clicks of one button so close in time and place are one click that was seen twice.
constexpr std::int64_t oneClickMs = 81;
constexpr double oneClickDistance = 0.01;
// Sources may know the moment of a press in whole milliseconds only, rounded down.
constexpr MediaTime pressGrain = MediaTime::milliseconds(1);
constexpr MediaTime badgeDuration = MediaTime::milliseconds(1500);

double distance(const NormalizedVideoPointDTO& a, const NormalizedVideoPointDTO& b) {
  return std::hypot(a.x - b.x, a.y - b.y);
}

MediaTime hostTimeOf(std::uint64_t nanoseconds) {
  constexpr auto latest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  return MediaTime::nanoseconds(static_cast<std::int64_t>(std::min(nanoseconds, latest)));
}

InteractionTraceWriter makeWriter(FileSystem& files, const std::string& directory) {
  try {
    return {files, directory + "/" + std::string(InteractionEventFile::name)};
  } catch (const FileFailure&) {
    throw serviceErrors::outputFailed();
  }
}

} // namespace

InteractionEventRecorder::InteractionEventRecorder(InteractionRecorderSetup setup, InteractionSource& source,
                                                   const HostClock& clock, FileSystem& files,
                                                   const QueueFactory& makeQueue)
    : setup_(std::move(setup)), source_(source), clock_(clock),
      writer_(makeWriter(files, setup_.outputDirectory)),
      queue_(readsPointer() ? makeQueue("com.tessarin.recording.interactions") : nullptr) {}

InteractionEventRecorder::~InteractionEventRecorder() {
  stop();
  eventMonitor_.reset();
}

void InteractionEventRecorder::startObserving() {
  {
    const std::lock_guard guard(lock_);
    if (stopped_ || monitoringStarted_)
      throw serviceErrors::recordingFailed();
    monitoringStarted_ = true;
  }
  InteractionHandlers handlers;
  if (setup_.recordsClicks)
    handlers.onButton = [this](const ButtonPress& press) { recordClick(press); };
  if (setup_.recordsShortcuts)
    handlers.onKey = [this](const KeyPress& press) { recordShortcut(press); };
  if (handlers.onButton || handlers.onKey) {
    std::unique_ptr<InteractionMonitor> monitor = source_.monitor(std::move(handlers));
    if (!monitor && setup_.recordsShortcuts)
      throw serviceErrors::interactionPermissionDenied();
    std::unique_lock guard(lock_);
    if (stopped_) {
      guard.unlock(); // the monitor waits for its handlers
      throw serviceErrors::recordingFailed();
    }
    eventMonitor_ = std::move(monitor);
  }
  installTimer();
}

void InteractionEventRecorder::installTimer() {
  if (!queue_)
    return;
  const std::lock_guard guard(lock_);
  if (!stopped_)
    cursorTimer_ = queue_->every(std::chrono::nanoseconds::zero(), samplingInterval, [this] { tick(); });
}

void InteractionEventRecorder::startSegment(std::int64_t activeDurationMs,
                                            std::optional<std::uint64_t> epochHostTimeNs) {
  const std::optional<PointerState> buttons = readsPointer() ? source_.pointer() : std::nullopt;
  std::optional<RecordingShortcutUpdate> update;
  {
    const std::lock_guard guard(lock_);
    if (stopped_)
      return;
    const MediaTime now = clock_.now();
    segment_ = {std::max<std::int64_t>(activeDurationMs, 0),
                epochHostTimeNs ? hostTimeOf(*epochHostTimeNs) : now, now - pressGrain};
    ++segmentNumber_;
    lastCursor_.reset();
    lastClick_.reset();
    previousButtons_ = buttons;
    update = clearingUpdateLocked();
  }
  send(update);
  if (!setup_.recordsCursor)
    return;
  const std::optional<PointerState> reading = source_.pointer();
  const std::lock_guard guard(lock_);
  if (reading && segment_)
    sampleCursorLocked(*reading, true);
}

void InteractionEventRecorder::pauseSegment() {
  std::optional<RecordingShortcutUpdate> update;
  {
    const std::lock_guard guard(lock_);
    if (stopped_)
      return;
    segment_.reset();
    lastCursor_.reset();
    update = clearingUpdateLocked();
  }
  send(update);
}

void InteractionEventRecorder::stop() {
  std::optional<RecordingShortcutUpdate> update;
  std::unique_ptr<QueueTimer> timer;
  InteractionMonitor* monitor = nullptr;
  {
    const std::lock_guard guard(lock_);
    if (stopped_)
      return;
    stopped_ = true;
    segment_.reset();
    timer = std::move(cursorTimer_);
    monitor = eventMonitor_.get();
    update = clearingUpdateLocked();
  }
  send(update);
  if (timer)
    timer->cancel();
  if (monitor)
    monitor->stop();
  const std::lock_guard guard(lock_);
  writer_.close();
}

void InteractionEventRecorder::finish() {
  stop();
  const std::lock_guard guard(lock_);
  if (writer_.hasFailed())
    throw serviceErrors::outputFailed();
}

// On queue_. A reading that a pause or another segment has overtaken is thrown away: its buttons would be
// compared with newer ones.
void InteractionEventRecorder::tick() {
  std::uint64_t number = 0;
  {
    const std::lock_guard guard(lock_);
    if (!segment_)
      return;
    number = segmentNumber_;
  }
  const std::optional<PointerState> reading = source_.pointer();
  const std::lock_guard guard(lock_);
  if (!reading || !segment_ || number != segmentNumber_)
    return;
  if (setup_.recordsClicks)
    sampleClicksLocked(*reading);
  if (setup_.recordsCursor)
    sampleCursorLocked(*reading, false);
}

std::optional<NormalizedVideoPointDTO>
InteractionEventRecorder::place(const PointerLocation& location) const {
  return InteractionCoordinateMapper::topLeftNormalizedPoint(location, setup_.captureRect);
}

// A press has happened before it is told of.
MediaTime InteractionEventRecorder::momentOf(MediaTime hostTime) const {
  const MediaTime now = clock_.now();
  return hostTime.isNumeric() ? std::min(hostTime, now) : now;
}

std::int64_t InteractionEventRecorder::timestampMsLocked(MediaTime moment) const {
  return segment_->baseMs + std::max(moment - segment_->epoch, MediaTime::zero()).wholeMilliseconds();
}

void InteractionEventRecorder::sampleCursorLocked(const PointerState& reading, bool isForced) {
  const std::optional<NormalizedVideoPointDTO> point = place(reading.location);
  if (!point)
    return;
  const std::int64_t timestampMs = timestampMsLocked(clock_.now());
  if (!isForced && lastCursor_ && distance(*point, lastCursor_->point) < leastMovement &&
      timestampMs - lastCursor_->timestampMs < idleIntervalMs)
    return;
  lastCursor_ = {*point, timestampMs};
  InteractionCursorEvent event;
  event.timestampMs = timestampMs;
  event.x = point->x;
  event.y = point->y;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  if (setup_.cursorRenderedInSource)
    event.cursorRendering = InteractionCursorRendering::source;
  writer_.append({event});
}

// The buttons that went down since the reading before, also those that are up again.
InteractionEventRecorder::Buttons InteractionEventRecorder::clickedLocked(const PointerState& reading) {
  Buttons clicked = {};
  const std::optional<PointerState> previous = std::exchange(previousButtons_, reading);
  if (!previous)
    return clicked;
  for (std::size_t i = 0; i < clicked.size(); ++i)
    clicked[i] =
        (reading.isDown[i] && !previous->isDown[i]) || reading.pressCount[i] != previous->pressCount[i];
  return clicked;
}

void InteractionEventRecorder::sampleClicksLocked(const PointerState& reading) {
  const Buttons clicked = clickedLocked(reading);
  const std::optional<NormalizedVideoPointDTO> point = place(reading.location);
  if (!point)
    return;
  const std::int64_t timestampMs = timestampMsLocked(clock_.now());
  for (std::size_t i = 0; i < clicked.size(); ++i)
    if (clicked[i])
      filterClickLocked(static_cast<InteractionMouseButton>(i), *point, timestampMs);
}

void InteractionEventRecorder::recordClick(const ButtonPress& press) {
  const std::optional<NormalizedVideoPointDTO> point = place(press.location);
  if (!setup_.recordsClicks || !point)
    return;
  const MediaTime moment = momentOf(press.hostTime);
  const std::lock_guard guard(lock_);
  if (segment_ && moment > segment_->begunAt)
    filterClickLocked(press.button, *point, timestampMsLocked(moment));
}

void InteractionEventRecorder::filterClickLocked(InteractionMouseButton button,
                                                 const NormalizedVideoPointDTO& point,
                                                 std::int64_t timestampMs) {
  if (lastClick_ && lastClick_->button == button && timestampMs - lastClick_->timestampMs < oneClickMs &&
      distance(point, lastClick_->point) < oneClickDistance)
    return;
  lastClick_ = {button, point, timestampMs};
  InteractionClickEvent event;
  event.timestampMs = timestampMs;
  event.x = point.x;
  event.y = point.y;
  event.button = button;
  event.coordinateSpace = InteractionCoordinateSpace::captureTopLeft;
  writer_.append({event});
}

void InteractionEventRecorder::recordShortcut(const KeyPress& press) {
  if (!setup_.recordsShortcuts)
    return;
  const std::optional<std::uint16_t> code = InteractionShortcutPrivacy::keyCode(press.evdevCode);
  std::optional<std::vector<std::string>> keys;
  if (code)
    keys = InteractionShortcutPrivacy::keys(*code, press.modifiers, press.isRepeat, press.isSecureInput);
  if (!keys && !press.isSecureInput)
    return;
  const MediaTime moment = momentOf(press.hostTime);
  std::optional<RecordingShortcutUpdate> update;
  {
    const std::lock_guard guard(lock_);
    if (!segment_ || writer_.hasFailed() || moment <= segment_->begunAt)
      return;
    update = keys ? shortcutUpdateLocked(std::move(*keys), moment) : clearingUpdateLocked();
  }
  send(update);
}

std::optional<RecordingShortcutUpdate>
InteractionEventRecorder::shortcutUpdateLocked(std::vector<std::string> keys, MediaTime moment) {
  InteractionShortcutEvent event;
  event.timestampMs = timestampMsLocked(moment);
  event.keys = keys;
  const bool isWritten = writer_.append({event});
  std::optional<RecordingShortcutUpdate> update = clearingUpdateLocked();
  if (update && isWritten) {
    update->keys = std::move(keys);
    update->expiresAt = clock_.now() + badgeDuration;
  }
  return update;
}

std::optional<RecordingShortcutUpdate> InteractionEventRecorder::clearingUpdateLocked() {
  if (!showsUpdates())
    return std::nullopt;
  return RecordingShortcutUpdate{++shortcutRevision_, std::nullopt, std::nullopt};
}

void InteractionEventRecorder::send(const std::optional<RecordingShortcutUpdate>& update) const {
  if (update)
    setup_.shortcutHandler(*update);
}

} // namespace tessarin
