#include "SourceSound.hpp"

#include <spa/param/audio/format-utils.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <sstream>
#include <stdexcept>

namespace tessarin::source {

namespace {

constexpr std::int64_t second = 1'000'000'000;
constexpr double beepFrequency = 1000;
constexpr double beepAmplitude = 0.8;

int sizeOf(SampleFormat format) {
  switch (format) {
  case SampleFormat::u8:
    return 1;
  case SampleFormat::s16:
    return 2;
  case SampleFormat::s32:
  case SampleFormat::f32:
    break;
  }
  return 4;
}

spa_audio_format spaFormat(SampleFormat format) {
  switch (format) {
  case SampleFormat::u8:
    return SPA_AUDIO_FORMAT_U8;
  case SampleFormat::s16:
    return SPA_AUDIO_FORMAT_S16;
  case SampleFormat::s32:
    return SPA_AUDIO_FORMAT_S32;
  case SampleFormat::f32:
    break;
  }
  return SPA_AUDIO_FORMAT_F32;
}

double wave(double frequency, double frame, int rate) {
  return std::sin(2 * std::numbers::pi * frequency * frame / rate);
}

} // namespace

SoundSource::SoundSource(Server& server, const Options& options)
    : server_(server), options_(options), sampleSize_(sizeOf(options.format)), amplitude_(options.amplitude) {
  const bool isMicrophone = options.kind == Kind::microphone;
  auto* properties = pw_properties_new(
      PW_KEY_NODE_NAME, options.name.c_str(), PW_KEY_NODE_DESCRIPTION, options.description.c_str(),
      PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY, "Playback", PW_KEY_NODE_LATENCY, "256/48000",
      PW_KEY_MEDIA_CLASS, isMicrophone ? "Audio/Source" : "Stream/Output/Audio", nullptr);
  if (isMicrophone) {
    // As sound cards have it, so that a microphone rather than the sink's monitor becomes the default.
    pw_properties_set(properties, PW_KEY_PRIORITY_SESSION, "2000");
  }
  stream_ = pw_stream_new(server.core(), options.name.c_str(), properties);
  events_.version = PW_VERSION_STREAM_EVENTS;
  events_.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char*) {
    static_cast<SoundSource*>(self)->setState(state);
  };
  events_.process = [](void* self) { static_cast<SoundSource*>(self)->process(); };
  pw_stream_add_listener(stream_, &listener_, &events_, this);
  beepEvent_ = pw_loop_add_event(
      server.loop(),
      [](void* self, std::uint64_t) {
        say("beeps " + std::to_string(static_cast<SoundSource*>(self)->beepsAt_.load()));
      },
      this);
  connect();
}

SoundSource::~SoundSource() {
  pw_stream_destroy(stream_);
}

void SoundSource::connect() {
  spa_audio_info_raw info{};
  info.format = spaFormat(options_.format);
  info.rate = static_cast<std::uint32_t>(options_.rate);
  info.channels = static_cast<std::uint32_t>(options_.channels);
  info.position[0] = options_.channels == 1 ? SPA_AUDIO_CHANNEL_MONO : SPA_AUDIO_CHANNEL_FL;
  for (std::uint32_t channel = 1; channel < info.channels; ++channel) {
    info.position[channel] = SPA_AUDIO_CHANNEL_FL + channel;
  }
  std::uint8_t memory[1024];
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory, sizeof memory);
  const spa_pod* parameters[] = {spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &info)};
  const auto flags = PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_RT_PROCESS |
                     (options_.kind == Kind::player ? PW_STREAM_FLAG_AUTOCONNECT : PW_STREAM_FLAG_NONE);
  if (pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, static_cast<pw_stream_flags>(flags),
                        parameters, 1) < 0) {
    throw std::runtime_error("the stream does not connect");
  }
}

void SoundSource::setState(pw_stream_state state) {
  if (state == PW_STREAM_STATE_ERROR) {
    server_.quit();
  }
  // A player plays when it is ready; a microphone waits for somebody who listens.
  const auto wanted = options_.kind == Kind::player ? PW_STREAM_STATE_STREAMING : PW_STREAM_STATE_PAUSED;
  if (state == wanted && !isReady_) {
    isReady_ = true;
    say("ready");
  }
}

// What a player hands over now is heard when everything before it has been played. What a microphone hands
// over now was heard until now.
std::int64_t SoundSource::timeOfFirstFrame(const pw_time& time, std::uint32_t frames) const {
  if (options_.kind == Kind::microphone) {
    return time.now - second * frames / options_.rate;
  }
  const auto delay = time.rate.denom == 0 ? 0 : second * time.delay * time.rate.num / time.rate.denom;
  const auto queued =
      static_cast<std::int64_t>(time.queued / static_cast<std::uint64_t>(sampleSize_ * options_.channels));
  return time.now + delay + second * (queued + static_cast<std::int64_t>(time.buffered)) / options_.rate;
}

void SoundSource::process() {
  if (isHolding_) {
    return;
  }
  pw_time time{};
  pw_stream_get_time_n(stream_, &time, sizeof time);
  auto* buffer = pw_stream_dequeue_buffer(stream_);
  if (!buffer) {
    return;
  }
  auto& data = buffer->buffer->datas[0];
  const auto frameSize = static_cast<std::uint32_t>(sampleSize_ * options_.channels);
  auto frames = data.maxsize / frameSize;
  if (buffer->requested > 0) {
    frames = std::min(frames, static_cast<std::uint32_t>(buffer->requested));
  }
  fill(static_cast<std::uint8_t*>(data.data), frames, timeOfFirstFrame(time, frames));
  data.chunk->offset = 0;
  data.chunk->stride = static_cast<std::int32_t>(frameSize);
  data.chunk->size = frames * frameSize;
  pw_stream_queue_buffer(stream_, buffer);
}

void SoundSource::fill(std::uint8_t* data, std::uint32_t frames, std::int64_t firstTime) {
  const double amplitude = amplitude_;
  for (std::uint32_t i = 0; i < frames; ++i, ++framesMade_) {
    const auto time = firstTime + second * i / options_.rate;
    if (const auto asked = beepAt_.load(); asked >= 0 && asked <= time) {
      beepAt_ = -1;
      beepFrame_ = 0;
      beepFramesLeft_ = std::lround(options_.beepLength * options_.rate);
      beepsAt_ = time;
      pw_loop_signal_event(server_.loop(), beepEvent_);
    }
    double value = amplitude * wave(options_.frequency, static_cast<double>(framesMade_), options_.rate);
    if (beepFramesLeft_ > 0) {
      // A quarter of a period in, so that the first sample is as loud as any.
      const double quarter = options_.rate / beepFrequency / 4;
      value = beepAmplitude * wave(beepFrequency, static_cast<double>(beepFrame_++) + quarter, options_.rate);
      --beepFramesLeft_;
    }
    for (int channel = 0; channel < options_.channels; ++channel, data += sampleSize_) {
      put(data, value);
    }
  }
}

void SoundSource::put(std::uint8_t* place, double value) const {
  const auto copy = [place](auto sample) { std::memcpy(place, &sample, sizeof sample); };
  switch (options_.format) {
  case SampleFormat::u8:
    copy(static_cast<std::uint8_t>(std::lround(128 + value * 127)));
    break;
  case SampleFormat::s16:
    copy(static_cast<std::int16_t>(std::lround(value * 32767)));
    break;
  case SampleFormat::s32:
    copy(static_cast<std::int32_t>(std::lround(value * 2147483647)));
    break;
  case SampleFormat::f32:
    copy(static_cast<float>(value));
    break;
  }
}

void SoundSource::carryOut(const std::string& line) {
  std::istringstream words(line);
  std::string command;
  words >> command;
  if (command == "beep") {
    std::int64_t at = 0;
    words >> at;
    beepAt_ = at;
    return;
  }
  if (command == "hold") {
    isHolding_ = true;
  } else if (command == "release") {
    isHolding_ = false;
  } else if (command == "amplitude") {
    double amplitude = 0;
    words >> amplitude;
    amplitude_ = amplitude;
  } else {
    throw std::runtime_error("unknown command " + command);
  }
  say("done");
}

} // namespace tessarin::source
