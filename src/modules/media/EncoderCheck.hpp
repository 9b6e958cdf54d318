#pragma once

#include "modules/media/VideoCoders.hpp"

#include <string>

namespace tessarin::media {

// Whether an encoder of the catalogue really works: it codes a small film and one of 1920x1080 through the
// recorder's own coder, with repeated pictures where its stream takes them, and what comes out, decoded,
// shows every picture at its place. Drivers may crash on it, so that it is for a process of its own.
bool encodesRightly(const EncoderCatalogue& catalogue, const std::string& encoderName);

} // namespace tessarin::media
