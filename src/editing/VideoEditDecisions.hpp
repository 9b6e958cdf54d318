#pragma once

#include "project/VideoEditProject.hpp"

// How much work an export is. Pure, any thread.
namespace tessarin {

// Whether frames have to be painted: by a crop, an overlay (shown or not), a camera that is shown, or a
// version that is not just the picture as it is.
bool requiresCustomCompositor(const VideoEditProjectDTO& project);

// Whether pictures or sound have to be coded anew; else the edit is a mere cut, and what is coded is copied.
bool requiresTranscoding(const VideoEditProjectDTO& project);

} // namespace tessarin
