#include "modules/media/PictureLine.hpp"

#include <algorithm>
#include <utility>

namespace tessarin::media {

PictureLine::PictureLine(std::size_t differentLimit, std::size_t placeLimit)
    : differentLimit_(std::max<std::size_t>(differentLimit, 2)),
      placeLimit_(std::max(placeLimit, differentLimit_)) {}

bool PictureLine::hasRoom() const {
  const std::lock_guard lock(mutex_);
  return places_.size() < placeLimit_;
}

bool PictureLine::push(std::shared_ptr<const I420Picture> picture, std::int64_t time) {
  const std::lock_guard lock(mutex_);
  const bool isNew = places_.empty() || places_.back().picture != picture;
  const bool isFull = isNew && differentPictures() >= differentLimit_;
  if (isFull)
    giveWay();
  places_.push_back({std::move(picture), time});
  return isFull;
}

std::optional<PictureLine::Place> PictureLine::pop(bool& freedRoom) {
  const std::lock_guard lock(mutex_);
  freedRoom = places_.size() >= placeLimit_;
  if (places_.empty())
    return std::nullopt;
  Place place = std::move(places_.front());
  places_.pop_front();
  return place;
}

std::size_t PictureLine::differentPictures() const {
  std::size_t count = 0;
  for (std::size_t i = 0; i < places_.size(); ++i)
    if (i == 0 || places_[i].picture != places_[i - 1].picture)
      ++count;
  return count;
}

// The newest picture's places show the one before it. There are two different pictures at least.
void PictureLine::giveWay() {
  const auto newest = places_.back().picture;
  const auto isNewest = [&](const Place& place) { return place.picture == newest; };
  const auto before = std::find_if_not(places_.rbegin(), places_.rend(), isNewest);
  for (auto place = places_.rbegin(); place != before; ++place)
    place->picture = before->picture;
}

} // namespace tessarin::media
