// What a recovery refuses, file by file, and in which order.

#include "support/RecordingRecoveryRig.hpp"

#include <gmock/gmock.h>

#include <chrono>
#include <sys/stat.h>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RecordingRecoveryChecks : public RecordingRecoveryTest {
 protected:
  // Bends a file in place.
  void replaceAll(const std::string& name, const std::string& from, const std::string& to) const {
    std::string bytes = bytesOf(name);
    for (std::size_t at = bytes.find(from); at != std::string::npos; at = bytes.find(from, at + to.size()))
      bytes.replace(at, from.size(), to);
    write(name, bytes);
  }
};

TEST_F(RecordingRecoveryChecks, ASessionThatIsNoDirectoryIsRefused) {
  segment({videoOf(700)});
  std::filesystem::rename(session(), directory / "elsewhere");
  EXPECT_EQ(error(), Error::invalidRequest) << "nothing";
  std::filesystem::create_directory_symlink(directory / "elsewhere", session());
  EXPECT_EQ(error(), Error::invalidRequest) << "a link";
  request.outputDirectory = session() + "/";
  EXPECT_EQ(error(), Error::invalidRequest) << "a link with a slash behind it";
  std::filesystem::remove(session());
  directory.write(sessionID, "a file");
  EXPECT_EQ(error(), Error::invalidRequest) << "a file";
  std::filesystem::remove(session());
  std::filesystem::rename(directory / "elsewhere", session());
  EXPECT_EQ(error(), std::nullopt);
}

TEST_F(RecordingRecoveryChecks, ASessionThatCannotBeLookedAtIsTheFileLayersFailure) {
  segment({videoOf(700)});
  files.failNth(FileOperation::info, 1, EIO);
  EXPECT_THROW(recover(), FileFailure);
}

TEST_F(RecordingRecoveryChecks, EverySegmentMustBeThereEvenWhenAllOutputsAre) {
  segment({videoOf(700)});
  const std::string second = segment({videoOf(700)});
  EXPECT_EQ(error(), std::nullopt);
  std::filesystem::remove(second);
  EXPECT_EQ(error(), Error::invalidRequest);
  request.segmentPaths = {at("segments/segment-" + std::string(300, '0') + ".mp4")};
  EXPECT_EQ(error(), Error::invalidRequest) << "a name that no file can have";
  request.segmentPaths = {at("segments/segment-" + std::string(5000, '0') + ".mp4")};
  EXPECT_EQ(error(), Error::invalidRequest);
}

TEST_F(RecordingRecoveryChecks, SegmentsOfAnotherFolderThatALinkLeadsToAreMissing) {
  segment({videoOf(700)});
  std::filesystem::rename(at("segments"), directory / "elsewhere");
  std::filesystem::create_directory_symlink(directory / "elsewhere", at("segments"));
  const std::vector<std::string> spellings = {at("segments/segment-0000.mp4"),
                                              session() + "//segments///segment-0000.mp4"};
  for (const std::string& spelling : spellings) {
    request.segmentPaths = {spelling};
    EXPECT_EQ(error(), Error::invalidRequest) << spelling;
    EXPECT_THAT(names(), IsEmpty());
  }
  std::filesystem::remove(at("segments"));
  std::filesystem::rename(directory / "elsewhere", at("segments"));
  for (const std::string& spelling : spellings) {
    request.segmentPaths = {spelling};
    EXPECT_EQ(error(), std::nullopt) << spelling;
  }
}

TEST_F(RecordingRecoveryChecks, ASegmentThatIsNoWholeFileIsAFailedMerge) {
  writeSyntheticMovie(directory / "real.mp4", {videoOf(700)});
  const std::string path = at("segments/segment-0000.mp4");
  request.segmentPaths = {path};
  const auto refuses = [&](const char* what) {
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(error(), Error::mergeFailed) << what;
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5)) << what;
    EXPECT_THAT(names(), IsEmpty()) << what;
    std::filesystem::remove_all(path);
  };
  write("segments/segment-0000.mp4", "");
  refuses("empty");
  write("segments/segment-0000.mp4", "no movie at all");
  refuses("text");
  std::filesystem::create_directory(path);
  refuses("directory");
  std::filesystem::create_symlink(directory / "real.mp4", path);
  refuses("link to a good file");
  std::filesystem::create_symlink(directory / "missing", path);
  refuses("dangling link");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  refuses("FIFO");
  write("segments/segment-0000.mp4", std::string("\0\0\0\1moov\x7f\xff\xff\xff\xff\xff\xff\xff", 16));
  refuses("an index that claims to be huge");
  std::filesystem::copy_file(directory / "real.mp4", path);
  const auto size = std::filesystem::file_size(path);
  std::filesystem::resize_file(path, size / 2);
  refuses("a finished file that was cut");
  std::filesystem::copy_file(directory / "real.mp4", path);
  EXPECT_EQ(error(), std::nullopt);
}

TEST_F(RecordingRecoveryChecks, ATrackThatOneSegmentLacksIsAFailedMerge) {
  segment({videoOf(700), videoOf(700), audioOf(700)});
  segment({videoOf(700)});
  request.recoverCamera = true;
  EXPECT_EQ(error(), Error::mergeFailed) << "no camera";
  EXPECT_THAT(names(), ElementsAre("screen.mp4")) << "what was made before stays";
  request.recoverCamera = false;
  request.recoverSystemAudio = true;
  EXPECT_EQ(error(), Error::mergeFailed) << "no sound";
  EXPECT_THAT(names(), ElementsAre("screen.mp4"));
  request.recoverSystemAudio = false;
  EXPECT_EQ(error(), std::nullopt);
}

TEST_F(RecordingRecoveryChecks, PicturesThatAreThereMustBePictures) {
  for (const std::string name : {"recording.mp4", "screen.mp4", "camera.mp4"}) {
    SCOPED_TRACE(name);
    const auto refuses = [&](const char* what) {
      EXPECT_EQ(error(), Error::invalidMedia) << what;
      EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(at(name)))) << what << " is kept";
      std::filesystem::remove_all(at(name));
    };
    request.segmentPaths.clear();
    std::filesystem::remove_all(at("segments"));
    std::filesystem::create_directory(at("segments"));
    segment({videoOf(700), videoOf(700)});
    request.recoverCamera = true;
    EXPECT_EQ(error(), std::nullopt);
    const std::string whole = bytesOf(name);
    std::filesystem::remove(at(name));

    write(name, "");
    refuses("empty");
    write(name, "no movie at all");
    refuses("text");
    write(name, whole.substr(0, whole.size() - 1));
    refuses("cut by a byte");
    std::filesystem::create_directory(at(name));
    refuses("directory");
    ASSERT_EQ(::mkfifo(at(name).c_str(), 0600), 0);
    refuses("FIFO");
    directory.write("whole.mp4", whole);
    std::filesystem::create_symlink(directory / "whole.mp4", at(name));
    refuses("link");
    existing(name, {audioOf(700)});
    refuses("sound alone");
    write(name, whole);
    replaceAll(name, "avc1", "vp09");
    refuses("another codec");
    write(name, whole);
    files.inject({FileOperation::read, name, 0, 1, EIO});
    refuses("unreadable");
    write(name, whole);
    files.inject({FileOperation::info, name, 0, 1, EIO});
    refuses("cannot be looked at");

    write(name, whole);
    EXPECT_EQ(error(), std::nullopt);
    for (const std::string& each : everyOutput)
      std::filesystem::remove(at(each));
  }
}

TEST_F(RecordingRecoveryChecks, TellsTheCodecOfEachFile) {
  segment({videoOf(700), videoOf(700)});
  request.recoverCamera = true;
  recover();
  replaceAll("screen.mp4", "avc1", "hvc1");
  const RecordingRecoveryPayload payload = recover();
  EXPECT_EQ(payload.tracks.at(0).codec, RecordingCodec::hevc);
  EXPECT_EQ(payload.tracks.at(1).codec, RecordingCodec::h264);
  EXPECT_EQ(payload.deliverables.at(0).codec, RecordingCodec::h264);
}

TEST_F(RecordingRecoveryChecks, TellsTheSizeAsItIsShown) {
  segment({videoOf(700)});
  recover();
  const auto matrix = [](std::uint32_t a, std::uint32_t b, std::uint32_t c, std::uint32_t d) {
    BigEndianBytes bytes;
    bytes.number(a, 4).number(b, 4).zeros(4).number(c, 4).number(d, 4).zeros(4).zeros(8).number(0x40000000,
                                                                                                4);
    std::string text;
    for (const std::byte byte : bytes.take())
      text += static_cast<char>(byte);
    return text;
  };
  const std::string identity = matrix(0x10000, 0, 0, 0x10000);
  const struct {
    std::string matrix;
    std::int64_t width, height;
  } cases[] = {
      {identity, 320, 240},
      {matrix(0, 0x10000, 0xFFFF0000, 0), 240, 320},
      {matrix(0xFFFF0000, 0, 0, 0xFFFF0000), 320, 240},
      {matrix(0x8000, 0, 0, 0x8000), 160, 120},
      {matrix(0x0199, 0, 0, 0x0222), 2, 2}, // 1.997 and 1.999
  };
  std::string last = identity;
  for (const auto& each : cases) {
    replaceAll("screen.mp4", last, each.matrix);
    last = each.matrix;
    const RecordingRecoveryPayload payload = recover();
    EXPECT_EQ(payload.tracks.at(0).widthPixels, each.width);
    EXPECT_EQ(payload.tracks.at(0).heightPixels, each.height);
  }
  replaceAll("screen.mp4", last, matrix(0x0019, 0, 0, 0x10000));
  EXPECT_EQ(error(), Error::invalidMedia) << "less than a pixel wide";
}

TEST_F(RecordingRecoveryChecks, FilesOfASessionDifferByAQuarterOfASecondAtMost) {
  segment({videoOf(1000), videoOf(1000), audioOf(1000), audioOf(1000)});
  askForEverything();
  const struct {
    const char* name;
    SyntheticTrack (*track)(std::size_t milliseconds);
  } outputs[] = {{"recording.mp4", videoOf},
                 {"camera.mp4", videoOf},
                 {"system-audio.m4a", audioOf},
                 {"microphone.m4a", audioOf}};
  const struct {
    std::size_t milliseconds;
    std::int64_t furtherTicks;
    bool passes;
  } lengths[] = {{749, 0, false}, {750, -1, false}, {750, 0, true},   {700, 0, false}, {1000, 0, true},
                 {1250, 0, true}, {1250, 1, false}, {1251, 0, false}, {1300, 0, false}};
  for (const auto& output : outputs) {
    for (const auto& length : lengths) {
      for (const std::string& each : everyOutput)
        std::filesystem::remove(at(each));
      SyntheticTrack track = output.track(length.milliseconds);
      track.endTime = *track.endTime + length.furtherTicks;
      existing(output.name, {track});
      const std::string before = bytesOf(output.name);
      EXPECT_EQ(error(), length.passes ? std::nullopt : std::optional(Error::invalidMedia))
          << output.name << " of " << length.milliseconds << " ms and " << length.furtherTicks;
      EXPECT_EQ(bytesOf(output.name), before) << "kept in any case";
    }
  }
}

TEST_F(RecordingRecoveryChecks, SoundMustBeOneTrackOfTheHouseFormat) {
  segment({videoOf(1000), audioOf(1000), audioOf(1000)});
  request.recoverSystemAudio = request.recoverMicrophone = true;
  SyntheticTrack mono = audioOf(1000);
  mono.channelCount = 1;
  SyntheticTrack slow = audioOf(1000);
  slow.sampleRate = 44100;
  for (const std::string name : {"system-audio.m4a", "microphone.m4a"}) {
    for (const std::vector<SyntheticTrack>& tracks : {std::vector<SyntheticTrack>{mono},
                                                      {slow},
                                                      {audioOf(1000), audioOf(1000)},
                                                      {videoOf(1000)},
                                                      {videoOf(1000), audioOf(1000)}}) {
      existing(name, tracks);
      EXPECT_EQ(error(), Error::invalidMedia) << name;
      std::filesystem::remove(at(name));
    }
    write(name, "");
    EXPECT_EQ(error(), Error::invalidMedia) << name;
    std::filesystem::remove(at(name));
    existing(name, {audioOf(1000)});
    EXPECT_EQ(error(), std::nullopt) << name;
    for (const std::string& each : everyOutput)
      std::filesystem::remove(at(each));
  }
}

TEST_F(RecordingRecoveryChecks, SoundShorterThanItsSegmentByMoreIsNoSoundOfIt) {
  segment({videoOf(1000), audioOf(700)});
  request.recoverSystemAudio = true;
  EXPECT_EQ(error(), Error::invalidMedia);
  EXPECT_THAT(names(), ElementsAre("screen.mp4", "system-audio.m4a")) << "it stays, and is refused again";
  EXPECT_EQ(error(), Error::invalidMedia);
}

TEST_F(RecordingRecoveryChecks, ABadShareVideoEndsTheRecoveryBeforeAnythingIsMade) {
  fullSegment(1000);
  askForEverything();
  write("recording.mp4", "bad");
  write(".screen.mp4.0123456789abcdef.tmp", "");
  EXPECT_EQ(error(), Error::invalidMedia);
  EXPECT_THAT(names(), ElementsAre(".screen.mp4.0123456789abcdef.tmp", "recording.mp4"));
}

TEST_F(RecordingRecoveryChecks, AShareVideoOfAnotherLengthIsFoundAtTheEndOnly) {
  fullSegment(1000);
  askForEverything();
  existing("recording.mp4", {videoOf(700)});
  EXPECT_EQ(error(), Error::invalidMedia);
  EXPECT_EQ(names(), everyOutput);
}

TEST_F(RecordingRecoveryChecks, AnEmptyScreenFileEndsTheRecoveryBeforeTheCameraIsMade) {
  fullSegment(1000);
  askForEverything();
  write("screen.mp4", "");
  EXPECT_EQ(error(), Error::invalidMedia);
  EXPECT_THAT(names(), ElementsAre("screen.mp4"));
}

TEST_F(RecordingRecoveryChecks, ABadScreenFileIsFoundOnceTheCameraIsMade) {
  fullSegment(1000);
  askForEverything();
  write("screen.mp4", "bad");
  EXPECT_EQ(error(), Error::invalidMedia);
  EXPECT_THAT(names(), ElementsAre("camera.mp4", "screen.mp4"));
}

TEST_F(RecordingRecoveryChecks, ABadCameraFileIsFoundBeforeAnySoundIsMade) {
  fullSegment(1000);
  askForEverything();
  existing("camera.mp4", {videoOf(700)});
  EXPECT_EQ(error(), Error::invalidMedia);
  EXPECT_THAT(names(), ElementsAre("camera.mp4", "screen.mp4"));
}

TEST_F(RecordingRecoveryChecks, AScreenFileWithSoundCannotBeShared) {
  segment({videoOf(1000), audioOf(1000)});
  existing("screen.mp4", {videoOf(1000), audioOf(1000)});
  EXPECT_EQ(error(), Error::mergeFailed);
  EXPECT_THAT(names(), ElementsAre("screen.mp4"));
}

} // namespace
} // namespace tessarin
