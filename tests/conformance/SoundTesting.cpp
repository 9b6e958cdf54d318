#include "SoundTesting.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <stdexcept>

namespace tessarin {

namespace {

constexpr std::int64_t rate = 48000;
constexpr std::int64_t bufferFrames = 256;
constexpr std::int32_t pictureRate = 10;

void require(bool condition, const char* what) {
  if (!condition)
    throw std::runtime_error(what);
}

} // namespace

SoundSource tone(double hertz, float amplitude) {
  return [=](std::int64_t frame) {
    const double angle = 2 * std::numbers::pi * hertz * static_cast<double>(frame) / rate;
    return amplitude * static_cast<float>(std::sin(angle));
  };
}

SoundSource clicks(std::vector<std::int64_t> frames) {
  return [frames = std::move(frames)](std::int64_t frame) {
    constexpr std::int64_t reach = 24;
    for (const std::int64_t peak : frames)
      if (std::abs(frame - peak) < reach)
        return 0.4F + 0.4F * std::cos(std::numbers::pi_v<float> * static_cast<float>(frame - peak) / reach);
    return 0.0F;
  };
}

AudioSample soundOf(const SoundSource& source, std::int64_t firstFrame, std::size_t frames, MediaTime told) {
  auto sound = std::make_shared<std::vector<float>>();
  for (std::size_t i = 0; i < frames; ++i)
    sound->insert(sound->end(), 2, source(firstFrame + static_cast<std::int64_t>(i)));
  const auto bytes = std::as_bytes(std::span(*sound));
  return {{bytes, PcmFormat::float32, 2, frames}, rate, told, sound};
}

bool appendPatiently(MediaFileWriter& writer, AudioInput& input, const AudioSample& sample) {
  return waitUntilReady(writer, input) && input.append(sample);
}

std::vector<float> decoded(const std::string& path, std::size_t audioTrack, Decoding decoding) {
  const std::string filter = decoding == Decoding::byTime ? " -af aresample=async=1:min_hard_comp=0.001" : "";
  const std::string bytes =
      outputOf("ffmpeg -nostdin -v error -xerror -i '" + path + "' -map 0:a:" + std::to_string(audioTrack) +
               filter + " -ac 2 -f f32le -");
  std::vector<float> sound(bytes.size() / 8);
  for (std::size_t i = 0; i < sound.size(); ++i)
    std::memcpy(&sound[i], bytes.data() + i * 8, 4);
  return sound;
}

std::vector<std::int64_t> peaks(const std::vector<float>& sound) {
  std::vector<std::int64_t> found;
  for (std::size_t i = 0; i < sound.size(); ++i) {
    if (sound[i] < 0.4F)
      continue;
    const auto begin = sound.begin() + static_cast<std::ptrdiff_t>(i);
    const auto end = sound.begin() + static_cast<std::ptrdiff_t>(std::min(i + 96, sound.size()));
    const auto peak = std::max_element(begin, end);
    found.push_back(peak - sound.begin());
    i += 96;
  }
  return found;
}

float loudest(const std::vector<float>& sound, std::int64_t from, std::int64_t to) {
  float most = 0;
  for (std::int64_t i = std::max<std::int64_t>(from, 0); i < std::min(to, std::ssize(sound)); ++i)
    most = std::max(most, std::abs(sound[static_cast<std::size_t>(i)]));
  return most;
}

SegmentRecording::SegmentRecording(MediaModuleRig& rig, const std::string& name, std::size_t lanes,
                                   std::size_t videoTracks)
    : writer_(rig.makeWriter(name)) {
  for (std::size_t i = 0; i < videoTracks; ++i) {
    videos_.push_back(writer_->addVideoInput(smallVideo()));
    require(videos_.back() != nullptr, "no track of video");
  }
  for (std::size_t i = 0; i < lanes; ++i) {
    // Held to half a second, so that what is appended is coded soon.
    lanes_.push_back(writer_->addAudioInput({.expectsMediaDataInRealTime = false}));
    require(lanes_.back() != nullptr, "no track of sound");
  }
  require(writer_->startWriting(), "no file");
  writer_->startSession(MediaTime::zero());
  for (VideoInput* video : videos_)
    pictures_.push_back(video->render(Painting(128, 96).view()));
}

bool SegmentRecording::appendPicture() {
  bool appended = true;
  for (std::size_t i = 0; i < videos_.size(); ++i)
    appended =
        appended && appendPatiently(*writer_, *videos_[i], pictures_[i], MediaTime(appended_, pictureRate));
  ++appended_;
  return appended;
}

bool SegmentRecording::appendSound(std::size_t lane, const SoundSource& source, std::int64_t from,
                                   std::int64_t to) {
  for (; from < to; from += bufferFrames) {
    const auto frames = static_cast<std::size_t>(std::min(bufferFrames, to - from));
    if (!appendPatiently(*writer_, *lanes_.at(lane), soundOf(source, from, frames, MediaTime(from, rate))))
      return false;
  }
  return true;
}

void SegmentRecording::finish() {
  for (VideoInput* video : videos_)
    video->markAsFinished();
  for (AudioInput* each : lanes_)
    each->markAsFinished();
  tessarin::finish(*writer_);
  require(writer_->status() == MediaWriterStatus::completed, "the file could not be finished");
}

void recordSegment(MediaModuleRig& rig, const std::string& name, int pictures,
                   const std::vector<SoundSource>& lanes, std::size_t videoTracks) {
  SegmentRecording recording(rig, name, lanes.size(), videoTracks);
  constexpr std::int64_t framesPerPicture = rate / pictureRate;
  for (std::int64_t i = 0; i < pictures; ++i) {
    bool isGood = recording.appendPicture();
    for (std::size_t lane = 0; lane < lanes.size(); ++lane)
      isGood = isGood &&
               recording.appendSound(lane, lanes[lane], i * framesPerPicture, (i + 1) * framesPerPicture);
    require(isGood, "the writer has failed");
  }
  recording.finish();
}

} // namespace tessarin
