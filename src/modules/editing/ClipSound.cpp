#include "modules/editing/ClipSound.hpp"

#include <algorithm>

namespace tessarin::editing {

namespace {

constexpr std::int64_t framesPerMs = 48;
constexpr std::int64_t channels = 2;

std::int64_t framesIn(std::span<const float> sound) {
  return static_cast<std::int64_t>(sound.size()) / channels;
}

std::span<float> part(std::span<float> sound, std::int64_t from, std::int64_t count) {
  return sound.subspan(static_cast<std::size_t>(from * channels), static_cast<std::size_t>(count * channels));
}

} // namespace

ClipSound::ClipSound(const SourceFile& file, const container::Track& track, const std::vector<CutClip>& clips)
    : clips_(clips), frames_(clips.back().outputEnd() * framesPerMs), reader_(file, track) {}

void ClipSound::read(std::int64_t frame, std::span<float> into) {
  const std::int64_t count = framesIn(into);
  const std::int64_t ahead = std::clamp<std::int64_t>(-frame, 0, count);
  const std::int64_t beyond = std::clamp<std::int64_t>(frame + count - frames_, 0, count - ahead);
  const std::int64_t inside = count - ahead - beyond;
  if (ahead > 0)
    readBackwards(-frame, part(into, 0, ahead));
  if (inside > 0)
    readInside(frame + ahead, part(into, ahead, inside));
  // Frame x behind the end is the one as far before it: the last one is frames_ - 1 - (x - frames_).
  if (beyond > 0)
    readBackwards(2 * frames_ - (frame + ahead + inside), part(into, ahead + inside, beyond));
}

// The frames before `end`, the last one first; silent where there are none.
void ClipSound::readBackwards(std::int64_t end, std::span<float> into) {
  std::fill(into.begin(), into.end(), 0.0F);
  const std::int64_t first = std::max<std::int64_t>(end - framesIn(into), 0);
  const std::int64_t count = std::min(end, frames_) - first;
  if (count <= 0)
    return;
  std::vector<float> forwards(static_cast<std::size_t>(count * channels));
  readInside(first, forwards);
  for (std::int64_t i = 0; i < count; ++i) {
    const std::int64_t at = end - 1 - (first + i);
    const auto from = part(forwards, i, 1);
    std::copy(from.begin(), from.end(), part(into, at, 1).begin());
  }
}

void ClipSound::readInside(std::int64_t frame, std::span<float> into) {
  auto clip =
      std::upper_bound(clips_.begin(), clips_.end(), frame, [](std::int64_t wanted, const CutClip& each) {
        return wanted < each.outputEnd() * framesPerMs;
      });
  for (std::int64_t left = framesIn(into); left > 0; ++clip) {
    const std::int64_t count = std::min(left, clip->outputEnd() * framesPerMs - frame);
    const std::int64_t source = frame + (clip->sourceStart - clip->outputStart) * framesPerMs;
    if (next_ != source)
      reader_.seek(source);
    reader_.read(part(into, framesIn(into) - left, count));
    next_ = source + count;
    frame += count;
    left -= count;
  }
}

} // namespace tessarin::editing
