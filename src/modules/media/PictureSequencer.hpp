#pragma once

#include "modules/media/NalUnits.hpp"
#include "modules/media/PicturePool.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace tessarin::media {

// One coded picture, as a sample of a file.
struct CodedPicture {
  Bytes sample;
  bool isKey = false;
};

// A coder of pictures without reordering: one coded picture for each picture handed in, in the same order,
// some pictures later.
class PictureCoder {
 public:
  virtual ~PictureCoder() = default;

  // `time` counts intervals of the expected frame rate; it strictly increases and guides the rate control.
  // Yields what has become ready. Throws CoderFailure.
  virtual std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>& picture,
                                           std::int64_t time, bool asKey) = 0;
  // Yields all that is left; nothing may be handed in any more. Throws CoderFailure.
  virtual std::vector<CodedPicture> finish() = 0;
  // How many pictures it holds back at most.
  virtual std::int64_t delay() const = 0;
};

// Makes coded pictures out of nothing: ones that show again what the coded picture before them showed.
class PictureRepeater {
 public:
  virtual ~PictureRepeater() = default;

  // Sees every picture of the coder in the order of the file and fits it in behind repeated ones. Throws
  // CoderFailure.
  virtual void fitIn(CodedPicture& picture) = 0;
  virtual CodedPicture repeated() = 0;
  // The last key picture of the coder once more. Only when it was the last picture fitted in.
  virtual CodedPicture repeatedKey() = 0;
};

// How far apart key pictures may be: at most so many pictures, and so much time unless there is no picture.
struct KeyInterval {
  std::int64_t pictures = 1;
  std::int64_t time = 0;
};

// Puts pictures through a coder and gives every one its place in time.
//
// A picture that is appended again is not coded again. Each appended picture opens a slot; the coder's
// output fills the slots of new pictures, repeated pictures fill the others. Three things make that more
// than a filter. A coder holds pictures back, so a change that nothing follows has to be pushed out by
// coding some repetitions after all; not before half a key interval has passed, because on a machine that is
// too slow changes come far apart, and repetitions coded between them would make it slower still. What the
// coder still holds of those comes out only when it goes on, so as many slots at the end are kept open for
// it. And once it has coded a still picture as a key, later keys of the same picture are copies of that. A
// copy goes to the slot where it is due; when the picture changes while that is among the slots kept open, it
// goes to the first one of them.
//
// Confined to one thread. Failures are those of the coder.
class PictureSequencer {
 public:
  // A coded picture with the time given for it, in the order of the times.
  using Output = std::function<void(CodedPicture picture, std::int64_t time)>;

  // The repeater may be null: then every picture is coded.
  PictureSequencer(PictureCoder& coder, std::unique_ptr<PictureRepeater> repeater, KeyInterval keyInterval,
                   Output output);

  // Times strictly increase. A picture is a repetition when it is the same object as the one before.
  void append(std::shared_ptr<const I420Picture> picture, std::int64_t time);
  // Codes and outputs what is left.
  void finish();
  // Whether a repetition costs next to nothing.
  bool repeats() const { return repeater_ != nullptr; }

 private:
  struct Slot {
    std::int64_t index = 0;
    std::int64_t time = 0;
  };
  // A picture that went to the coder and has no slot filled yet.
  struct Frame {
    std::int64_t slot = 0;   // the earliest one that it may fill
    bool isRequired = false; // a new picture or a key; else a repetition that may come any later
    std::optional<CodedPicture> coded;
  };

  void encode(const Slot& slot, bool isRequired, bool asKey);
  void received(std::vector<CodedPicture> pictures);
  bool isQuiet(const Slot& slot) const;
  bool mustPushOut(const Slot& slot) const;
  bool isDueByCount(const Slot& slot) const;
  bool isDue(const Slot& slot) const;
  bool mayRepeatKey() const;
  bool mayPostpone() const;
  void fillSlots();
  void fillFromCoder();
  void fillByRepetition();
  void placeOpenKey();
  void output(CodedPicture picture);

  PictureCoder& coder_;
  std::unique_ptr<PictureRepeater> repeater_;
  const KeyInterval keyInterval_;
  // Repetitions are coded to push a change out once nothing has followed it for so many slots, or so many are
  // open beyond those for what the coder holds.
  const std::int64_t quietSlotLimit_;
  const std::size_t freeSlotLimit_;
  Output output_;

  std::shared_ptr<const I420Picture> current_;
  std::deque<Slot> slots_; // open ones
  std::deque<Frame> frames_;
  std::size_t requiredFrames_ = 0; // of frames_
  std::int64_t nextSlot_ = 0;
  std::int64_t lastChange_ = 0;         // the slot of the last new picture
  std::optional<Slot> lastKey_;         // where the last key is or will be
  std::optional<std::int64_t> openKey_; // the open slot that a copy of the key is to fill
  std::optional<std::int64_t> lastCodedSlot_;
  std::int64_t coderTime_ = 0;
  bool isStill_ = false;        // a key was coded of a repetition, to be copied soon: nothing is put off
  bool isAtCurrentKey_ = false; // the coder's last output is a key that shows the current picture
  bool isBehindKey_ = false;    // the last picture put out was a key
};

} // namespace tessarin::media
