#pragma once

#include "modules/editing/FrameConversion.hpp"
#include "modules/editing/Workflow.hpp"
#include "ports/MovieEditing.hpp"

#include <memory>
#include <mutex>
#include <optional>

namespace tessarin::editing {

// A decoded picture whose pixels are converted when somebody first needs them, and then shared. Any thread.
class SourcePicture {
 public:
  SourcePicture(SharedFrame frame, PixelSize natural) : frame_(std::move(frame)), natural_(natural) {}

  const SharedFrame& frame() const { return frame_; }
  // As long as this is there. Throws MovieEditingFailure.
  PictureView bgrx(PictureMemory& memory);

 private:
  const SharedFrame frame_;
  const PixelSize natural_;
  std::once_flag converted_;
  Picture picture_;
};

// One frame of the output on its way from the decoder to the coder. Frames that show the same may share one.
struct FrameWork {
  MediaTime outputTime;
  std::shared_ptr<SourcePicture> source;
  std::shared_ptr<SourcePicture> camera; // null without one
  SharedFrame result;                    // under the workflow's lock
};

// How frames are made; one for all threads.
struct FrameRecipe {
  PictureShape shape;                          // without a compositor
  const FrameCompositor* compositor = nullptr; // paints frames of the shape's size
};

// Makes the frame of a work, 4:2:0, BT.709, video range. Any thread. Throws MovieEditingFailure, and what the
// compositor throws.
SharedFrame makeFrame(const FrameRecipe& recipe, const FrameWork& work, PictureMemory& memory);

} // namespace tessarin::editing
