#pragma once

#include "modules/media/PicturePool.hpp"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

namespace tessarin::media {

// The pictures that wait for a coder, between the thread that appends them and the one that codes them.
//
// A coder that is slower than the screen must not stretch time: a recording that falls behind shows what has
// long passed, and ends short. So what gives way is content. When more different pictures wait than may, the
// newest of those that wait shows the one before it again, which a coder of repeated pictures does for next
// to nothing; its place in time stays. Pictures come further apart then, each still at its own time.
class PictureLine {
 public:
  struct Place {
    std::shared_ptr<const I420Picture> picture;
    std::int64_t time = 0;
  };

  // How many different pictures may wait (at least 2), and how many places there are in all (no fewer).
  PictureLine(std::size_t differentLimit, std::size_t placeLimit);

  // Any thread. Only push() takes room away.
  bool hasRoom() const;
  // There is room. True when a picture that waited gave way.
  bool push(std::shared_ptr<const I420Picture> picture, std::int64_t time);
  // The first place; nothing when nobody waits. `freedRoom` tells whether there was no room before.
  std::optional<Place> pop(bool& freedRoom);

 private:
  // With the mutex held.
  std::size_t differentPictures() const;
  void giveWay();

  const std::size_t differentLimit_;
  const std::size_t placeLimit_;
  mutable std::mutex mutex_;
  std::deque<Place> places_; // guarded by the mutex
};

} // namespace tessarin::media
