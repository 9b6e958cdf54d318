#pragma once

#include "container/Movie.hpp"
#include "modules/media/CodingEffort.hpp"
#include "modules/media/PictureSequencer.hpp"
#include "ports/MediaWriting.hpp"

#include <memory>

namespace tessarin::media {

// A coder of the codec library together with what a file needs to know about its stream. The same settings
// always yield the same description from coders of one name, whatever their effort. Confined to one thread
// at a time.
class VideoCoder : public PictureCoder {
 public:
  virtual const container::SampleDescription& description() const = 0;
  // Null where the coder's stream cannot have repeated pictures put in.
  virtual std::unique_ptr<PictureRepeater> makeRepeater() const = 0;
};

} // namespace tessarin::media
