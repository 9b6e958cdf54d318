#include "support/RecordingMergerRig.hpp"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>

namespace tessarin {
namespace {

using namespace tessarin::testing;

TEST_F(RecordingMergerTest, NeverReplacesAnExistingOutput) {
  const std::string only = segment({videoOf(1000), audioOf(1000)});
  const std::string existing = directory.write("out/existing.mp4", "kept");
  std::filesystem::create_symlink("/nowhere", out("link.mp4"));
  for (const std::string& path : {existing, out("link.mp4")}) {
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({only}, path, 0); }), Error::exportFailed);
    EXPECT_EQ(errorOf([&] { merger.mergeAudio({only}, path, 0); }), Error::exportFailed);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(Paths{only}, std::vector<std::int64_t>{0}, path); }),
              Error::exportFailed);
    EXPECT_EQ(errorOf([&] { merger.mergeShareVideo(only, Paths{}, path); }), Error::exportFailed);
  }
  EXPECT_EQ(bytesOf(existing), "kept");
  EXPECT_EQ(outputs(), (Paths{"existing.mp4", "link.mp4"}));
  // The arguments are looked at first, then the output, then the segments.
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({}, existing, 0); }), Error::noSegments);
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({directory / "missing"}, existing, 0); }),
            Error::exportFailed);
}

TEST_F(RecordingMergerTest, DoesNotReplaceAnOutputThatAppearsMeanwhile) {
  const std::string lone = segment({videoOf(1000)});
  const std::string other = segment({videoOf(1000)});
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::rename)
      directory.write("out/screen.mp4", "somebody's");
  });
  for (const Paths& segments : {Paths{lone}, Paths{lone, other}}) {
    EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack(segments, out("screen.mp4"), 0); }), Error::exportFailed);
    EXPECT_EQ(bytesOf(out("screen.mp4")), "somebody's");
    EXPECT_EQ(outputs(), Paths{"screen.mp4"});
    std::filesystem::remove(out("screen.mp4"));
  }
}

TEST_F(RecordingMergerTest, LeavesNothingBehindWhenWritingFailsSoThatTheNextTryWorks) {
  const Paths lone = {segment({videoOf(1000)})};
  const Paths two = {segment({videoOf(1000), audioOf(1000)}), segment({videoOf(1000), audioOf(1000)})};
  files.refuseClones();
  reencoder.fails = true;
  const std::vector<std::function<void(const std::string&)>> merges = {
      [&](const std::string& path) { merger.mergeVideoTrack(lone, path, 0); },
      [&](const std::string& path) { merger.mergeVideoTrack(two, path, 0); },
      [&](const std::string& path) { merger.mergeAudio(two, path, 0); },
      [&](const std::string& path) { merger.mergeShareVideo(two, std::vector<std::int64_t>{0}, path); },
  };
  for (const auto& merge : merges)
    for (const FileOperation operation : {FileOperation::open, FileOperation::info, FileOperation::write,
                                          FileOperation::copy, FileOperation::rename})
      for (std::size_t nth = 0; nth < 3; ++nth) {
        files.inject({operation, "/out/", nth, 1, ENOSPC, std::nullopt});
        const std::optional<Error> error = errorOf([&] { merge(out("merged.mp4")); });
        if (error) {
          EXPECT_EQ(error, Error::exportFailed);
          EXPECT_EQ(outputs(), Paths{});
          files.clearFaults();
          files.refuseClones();
          merge(out("merged.mp4"));
        }
        EXPECT_EQ(outputs(), Paths{"merged.mp4"});
        std::filesystem::remove(out("merged.mp4"));
        files.clearFaults();
        files.refuseClones();
      }
}

TEST_F(RecordingMergerTest, RefusesAnOutputWithoutBytes) {
  const std::string only = segment({videoOf(1000)});
  files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation == FileOperation::info && event.path.ends_with(".tmp"))
      std::filesystem::resize_file(event.path, 0);
  });
  EXPECT_EQ(errorOf([&] { merger.mergeVideoTrack({only}, out("screen.mp4"), 0); }), Error::exportFailed);
  EXPECT_EQ(outputs(), Paths{});
}

} // namespace
} // namespace tessarin
