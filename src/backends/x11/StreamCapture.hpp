#pragma once

#include "backends/x11/Connection.hpp"
#include "backends/x11/Cursor.hpp"
#include "backends/x11/StreamBuffers.hpp"
#include "backends/x11/StreamSource.hpp"
#include "base/HostClock.hpp"
#include "ports/Capture.hpp"

#include <cstdint>
#include <memory>
#include <optional>

namespace tessarin::x11 {

// The pictures of a stream, one after another: knows whether there may be a new one and takes it. Made by one
// thread, then confined to the stream's.
class StreamCapture {
 public:
  // Throws DesktopFailure, and CaptureFailure when the filter's content isn't there.
  StreamCapture(std::unique_ptr<Connection> connection, const HostClock& clock, const ContentFilter& filter,
                const StreamConfiguration& configuration);

  // Takes the events that have come. Throws DesktopFailure when the server is lost.
  void takeEvents();
  // The content is gone for good.
  bool hasEnded() const { return hasEnded_; }
  // There may be a new picture since the last one was taken; `changedAt` tells since when, as far as that is
  // known, and otherwise when the last change was whose time was known.
  bool hasChanged() const { return hasChanged_; }
  std::int64_t changedAt() const { return changedAt_; }

  // Looks at the pointer from time to time, for what moves it without an event. Throws DesktopFailure.
  void lookAtPointer();

  // Takes the picture as it is now. True when it differs from the present one, which it then replaces. While
  // receivers hold all buffers, or the content changes faster than it can be read, it remains to be taken.
  // Throws DesktopFailure and CaptureFailure.
  bool takePicture();

  // Host time at which the reading of the last picture that was taken began: later than takePicture() did
  // when windows had to be waited for.
  std::int64_t readAt() const { return readAt_; }

  bool hasPresent() const { return buffers_->hasPresent(); }
  Picture present() { return buffers_->present(); }

  // Becomes readable when events have come or the server is lost.
  int descriptor() const { return connection_->descriptor(); }

 private:
  void handle(const xcb_generic_event_t& event);
  std::optional<std::int64_t> timeOf(const xcb_generic_event_t& event) const;
  void noteChange(std::int64_t when);
  std::int64_t pointerLookTime() const;
  bool isPointerElsewhere();
  bool readPicture(const PixelRect& wanted);
  void finishPicture(const PixelRect& area, const PixelRect& wanted);
  bool differsFromPresent(const PixelRect& wanted) const;

  std::unique_ptr<Connection> connection_;
  const HostClock& clock_;
  StreamConfiguration configuration_;
  PixelReader reader_;
  PixelRect screen_;
  std::unique_ptr<StreamSource> source_;
  std::unique_ptr<StreamBuffers> buffers_;
  std::optional<Cursor> cursor_;
  PixelRect presentPointer_; // where the present picture shows the pointer, in the picture's coordinates
  PixelRect readPointer_;    // the same for the picture that was read last
  std::int64_t readAt_ = 0;
  std::int64_t lastLook_ = 0;         // at the pointer
  std::int64_t lastSilentMotion_ = 0; // of the pointer
  bool hasEnded_ = false;
  bool hasChanged_ = true;
  bool hasContentChanged_ = true; // and not the pointer alone
  bool isChangeTimed_ = false;    // `changedAt_` is the time of the present change
  std::int64_t changedAt_ = 0;
};

} // namespace tessarin::x11
