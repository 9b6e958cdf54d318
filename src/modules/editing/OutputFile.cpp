#include "modules/editing/OutputFile.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace tessarin::editing {

namespace {

constexpr std::int32_t soundRate = 48000;
constexpr auto packetFrames = static_cast<std::int64_t>(media::framesPerPacket);
// Stretches of a track that lie side by side in the file.
constexpr double chunkSeconds = 0.5;

} // namespace

OutputFile::OutputFile(OpenFile& file, const FrameSchedule& schedule, PixelSize size,
                       std::optional<container::SampleDescription> sound)
    : file_(file), schedule_(schedule), size_(size), sound_(std::move(sound)) {
  constexpr std::int32_t usual = 90000;
  const MediaTime frame = schedule.outputTime(1);
  timescale_ = usual % frame.timescale() == 0 ? usual : frame.timescale();
  if (timescale_ < 1000)
    timescale_ *= 1000; // so that an end between two frames can be told
  frameDuration_ = frame.convertedTo(timescale_).value();
}

// A little more than the tables take: offsets and sizes of pictures, keys, sizes of packets, and the
// stretches.
std::uint64_t OutputFile::expectedIndexBytes() const {
  const auto frames = static_cast<std::uint64_t>(schedule_.count());
  const auto ms = static_cast<std::uint64_t>(schedule_.durationMs());
  const std::uint64_t stretches = 2 * (ms / 400 + 4);
  const std::uint64_t packets =
      sound_ ? ms * soundRate / 1000 / static_cast<std::uint64_t>(packetFrames) + 3 : 0;
  return 2048 + frames * 13 + packets * 4 + stretches * 20;
}

void OutputFile::begin(std::int64_t delay, const container::SampleDescription& description) {
  delay_ = delay;
  std::vector<container::IndexedTrack> tracks;
  container::IndexedTrack pictures;
  pictures.timescale = timescale_;
  pictures.width = size_.width;
  pictures.height = size_.height;
  pictures.descriptions = {description};
  pictures.presentationStart = delay * frameDuration_;
  tracks.push_back(std::move(pictures));
  if (sound_) {
    container::IndexedTrack sound;
    sound.kind = container::TrackKind::audio;
    sound.timescale = soundRate;
    sound.descriptions = {*sound_};
    sound.presentationStart = media::primingFrames;
    tracks.push_back(std::move(sound));
  }
  writer_.emplace(file_, std::move(tracks), expectedIndexBytes());
}

void OutputFile::append(const CodedFrame& frame, const container::SampleDescription& description) {
  if (!writer_)
    begin(-frame.decodeTime, description);
  const std::int64_t offset = (frame.presentationTime + delay_) * frameDuration_ - decodeTime_;
  // The one that is shown last lasts to the end of the output, which need not lie on the grid.
  const bool isLast = frame.presentationTime + 1 == schedule_.count();
  const std::int64_t end = MediaTime::milliseconds(schedule_.durationMs()).convertedTo(timescale_).value();
  const std::int64_t duration =
      isLast ? std::max<std::int64_t>(end - frame.presentationTime * frameDuration_, 1) : frameDuration_;
  writer_->append(0, frame.data, static_cast<std::uint32_t>(duration), static_cast<std::int32_t>(offset),
                  frame.isKey);
  decodeTime_ += duration;
}

bool OutputFile::wantsSound() const {
  if (!sound_ || !writer_)
    return false;
  const double pictures = static_cast<double>(decodeTime_) / timescale_;
  const double sound = static_cast<double>(packets_ * packetFrames) / soundRate;
  return pictures >= sound + chunkSeconds;
}

void OutputFile::append(const media::CodedSound& sound) {
  std::span<const std::byte> rest = sound.data;
  for (const std::uint32_t size : sound.sizes) {
    writer_->append(1, rest.first(size), static_cast<std::uint32_t>(packetFrames), 0, true);
    rest = rest.subspan(size);
    ++packets_;
  }
}

void OutputFile::finish() {
  const MediaTime end = MediaTime::milliseconds(schedule_.durationMs());
  const std::array<std::int64_t, 2> durations{end.convertedTo(timescale_).value(),
                                              end.convertedTo(soundRate).value()};
  writer_->finish(std::span(durations).first(sound_ ? 2 : 1));
}

} // namespace tessarin::editing
