// Recordings that were paused more often than a process may have files open.

#include "recording/SegmentFiles.hpp"
#include "support/RecordingMergerRig.hpp"

#include <cerrno>
#include <filesystem>
#include <sys/resource.h>

namespace tessarin {
namespace {

using namespace tessarin::testing;

// Lets the process have only a few files more open than it has.
class FewDescriptors {
 public:
  explicit FewDescriptors(rlim_t more) {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    const auto now = static_cast<rlim_t>(std::distance(begin(open), end(open)));
    if (::getrlimit(RLIMIT_NOFILE, &before_) != 0)
      throw std::runtime_error("getrlimit");
    rlimit few = before_;
    few.rlim_cur = now + more;
    if (::setrlimit(RLIMIT_NOFILE, &few) != 0)
      throw std::runtime_error("setrlimit");
  }
  ~FewDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

class RecordingMergerManySegments : public RecordingMergerTest {
 protected:
  Paths segmentsOf(std::size_t number) {
    Paths segments;
    segments.reserve(number);
    for (std::size_t i = 0; i < number; ++i)
      segments.push_back(segment({videoOf(100), videoOf(100), audioOf(100), audioOf(100)}));
    return segments;
  }
  // The samples of a track of all segments, one behind the other.
  static auto samplesOf(const Paths& segments, std::size_t track) {
    auto all = sampleBytesOf(segments.front(), track);
    for (std::size_t i = 1; i < segments.size(); ++i) {
      auto more = sampleBytesOf(segments[i], track);
      all.insert(all.end(), more.begin(), more.end());
    }
    return all;
  }
};

TEST_F(RecordingMergerManySegments, AreJoinedWithFewFilesOpen) {
  const Paths segments = segmentsOf(120);
  {
    const FewDescriptors few(12);
    merger.mergeVideoTrack(segments, out("screen.mp4"), 0);
    merger.mergeVideoTrack(segments, out("camera.mp4"), 1);
    merger.mergeAudio(segments, out("system-audio.m4a"), 0);
    merger.mergeShareVideo(segments, {0, 1}, out("recording.mp4"));
  }
  EXPECT_EQ(sampleBytesOf(out("screen.mp4"), 0), samplesOf(segments, 0));
  EXPECT_EQ(sampleBytesOf(out("camera.mp4"), 0), samplesOf(segments, 1));
  EXPECT_EQ(sampleBytesOf(out("recording.mp4"), 0), samplesOf(segments, 0));
  EXPECT_EQ(sampleBytesOf(out("recording.mp4"), 1), sampleBytesOf(out("system-audio.m4a"), 0));
  EXPECT_EQ(movieAt(out("screen.mp4")).duration, MediaTime(12, 1));
  EXPECT_EQ(movieAt(out("recording.mp4")).duration, MediaTime(12, 1));
}

// On either side of the number from which on segments are not kept open, nothing else is different.
TEST_F(RecordingMergerManySegments, AreJoinedAsFewAre) {
  const Paths all = segmentsOf(SegmentFiles::mostKeptOpen + 1);
  for (const std::size_t number : {SegmentFiles::mostKeptOpen, SegmentFiles::mostKeptOpen + 1}) {
    SCOPED_TRACE(number);
    const Paths segments(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(number));
    files.clearLog();
    const std::string path = out(std::to_string(number) + ".mp4");
    merger.mergeShareVideo(segments, {0}, path);
    EXPECT_EQ(sampleBytesOf(path, 0), samplesOf(segments, 0));
    EXPECT_EQ(files.count(FileOperation::open) > 1 + number, number > SegmentFiles::mostKeptOpen)
        << "opened again";
  }
}

TEST_F(RecordingMergerManySegments, AreNotMixedWithFilesThatTookTheirPlace) {
  const Paths segments = segmentsOf(SegmentFiles::mostKeptOpen + 1);
  const std::string other = directory / "other.mp4";
  std::filesystem::copy_file(segments[40], other);
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::open && event.path.ends_with(".tmp"))
      std::filesystem::rename(other, segments[40]);
  });
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), 0); }), Error::exportFailed);
  EXPECT_EQ(outputs(), Paths{});
}

TEST_F(RecordingMergerManySegments, OneThatCannotBeOpenedAgainFailsTheMerge) {
  const Paths segments = segmentsOf(SegmentFiles::mostKeptOpen + 1);
  const std::string name = segments[40].substr(segments[40].rfind('/'));
  files.inject({.operation = FileOperation::open, .pathPart = name, .skip = 1, .errorNumber = EMFILE});
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), 0); }), Error::exportFailed);
  EXPECT_EQ(outputs(), Paths{});
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), 0); }), std::nullopt);
}

} // namespace
} // namespace tessarin
