#pragma once

#include "desktop/ContentService.hpp"
#include "ports/Capture.hpp"
#include "recording/RecordingModels.hpp"

namespace tessarin {

// What the stream of a recording shows: the window by itself, without exclusions, or the display without the
// applications that the snapshot leaves out. Throws serviceErrors::contentUnavailable() when the platform's
// view of the snapshot does not hold what its record was validated against; the two can disagree. Pure.
ContentFilter recordingContentFilter(const ValidatedRecordingRequest& validated,
                                     const ContentSnapshot& snapshot);

// A display's filter that leaves out the application of the recording's own panels as well, once, before
// others. Pure.
ContentFilter excludingOverlays(ContentFilter filter, const RunningApplication& application);

} // namespace tessarin
