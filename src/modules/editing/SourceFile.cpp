#include "modules/editing/SourceFile.hpp"

#include "modules/media/LibraryCoder.hpp"

#include <span>

namespace tessarin::editing {

namespace {

container::Movie indexOf(const OpenFile& file) {
  try {
    container::Movie movie = container::readMovie(file);
    // What a fragment more would have told nobody knows.
    if (movie.isFragmented && movie.usableBytes != static_cast<std::uint64_t>(file.info().sizeBytes))
      throw MovieEditingFailure(MovieEditingError::unreadable);
    return movie;
  } catch (const container::ContainerFailure& failure) {
    throw MovieEditingFailure(failure.error() == container::ContainerError::unsupported
                                  ? MovieEditingError::notComposable
                                  : MovieEditingError::unreadable);
  } catch (const FileFailure&) {
    throw MovieEditingFailure(MovieEditingError::unreadable);
  }
}

std::unique_ptr<OpenFile> opened(FileSystem& files, const std::string& path) {
  try {
    return files.open(path, OpenMode::read);
  } catch (const FileFailure&) {
    throw MovieEditingFailure(MovieEditingError::unreadable);
  }
}

std::int64_t startOf(const container::Track& track) {
  return track.start.convertedTo(track.timescale).value();
}

} // namespace

SourceFile::SourceFile(FileSystem& files, const std::string& path)
    : file_(opened(files, path)), movie_(indexOf(*file_)) {}

const container::Track& SourceFile::video() const {
  const auto tracks = movie_.tracksOf(container::TrackKind::video);
  if (tracks.empty())
    throw MovieEditingFailure(MovieEditingError::notComposable);
  return *tracks.front();
}

const container::Track& SourceFile::sound(std::size_t index) const {
  const auto tracks = movie_.tracksOf(container::TrackKind::audio);
  if (index >= tracks.size())
    throw MovieEditingFailure(MovieEditingError::notComposable);
  return *tracks[index];
}

void SourceFile::load(AVPacket& packet, const container::Sample& sample) const {
  constexpr std::uint32_t most = 1U << 30;
  av_packet_unref(&packet);
  if (sample.size > most || av_new_packet(&packet, static_cast<int>(sample.size)) < 0)
    throw MovieEditingFailure(MovieEditingError::unreadable);
  try {
    const auto bytes = std::as_writable_bytes(std::span(packet.data, sample.size));
    if (file_->read(sample.offset, bytes) != bytes.size())
      throw MovieEditingFailure(MovieEditingError::unreadable);
  } catch (const FileFailure&) {
    throw MovieEditingFailure(MovieEditingError::unreadable);
  }
  packet.dts = sample.decodeTime;
  packet.pts = sample.decodeTime + sample.compositionOffset;
  packet.flags = sample.isSync ? AV_PKT_FLAG_KEY : 0;
}

std::int64_t mediaTimeOf(const container::Track& track, std::int64_t fileTime) {
  return fileTime - startOf(track) + track.presentationStart;
}

std::int64_t fileTimeOf(const container::Track& track, std::int64_t mediaTime) {
  return mediaTime - track.presentationStart + startOf(track);
}

} // namespace tessarin::editing
