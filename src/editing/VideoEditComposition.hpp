#pragma once

#include "editing/VideoEffectCompositionInstruction.hpp"
#include "ports/MovieEditing.hpp"
#include "project/VideoEditExportRequest.hpp"

#include <optional>

namespace tessarin {

class FileSystem;

// What an edit project comes to on the files that it names: what is laid where, and how its frames are made.
struct VideoEditComposition {
  MovieComposition movie;
  SizeDTO expectedSize;    // of the finished picture
  MediaTime frameDuration; // of pictures that are coded anew
  // Set for frames that have to be painted.
  std::optional<VideoEffectCompositionInstruction> instruction;
};

// Opens the files and lays the project's clips on one time line; codes nothing. Throws
// Failure<VideoEditExportError>: invalidMedia for a file that cannot be edited or does not have what the
// project names, invalidCrop, invalidProject, compositionFailed; and MovieEditingFailure for a frozen picture
// that cannot be had. Any thread.
VideoEditComposition buildComposition(const ValidatedVideoEditExportRequest& request, MediaAssets& assets,
                                      FileSystem& files);

} // namespace tessarin
