#include "report/SessionReport.hpp"

#include "base/Failure.hpp"
#include "base/SafeFile.hpp"
#include "base/Text.hpp"
#include "container/Movie.hpp"
#include "recording/RecordedCameraLayout.hpp"
#include "recording/RecordingSegmentStore.hpp"
#include "trace/InteractionEventFile.hpp"

#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

namespace tessarin {

namespace {

constexpr std::size_t mostEntries = 10'000;
constexpr std::size_t manifestLimit = 64U << 20U;

const char* nameOf(container::TrackKind kind) {
  switch (kind) {
  case container::TrackKind::video:
    return "video";
  case container::TrackKind::audio:
    return "audio";
  case container::TrackKind::other:
    break;
  }
  return "other";
}

const char* nameOf(container::ContainerError error) {
  switch (error) {
  case container::ContainerError::notAMovie:
    return "no index yet: nothing of it can be played";
  case container::ContainerError::unsupported:
    return "of a form that is not this program's";
  case container::ContainerError::damaged:
    return "damaged";
  case container::ContainerError::tooLarge:
    break;
  }
  return "too large to be read";
}

// Names and identifiers are anybody's: as they may be printed on a terminal, in one line. Characters that
// control it, and what is no text, are replaced.
std::string shown(std::string_view text) {
  static constexpr std::string_view replacement = "\uFFFD";
  const std::string repaired = repairedUtf8(text);
  std::string result;
  result.reserve(repaired.size());
  for (std::size_t i = 0; i < repaired.size(); ++i) {
    const auto byteAt = [&](std::size_t at) {
      return at < repaired.size() ? static_cast<unsigned char>(repaired[at]) : 0U;
    };
    const bool isSecondSet = byteAt(i) == 0xC2 && byteAt(i + 1) < 0xA0; // U+0080 to U+009F
    if (byteAt(i) < 0x20 || byteAt(i) == 0x7F || isSecondSet)
      result += replacement;
    else
      result += repaired[i];
    i += isSecondSet ? 1 : 0;
  }
  return result;
}

class Reporter {
 public:
  Reporter(FileSystem& files, const std::string& directory) : files_(files), paths_(directory) {}

  SessionReport run() {
    out_ << "session " << shown(paths_.sessionDirectory) << '\n';
    try {
      if (!isRealDirectory(files_, paths_.sessionDirectory))
        return finished("  not a directory");
      reportManifest();
      reportSegments();
      reportMovies();
      reportTrace();
      reportLayout();
      reportStrangers();
    } catch (const FileFailure& failure) {
      return finished(std::string("  cannot be read: ") + failure.what());
    }
    return {out_.str(), isWhole_};
  }

 private:
  SessionReport finished(const std::string& line) {
    complain(line);
    return {out_.str(), isWhole_};
  }
  void complain(const std::string& line) {
    isWhole_ = false;
    out_ << line << '\n';
  }

  // Runs what describes a file; what goes wrong in it becomes a line.
  template<class Describe> void describe(const std::string& path, const Describe& what) {
    out_ << shown(path.substr(paths_.sessionDirectory.size() + 1));
    try {
      const std::optional<std::int64_t> size = regularFileSize(files_, path);
      if (!size)
        return complain(": not a regular file");
      out_ << ": " << *size << " bytes";
      what();
    } catch (const container::ContainerFailure& failure) {
      complain(std::string(", ") + nameOf(failure.error()));
    } catch (const std::exception&) {
      complain(", cannot be read as what it should be");
    }
  }

  // Sorted. None, and a complaint, where there are too many to be looked at.
  std::vector<std::string> namesIn(const std::string& directory) {
    std::optional<std::vector<std::string>> names = files_.list(directory, mostEntries);
    if (!names) {
      complain("too many files to be looked at: " + shown(directory));
      return {};
    }
    std::sort(names->begin(), names->end());
    return std::move(*names);
  }

  void checkOwner(const std::string& sessionID) {
    if (sessionID != lastPathComponent(paths_.sessionDirectory))
      complain("  is of another session");
  }

  void reportManifest() {
    if (!exists(files_, paths_.manifest)) {
      out_ << "no manifest: no segment was finished\n";
      return;
    }
    describe(paths_.manifest, [&] {
      const auto manifest =
          json::decode<NativeRecordingManifest>(readWholeFile(files_, paths_.manifest, manifestLimit));
      out_ << ", schema " << manifest.schemaVersion << ", session " << shown(manifest.sessionID) << ", "
           << manifest.segments.size() << " segments\n";
      checkOwner(manifest.sessionID);
      for (const NativeRecordingSegment& segment : manifest.segments) {
        manifested_[segment.path] = segment;
        if (regularFileSize(files_, segment.path) != segment.sizeBytes)
          complain("  segment " + std::to_string(segment.index) + " is missing or not as long as it was");
      }
    });
  }

  void reportSegments() {
    if (!exists(files_, paths_.segmentsDirectory))
      return complain("no segments");
    if (!isRealDirectory(files_, paths_.segmentsDirectory))
      return complain("segments: not a directory");
    for (const std::string& name : namesIn(paths_.segmentsDirectory)) {
      const std::string path = paths_.segmentsDirectory + '/' + name;
      const auto entry = manifested_.find(path);
      reportMovie(path, entry == manifested_.end() ? ", not in the manifest" : ", in the manifest");
    }
  }

  void reportMovies() {
    for (const std::string& path : paths_.mergedOutputs())
      if (exists(files_, path))
        reportMovie(path, "");
  }

  void reportMovie(const std::string& path, const std::string& note) {
    describe(path, [&] {
      const auto file = files_.open(path, OpenMode::read);
      const container::Movie movie = container::readMovie(*file);
      const auto size = static_cast<std::uint64_t>(file->info().sizeBytes);
      out_ << note << ", " << movie.duration.wholeMilliseconds() << " ms";
      if (movie.isFragmented)
        complain(movie.usableBytes < size
                     ? ", never finished: whole up to byte " + std::to_string(movie.usableBytes)
                     : ", never finished: whole to its end");
      else
        out_ << '\n';
      for (const container::Track& track : movie.tracks)
        reportTrack(track);
    });
  }

  void reportTrack(const container::Track& track) {
    const container::SampleDescription& description = track.descriptions.front();
    out_ << "  " << nameOf(track.kind) << ' ' << shown(description.codec);
    if (track.kind == container::TrackKind::video)
      out_ << ' ' << description.width << 'x' << description.height;
    if (track.kind == container::TrackKind::audio)
      out_ << ' ' << description.sampleRate << " Hz, " << description.channelCount << " channels";
    out_ << ", from " << track.start.wholeMilliseconds() << " ms, " << track.duration.wholeMilliseconds()
         << " ms, " << track.samples.size() << " samples\n";
  }

  void reportTrace() {
    if (!exists(files_, paths_.interactionEvents))
      return;
    describe(paths_.interactionEvents, [&] {
      const std::string bytes =
          readWholeFile(files_, paths_.interactionEvents, InteractionEventFile::maximumBytes);
      const std::vector<InteractionEventDTO> events = InteractionEventFile::parse(bytes);
      out_ << ", " << events.size() << " events";
      if (!events.empty())
        out_ << " up to " << events.back().timestampMs() << " ms";
      out_ << '\n';
      if (!bytes.empty() && bytes.back() != '\n')
        complain("  its last line was cut short");
    });
  }

  void reportLayout() {
    const std::string path = paths_.sessionDirectory + '/' + RecordedCameraLayout::fileName;
    if (!exists(files_, path))
      return;
    describe(path, [&] {
      const auto layout =
          json::decode<RecordedCameraLayout>(readWholeFile(files_, path, RecordedCameraLayout::maximumBytes));
      const auto positions = layout.camera.recordedPositions.value_or(std::vector<VideoCameraPositionDTO>());
      out_ << ", " << positions.size() << " positions of the camera";
      if (!positions.empty())
        out_ << " up to " << positions.back().sourceTimeMs << " ms";
      out_ << '\n';
      checkOwner(layout.sessionID);
    });
  }

  // Files that a crash has left half-written, and others' files.
  void reportStrangers() {
    std::vector<std::string> known = paths_.mergedOutputs();
    known.insert(known.end(),
                 {paths_.segmentsDirectory, paths_.interactionEvents, paths_.sensorData, paths_.manifest,
                  paths_.sessionDirectory + '/' + RecordedCameraLayout::fileName});
    for (const std::string& name : namesIn(paths_.sessionDirectory))
      if (std::find(known.begin(), known.end(), paths_.sessionDirectory + '/' + name) == known.end())
        out_ << shown(name) << ": no part of a session"
             << (name.ends_with(".tmp") ? "; left by something that was cut short" : "") << '\n';
  }

  FileSystem& files_;
  const RecordingSessionPaths paths_;
  std::map<std::string, NativeRecordingSegment> manifested_; // by path
  std::ostringstream out_;
  bool isWhole_ = true;
};

} // namespace

SessionReport reportOnSession(FileSystem& files, const std::string& directory) {
  return Reporter(files, directory).run();
}

} // namespace tessarin
