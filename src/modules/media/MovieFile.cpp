#include "modules/media/MovieFile.hpp"

#include <utility>

namespace tessarin::media {

namespace {

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos)
    return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace

MovieFile::MovieFile(FileSystem& files, std::string path, const FragmentIntervals& intervals,
                     const std::vector<container::SampleDescription>& videoTracks)
    : files_(files), path_(std::move(path)), intervals_(intervals),
      file_(files.open(path_, OpenMode::createExclusive)), fragmentDue_(intervals.initial) {
  std::vector<container::TrackSetup> setups;
  setups.reserve(videoTracks.size());
  for (const container::SampleDescription& description : videoTracks)
    setups.push_back({.kind = container::TrackKind::video,
                      .timescale = videoTimescale,
                      .width = description.width,
                      .height = description.height});
  writer_.emplace(*file_, setups);
  for (std::size_t track = 0; track < videoTracks.size(); ++track)
    writer_->setDescription(track, videoTracks[track]);
}

void MovieFile::append(std::size_t track, const CodedPicture& picture, std::int64_t time) {
  writer_->append(track, picture.sample, time, 0, picture.isKey);
  // The writer holds the key back, so what it flushes ends before it.
  if (track != 0 || !picture.isKey || time < fragmentDue_)
    return;
  writer_->flushFragment();
  fragmentDue_ = time + intervals_.further;
}

void MovieFile::flush() {
  writer_->flushFragment();
}

void MovieFile::finish(const std::vector<std::int64_t>& endTimes) {
  writer_->finish(endTimes);
  writer_.reset();
  file_.reset();
  files_.syncDirectory(directoryOf(path_));
}

} // namespace tessarin::media
