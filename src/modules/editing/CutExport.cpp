#include "modules/editing/CutExport.hpp"

#include <algorithm>

namespace tessarin::editing {

namespace {

// What a picture coded anew takes as long as, in bytes copied: some ten milliseconds at 1920 by 1080.
constexpr double bytesPerCodedPixel = 5;

// How much of the whole is done, told whenever that has changed.
class Advance {
 public:
  Advance(const std::function<void(int permille)>& progress, double all) : progress_(progress), all_(all) {}

  // Up to the end, which is told by itself.
  void reach(double done) {
    constexpr int whole = 1000;
    const auto permille = static_cast<int>(std::min(done / all_, 1.0) * (whole - 1));
    if (permille > told_)
      progress_(told_ = permille);
  }

 private:
  const std::function<void(int permille)>& progress_;
  const double all_;
  int told_ = 0;
};

double pixelsOf(const container::Track& track) {
  const container::SampleDescription& description = track.descriptions.front();
  return static_cast<double>(description.width) * description.height;
}

} // namespace

CutExport::CutExport(FileSystem& files, const MovieExport& movie)
    : source_(files, movie.composition.sourcePath), sourceInfo_(source_.file().info()),
      clips_(cutClips(movie.composition.segments)), store_(files, movie.outputPath),
      pictures_(source_, clips_, movie.codec, store_) {
  lanes_.reserve(movie.composition.audioLanes.size());
  for (const MovieAudioLane& lane : movie.composition.audioLanes) {
    if (std::any_of(lane.volumes.begin(), lane.volumes.end(), [](float volume) { return volume != 1; }))
      throw MovieEditingFailure(MovieEditingError::notComposable);
    lanes_.push_back(
        std::make_unique<CutSound>(source_, source_.sound(lane.sourceTrackIndex), clips_, store_));
  }
}

bool CutExport::hasChanged() const {
  const FileInfo now = source_.file().info();
  return now.sizeBytes != sourceInfo_.sizeBytes || now.modifiedNanoseconds != sourceInfo_.modifiedNanoseconds;
}

void CutExport::run(OpenFile& output, const std::function<void(int permille)>& progress,
                    const std::stop_token& stop) {
  const auto checkpoint = [&] {
    if (stop.stop_requested())
      throw MovieEditingFailure(MovieEditingError::cancelled);
  };
  checkpoint();
  progress(0);
  const double picture = pixelsOf(source_.video()) * bytesPerCodedPixel;
  const double coding = static_cast<double>(pictures_.codedPictures()) * picture;
  Advance advance(progress, coding + static_cast<double>(sourceInfo_.sizeBytes));
  std::vector<container::JoinTrack> tracks;
  tracks.reserve(lanes_.size() + 1);
  tracks.push_back(pictures_.make([&](std::int64_t done) {
    checkpoint();
    advance.reach(static_cast<double>(done) * picture);
  }));
  for (const auto& lane : lanes_)
    tracks.push_back(lane->make(checkpoint));
  store_.flush();

  container::JoinOptions options;
  options.index = container::IndexPlace::first;
  options.progress = [&](std::uint64_t copied, std::uint64_t) {
    checkpoint();
    advance.reach(coding + static_cast<double>(copied));
  };
  copy(output, tracks, options);
  checkpoint();
  constexpr int whole = 1000;
  progress(whole);
}

void CutExport::copy(OpenFile& output, const std::vector<container::JoinTrack>& tracks,
                     const container::JoinOptions& options) {
  try {
    container::writeJoinedMovie(output, tracks, "mp42", options);
  } catch (const FileFailure& failure) {
    // What was to be copied is not there any more.
    if (failure.operation() == FileOperation::copy && (failure.errorNumber() == 0 || hasChanged()))
      throw MovieEditingFailure(MovieEditingError::unreadable);
    throw;
  }
  if (hasChanged())
    throw MovieEditingFailure(MovieEditingError::unreadable);
}

} // namespace tessarin::editing
