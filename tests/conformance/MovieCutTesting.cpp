#include "MovieCutTesting.hpp"

#include "backends/posix/ModuleMediaFileWriterFactory.hpp"

#include <algorithm>
#include <cmath>
#include <set>
#include <stdexcept>

namespace tessarin {

namespace {

void number(Painting& painting, int value) {
  const auto shade = static_cast<std::uint8_t>(60 + value * 7 % 120);
  painting.fill({shade, 120, 200});
  for (int block = 0; block < frameCounter::columns * frameCounter::rows; ++block) {
    const std::uint8_t light = frameCounter::isWhite(static_cast<std::uint32_t>(value), block) ? 255 : 0;
    painting.fill(block % frameCounter::columns * frameCounter::blockSize,
                  block / frameCounter::columns * frameCounter::blockSize, frameCounter::blockSize,
                  frameCounter::blockSize, {light, light, light});
  }
}

void require(bool condition, const char* what) {
  if (!condition)
    throw std::runtime_error(what);
}

MediaTime timeOf(const Recorded& wanted, int picture) {
  return wanted.milliseconds.empty()
             ? MediaTime(picture, wanted.rate)
             : MediaTime::milliseconds(wanted.milliseconds.at(static_cast<std::size_t>(picture)));
}

std::vector<std::vector<std::byte>> samplesOf(const std::string& path) {
  const auto file = machineFileSystem().open(path, OpenMode::read);
  const container::Movie movie = container::readMovie(*file);
  std::vector<std::vector<std::byte>> samples;
  for (const container::Sample& sample : movie.tracksOf(container::TrackKind::video).front()->samples) {
    std::vector<std::byte> bytes(sample.size);
    require(file->read(sample.offset, bytes) == bytes.size(), "a sample is cut off");
    samples.push_back(std::move(bytes));
  }
  return samples;
}

} // namespace

std::string record(MovieRig& rig, const std::string& name, const Recorded& wanted) {
  ModuleMediaFileWriterFactory factory(rig.loader, rig.files);
  const auto writer = factory.makeWriter({rig.path(name), {600, 600}, {6000, 600}});
  VideoInput* const video = writer->addVideoInput({.codec = wanted.codec,
                                                   .width = paintedWidth,
                                                   .height = paintedHeight,
                                                   .averageBitRate = 2'000'000,
                                                   .expectedFrameRate = wanted.rate,
                                                   .maximumKeyFrameInterval = wanted.rate,
                                                   .expectsMediaDataInRealTime = false});
  require(video != nullptr, "no track of video");
  std::vector<AudioInput*> lanes;
  for (std::size_t i = 0; i < wanted.lanes.size(); ++i) {
    lanes.push_back(writer->addAudioInput({.expectsMediaDataInRealTime = false}));
    require(lanes.back() != nullptr, "no track of sound");
  }
  require(writer->startWriting(), "no file");
  writer->startSession(MediaTime::zero());
  Painting painting(paintedWidth, paintedHeight);
  std::int64_t frame = 0;
  for (int i = 0; i < wanted.pictures; ++i) {
    number(painting, i);
    require(appendPatiently(*writer, *video, video->render(painting.view()), timeOf(wanted, i)),
            "no picture");
    std::int64_t until = (timeOf(wanted, i) + MediaTime(1, wanted.rate)).convertedTo(48000).value();
    if (wanted.soundFrames >= 0)
      until = std::min(until, wanted.soundFrames);
    for (; frame < until; frame += 480) {
      for (std::size_t lane = 0; lane < lanes.size(); ++lane)
        require(appendPatiently(*writer, *lanes[lane],
                                soundOf(wanted.lanes[lane], frame, 480, MediaTime(frame, 48000))),
                "no sound");
    }
  }
  if (!wanted.isFinished)
    return rig.path(name); // the writer lets go of it as it is
  video->markAsFinished();
  for (AudioInput* lane : lanes)
    lane->markAsFinished();
  finish(*writer);
  require(writer->status() == MediaWriterStatus::completed, "the file could not be finished");
  return rig.path(name);
}

container::Movie indexOf(const std::string& path) {
  return container::readMovie(*machineFileSystem().open(path, OpenMode::read));
}

std::vector<Shown> shownIn(const std::string& path, std::int32_t width, std::int32_t height) {
  const container::Movie movie = indexOf(path);
  const container::Track& track = *movie.tracksOf(container::TrackKind::video).front();
  std::vector<double> times;
  for (const container::Sample& sample : track.samples)
    times.push_back(
        1000.0 * static_cast<double>(sample.decodeTime + sample.compositionOffset - track.presentationStart) /
        track.timescale);
  std::sort(times.begin(), times.end());
  const std::vector<std::int64_t> numbers = numbersIn(path, width, height);
  require(numbers.size() == times.size(), "another program shows another number of pictures");
  std::vector<Shown> shown;
  for (std::size_t i = 0; i < numbers.size(); ++i)
    shown.emplace_back(std::llround(times[i] * 1000), numbers[i]);
  return shown;
}

std::vector<double> evenly(int pictures, double rate) {
  std::vector<double> starts;
  for (int i = 0; i < pictures; ++i)
    starts.push_back(1000 * i / rate);
  return starts;
}

std::vector<Shown> expectedOf(const std::vector<Cut>& all, const std::vector<double>& starts) {
  constexpr double exact = 1e-6;
  std::vector<Shown> shown;
  std::vector<Cut> cuts;
  for (const Cut& cut : all) {
    // Where one goes on with the other nothing is cut.
    if (!cuts.empty() && cuts.back().end == cut.start)
      cuts.back().end = cut.end;
    else
      cuts.push_back(cut);
  }
  std::int64_t cursor = 0;
  for (const Cut& cut : cuts) {
    for (std::size_t i = 0; i < starts.size(); ++i) {
      const bool isLast = i + 1 == starts.size();
      const auto cutStart = static_cast<double>(cut.start);
      if (starts[i] >= static_cast<double>(cut.end) - exact || (!isLast && starts[i + 1] <= cutStart + exact))
        continue;
      const double at = static_cast<double>(cursor) + std::max(starts[i] - cutStart, 0.0);
      shown.emplace_back(std::llround(at * 1000), i);
    }
    cursor += cut.end - cut.start;
  }
  return shown;
}

MovieExport cutOf(MovieRig& rig, const std::string& source, const std::vector<Cut>& cuts, std::size_t lanes) {
  MovieExport movie;
  movie.composition = compositionOf(source, cuts);
  for (std::size_t i = 0; i < lanes; ++i)
    movie.composition.audioLanes.push_back({i, std::vector<float>(cuts.size(), 1.0F)});
  movie.isPassthrough = true;
  movie.frameDuration = MediaTime(1, 30);
  movie.outputPath = rig.path("cut.mp4");
  machineFileSystem().info(movie.outputPath) ? machineFileSystem().remove(movie.outputPath) : void();
  return movie;
}

std::size_t copiedPictures(const std::string& path, const std::string& source) {
  const auto all = samplesOf(source);
  const std::set<std::vector<std::byte>> known(all.begin(), all.end());
  const auto found = samplesOf(path);
  return static_cast<std::size_t>(
      std::count_if(found.begin(), found.end(), [&](const auto& sample) { return known.contains(sample); }));
}

} // namespace tessarin
