#include "modules/media/PictureSequencer.hpp"

#include "modules/media/CoderFailure.hpp"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace tessarin::media {

namespace {

// After a pause the coder's time goes on by this much at most, so that the bits which a still screen did
// not need are not all spent at once.
constexpr std::int64_t longestCoderStep = 4;

} // namespace

PictureSequencer::PictureSequencer(PictureCoder& coder, std::unique_ptr<PictureRepeater> repeater,
                                   KeyInterval keyInterval, Output output)
    : coder_(coder), repeater_(std::move(repeater)), keyInterval_(keyInterval),
      quietSlotLimit_(std::max(coder.delay(), keyInterval.pictures / 2)),
      freeSlotLimit_(static_cast<std::size_t>(std::max(coder.delay(), keyInterval.pictures))),
      output_(std::move(output)) {}

void PictureSequencer::append(std::shared_ptr<const I420Picture> picture, std::int64_t time) {
  const bool isNew = picture != current_;
  if (isNew) {
    current_ = std::move(picture);
    isAtCurrentKey_ = false;
    isStill_ = false;
    lastChange_ = nextSlot_;
  }
  const Slot slot{nextSlot_++, time};
  const bool keyIsDue = isDue(slot);
  const bool repeatsKey = keyIsDue && !isNew && mayRepeatKey();
  // By time alone a key may wait until the one before it is out.
  const bool keyMayWait = isAtCurrentKey_ && !isDueByCount(slot);
  slots_.push_back(slot);
  if (repeatsKey) {
    openKey_ = slot.index;
    lastKey_ = slot;
  } else if (isNew || !repeater_ || (keyIsDue && !keyMayWait)) {
    isStill_ = !isNew && isQuiet(slot);
    encode(slot, true, keyIsDue);
  } else if (mustPushOut(slot)) {
    encode(slot, false, false);
  }
  fillSlots();
}

void PictureSequencer::finish() {
  placeOpenKey();
  received(coder_.finish());
  fillSlots();
  if (!slots_.empty())
    throw CoderFailure("POSIX", EPROTO); // fewer pictures came out than went in
}

void PictureSequencer::encode(const Slot& slot, bool isRequired, bool asKey) {
  placeOpenKey();
  if (lastCodedSlot_)
    coderTime_ += std::min(slot.index - *lastCodedSlot_, longestCoderStep);
  lastCodedSlot_ = slot.index;
  if (asKey)
    lastKey_ = slot;
  frames_.push_back({slot.index, isRequired, std::nullopt});
  if (isRequired)
    ++requiredFrames_;
  received(coder_.encode(current_, coderTime_, asKey));
}

void PictureSequencer::received(std::vector<CodedPicture> pictures) {
  auto frame = std::find_if(frames_.begin(), frames_.end(), [](const Frame& each) { return !each.coded; });
  for (CodedPicture& picture : pictures) {
    if (frame == frames_.end())
      throw CoderFailure("POSIX", EPROTO); // more pictures came out than went in
    frame->coded = std::move(picture);
    ++frame;
  }
}

// Whether nothing has changed for so long that nothing may be expected to.
bool PictureSequencer::isQuiet(const Slot& slot) const {
  return slot.index - lastChange_ > quietSlotLimit_;
}

// Whether a repetition is to be coded so that the coder lets go of what it holds.
bool PictureSequencer::mustPushOut(const Slot& slot) const {
  return requiredFrames_ > 0 &&
         (isStill_ || isQuiet(slot) || slots_.size() - frames_.size() > freeSlotLimit_);
}

bool PictureSequencer::isDueByCount(const Slot& slot) const {
  return !lastKey_ || slot.index - lastKey_->index >= keyInterval_.pictures;
}

bool PictureSequencer::isDue(const Slot& slot) const {
  return isDueByCount(slot) || slot.time - lastKey_->time >= keyInterval_.time;
}

// One copy at a time, and out before the next one is due. Two keys of one identity may not follow each
// other directly.
bool PictureSequencer::mayRepeatKey() const {
  return repeater_ && isAtCurrentKey_ && !openKey_ && !isBehindKey_ && requiredFrames_ == 0 &&
         static_cast<std::int64_t>(frames_.size()) + 1 < keyInterval_.pictures;
}

// Whether the coder's next picture may fill a later slot than the first open one. For a key to come, one
// slot more stays open, so that it can be placed before the coder's pictures.
bool PictureSequencer::mayPostpone() const {
  return repeater_ && requiredFrames_ == 0 && slots_.size() > frames_.size() + (openKey_ ? 1 : 0);
}

void PictureSequencer::fillSlots() {
  while (!slots_.empty()) {
    const bool isFramesTurn = !frames_.empty() && frames_.front().slot <= slots_.front().index;
    if (isFramesTurn && frames_.front().coded)
      fillFromCoder();
    else if (!isFramesTurn || mayPostpone())
      fillByRepetition();
    else
      return;
  }
}

void PictureSequencer::fillFromCoder() {
  Frame frame = std::move(frames_.front());
  frames_.pop_front();
  if (frame.isRequired)
    --requiredFrames_;
  if (repeater_)
    repeater_->fitIn(*frame.coded);
  // With required pictures behind it, the key is one of an older picture or not the last one.
  isAtCurrentKey_ = frame.coded->isKey && requiredFrames_ == 0;
  output(std::move(*frame.coded));
}

void PictureSequencer::fillByRepetition() {
  const bool asKey = openKey_ == slots_.front().index;
  if (asKey)
    openKey_.reset();
  output(asKey ? repeater_->repeatedKey() : repeater_->repeated());
}

// Puts the key that is to come into the first open slot, as something else follows.
void PictureSequencer::placeOpenKey() {
  if (!openKey_)
    return;
  openKey_.reset();
  lastKey_ = slots_.front();
  output(repeater_->repeatedKey());
}

void PictureSequencer::output(CodedPicture picture) {
  const Slot slot = slots_.front();
  slots_.pop_front();
  isBehindKey_ = picture.isKey;
  output_(std::move(picture), slot.time);
}

} // namespace tessarin::media
