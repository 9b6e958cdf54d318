#pragma once

#include "model/ClipSpan.hpp"
#include "trace/InteractionEventDTO.hpp"

#include <vector>

// Pure, any thread.
namespace tessarin::InteractionEventTimeline {

// Moves the events of a recording onto the time line of an edit that plays these clips one after the other.
// Events are in order of time, and so is the result. An event in no clip is dropped; where clips overlap, an
// event goes into the first one that holds it.
std::vector<InteractionEventDTO> mapToOutput(const std::vector<InteractionEventDTO>& events,
                                             const std::vector<ClipSpan>& clips);

} // namespace tessarin::InteractionEventTimeline
