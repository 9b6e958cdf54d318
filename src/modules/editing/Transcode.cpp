#include "modules/editing/Transcode.hpp"

#include <algorithm>
#include <exception>
#include <thread>
#include <utility>

namespace tessarin::editing {

namespace {

// Frames between the decoder and the coder beyond those that are being made, enough to even out pictures that
// take longer than others.
constexpr std::size_t waitingFrames = 2;
// Stretches of coded sound, a tenth of a second each.
constexpr std::size_t waitingSound = 32;

FrameRecipe recipeOf(const MovieExport& movie, const container::Track& track) {
  FrameRecipe recipe;
  if (!movie.composited) {
    recipe.shape = uprightShape(track);
    return recipe;
  }
  const CompositedVideo& composited = *movie.composited;
  constexpr std::int32_t most = 16384;
  const auto fits = [](std::int32_t side) { return side >= 2 && side <= most && side % 2 == 0; };
  if (composited.compositor == nullptr || !fits(composited.width) || !fits(composited.height))
    throw MovieEditingFailure(MovieEditingError::notComposable);
  recipe.compositor = composited.compositor;
  recipe.shape.size = {composited.width, composited.height};
  return recipe;
}

} // namespace

std::shared_ptr<SourcePicture> Transcode::Pictures::at(std::optional<std::size_t> wanted) {
  if (wanted != place || !picture) {
    place = wanted;
    picture = wanted ? std::make_shared<SourcePicture>(reader.picture(*wanted), natural) : nullptr;
  }
  return picture;
}

Transcode::Transcode(FileSystem& files, const MovieExport& movie, unsigned frameMakers)
    : movie_(movie), frameMakers_(std::max(frameMakers, 1U)),
      schedule_(movie.composition.segments, movie.frameDuration),
      source_(files, movie.composition.sourcePath), recipe_(recipeOf(movie, source_.file.video())),
      toBeMade_(workflow_, waitingFrames), inOrder_(workflow_, waitingFrames + frameMakers_),
      soundLine_(workflow_, waitingSound) {
  if (movie.composited && movie.composited->cameraPath)
    camera_ = std::make_unique<Pictures>(files, *movie.composited->cameraPath);
  if (!movie.composition.audioLanes.empty())
    sound_ = std::make_unique<SoundMix>(source_.file, movie.composition, schedule_.durationMs());
}

// A thread's task whose failure is that of the work.
template<class Task> auto Transcode::guarded(Task task) {
  return [this, task] {
    try {
      task();
    } catch (...) {
      workflow_.fail(std::current_exception());
    }
  };
}

void Transcode::run(OpenFile& output, const std::function<void(int permille)>& progress,
                    std::stop_token stop) {
  const std::stop_callback onStop(std::move(stop), [&] {
    workflow_.fail(std::make_exception_ptr(MovieEditingFailure(MovieEditingError::cancelled)));
  });
  {
    std::vector<std::jthread> threads;
    // Also when not all of the threads can be started: those that are there end before they are joined.
    guarded([&] {
      threads.reserve(frameMakers_ + 2);
      threads.emplace_back(guarded([&] { decode(); }));
      for (unsigned i = 0; i < frameMakers_; ++i)
        threads.emplace_back(guarded([&] { makeFrames(); }));
      if (sound_)
        threads.emplace_back(guarded([&] { makeSound(); }));
      code(output, progress);
    })();
  }
  workflow_.rethrow();
}

void Transcode::decode() {
  Work last;
  for (std::int64_t frame = 0; frame < schedule_.count(); ++frame) {
    const std::int32_t timescale = source_.reader.track().timescale;
    auto source = source_.at(source_.reader.nearestPicture(schedule_.sourceTime(frame, timescale)));
    // Nothing is painted, so that the same picture gives the same frame.
    if (recipe_.compositor == nullptr && last && last->source == source) {
      if (!inOrder_.push(last))
        return;
      continue;
    }
    auto work = std::make_shared<FrameWork>();
    work->outputTime = schedule_.outputTime(frame);
    work->source = std::move(source);
    if (camera_) {
      const std::int32_t cameraScale = camera_->reader.track().timescale;
      work->camera = camera_->at(camera_->reader.pictureAt(schedule_.sourceTime(frame, cameraScale)));
    }
    if (!toBeMade_.push(work) || !inOrder_.push(work))
      return;
    last = std::move(work);
  }
  toBeMade_.close();
  inOrder_.close();
}

void Transcode::makeFrames() {
  while (const auto work = toBeMade_.pop()) {
    SharedFrame frame = makeFrame(recipe_, **work, memory_);
    if (recipe_.compositor != nullptr) {
      // Nobody needs its sources any more while it waits for the coder.
      (*work)->source.reset();
      (*work)->camera.reset();
    }
    workflow_.when([] { return true; }, [&] { (*work)->result = std::move(frame); });
  }
}

void Transcode::makeSound() {
  for (;;) {
    media::CodedSound sound = sound_->next();
    if (sound.sizes.empty())
      break;
    if (!soundLine_.push(std::move(sound)))
      return;
  }
  soundLine_.close();
}

// Null once the work has failed.
SharedFrame Transcode::finished(const Work& work) {
  SharedFrame frame;
  workflow_.when([&] { return work->result != nullptr; }, [&] { frame = work->result; });
  return frame;
}

void Transcode::write(OutputFile& file, const std::vector<CodedFrame>& frames, const PictureCoder& coder) {
  for (const CodedFrame& frame : frames) {
    file.append(frame, coder.description());
    while (file.wantsSound()) {
      const auto sound = soundLine_.pop();
      if (!sound)
        break;
      file.append(*sound);
    }
  }
}

void Transcode::code(OpenFile& output, const std::function<void(int permille)>& progress) {
  OutputFile file(output, schedule_, recipe_.shape.size,
                  sound_ ? std::optional(sound_->description()) : std::nullopt);
  PictureCoder coder(movie_.codec, recipe_.shape.size, movie_.frameDuration);
  constexpr int whole = 1000;
  int told = 0;
  progress(told);
  std::int64_t coded = 0;
  while (const auto work = inOrder_.pop()) {
    const SharedFrame frame = finished(*work);
    if (!frame)
      return;
    write(file, coder.encode(frame), coder);
    // The rest is told when the file is whole.
    const auto done = static_cast<int>(++coded * (whole - 1) / schedule_.count());
    if (done > told)
      progress(told = done);
  }
  if (coded != schedule_.count())
    return;
  write(file, coder.finish(), coder);
  if (sound_) {
    while (const auto sound = soundLine_.pop())
      file.append(*sound);
  }
  if (workflow_.hasFailed())
    return;
  file.finish();
  if (!workflow_.hasFailed())
    progress(whole);
}

} // namespace tessarin::editing
