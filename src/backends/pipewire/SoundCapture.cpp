#include "backends/pipewire/SoundCapture.hpp"

#include <algorithm>
#include <cstdlib>
#include <thread>

namespace tessarin::pipewire {

namespace {

// Two seconds of sound, and as much in buffers of the smallest usual size: so long may the loop's thread be
// kept from running before anything is lost.
constexpr std::size_t ringFrames = std::size_t{soundRate} * 2;
constexpr std::size_t ringBuffers = 2048;
// A greater delay than this is none that a sound device has.
constexpr std::int64_t greatestDelay = 1'000'000'000;

std::int64_t nanoseconds(double count, const spa_fraction& rate) {
  return rate.denom == 0 ? 0 : static_cast<std::int64_t>(count * 1e9 * rate.num / rate.denom);
}

} // namespace

SoundCapture::SoundCapture() : ring_(ringFrames, ringBuffers, soundChannels) {}

void SoundCapture::setPosition(const spa_io_position* position) noexcept {
  position_ = position;
  while (isReading_) {
    std::this_thread::yield(); // some nanoseconds
  }
}

void SoundCapture::takeBuffers(pw_stream* stream) noexcept {
  while (auto* buffer = pw_stream_dequeue_buffer(stream)) {
    const auto& data = buffer->buffer->datas[0];
    if (data.data && data.chunk) {
      take(stream, data);
    }
    pw_stream_queue_buffer(stream, buffer);
  }
}

void SoundCapture::take(pw_stream* stream, const spa_data& data) noexcept {
  const auto offset = std::min(data.chunk->offset, data.maxsize);
  const auto size = std::min(data.chunk->size, data.maxsize - offset);
  pw_time time{};
  BufferRecord record;
  record.frameCount = size / (soundChannels * sizeof(float));
  if (record.frameCount == 0 || pw_stream_get_time_n(stream, &time, sizeof time) < 0) {
    return;
  }
  record.time = time.now;
  record.ticks = nanoseconds(static_cast<double>(time.ticks), time.rate);
  record.pathDelay =
      std::clamp(nanoseconds(static_cast<double>(time.delay), time.rate), std::int64_t{0}, greatestDelay);
  readClock(record);
  // What finds no room is lost, and will be missed when the next buffer comes.
  ring_.push(static_cast<const float*>(data.data) + offset / sizeof(float), record);
}

void SoundCapture::readClock(BufferRecord& record) noexcept {
  isReading_ = true;
  if (const auto* position = position_.load()) {
    const auto& clock = position->clock;
    record.driverID = clock.id;
    // Told with the sign of its direction, by most.
    record.driverDelay =
        std::min(std::abs(nanoseconds(static_cast<double>(clock.delay), clock.rate)), greatestDelay);
  }
  isReading_ = false;
}

} // namespace tessarin::pipewire
