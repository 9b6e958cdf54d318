#include "modules/media/SteppingCoder.hpp"

#include "modules/media/CoderFailure.hpp"

#include <iterator>
#include <utility>

namespace tessarin::media {

SteppingCoder::SteppingCoder(Make make, const SharedEffort& effort)
    : make_(std::move(make)), effort_(effort), used_(effort.current()), coder_(make_(used_)) {}

std::vector<CodedPicture> SteppingCoder::encode(const std::shared_ptr<const I420Picture>& picture,
                                                std::int64_t time, bool asKey) {
  std::vector<CodedPicture> pictures;
  const CodingEffort wished = effort_.current();
  // A new coder numbers its keys from the beginning, and two keys of one number may not follow each other.
  if (asKey && !isBehindKey_ && wished != used_) {
    used_ = wished;
    if (auto next = nextCoder(wished)) {
      pictures = coder_->finish();
      coder_ = std::move(next);
    }
  }
  isBehindKey_ = asKey;
  std::vector<CodedPicture> more = coder_->encode(picture, time, asKey);
  pictures.insert(pictures.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
  return pictures;
}

// Null when none can be had that goes on with the stream; the one that works then goes on itself.
std::unique_ptr<VideoCoder> SteppingCoder::nextCoder(CodingEffort effort) const {
  try {
    auto next = make_(effort);
    return next->description() == coder_->description() ? std::move(next) : nullptr;
  } catch (const CoderFailure&) {
    return nullptr;
  }
}

} // namespace tessarin::media
