#include "recording/RecordingRecoveryService.hpp"

#include "support/RecordingRecoveryRig.hpp"

#include <gmock/gmock.h>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using ::testing::ElementsAre;

TEST_F(RecordingRecoveryTest, AnswersAsACompletedRecordingDoes) {
  fullSegment(1000);
  fullSegment(500);
  askForEverything();
  write("interaction-events.jsonl", "{}\n");
  const std::string answer = json::encode(recover());
  const auto soundFile = [&](const std::string& name) {
    return R"("path":")" + at(name) + R"(","sampleRateHz":48000,"sizeBytes":)" +
           std::to_string(std::filesystem::file_size(at(name)));
  };
  const auto file = [&](const std::string& name) {
    return R"("path":")" + at(name) + R"(","sizeBytes":)" +
           std::to_string(std::filesystem::file_size(at(name)));
  };
  const std::string sound = R"({"channelCount":2,"durationMs":1500,)";
  const std::string pictures = R"({"codec":"h264","durationMs":1500,"heightPixels":240,)";
  EXPECT_EQ(answer, R"({"clock":{"programDurationMs":1500},"deliverables":[)" + pictures +
                        R"("id":"share-video","kind":"shareVideo",)" + file("recording.mp4") +
                        R"(,"widthPixels":320}],"tracks":[)" + pictures +
                        R"("id":"screen","kind":"screenVideo","mediaType":"video",)" + file("screen.mp4") +
                        R"(,"widthPixels":320},)" + pictures +
                        R"("id":"camera","kind":"cameraVideo","mediaType":"video",)" + file("camera.mp4") +
                        R"(,"widthPixels":320},)" + sound +
                        R"("id":"system-audio","kind":"systemAudio","mediaType":"audio",)" +
                        soundFile("system-audio.m4a") + "}," + sound +
                        R"("id":"microphone","kind":"microphoneAudio","mediaType":"audio",)" +
                        soundFile("microphone.m4a") +
                        R"(},{"durationMs":1500,"id":"interaction-events",)"
                        R"("kind":"interactionEvents","mediaType":"data",)" +
                        file("interaction-events.jsonl") + "}]}");
  EXPECT_THAT(names(), ElementsAre("camera.mp4", "interaction-events.jsonl", "microphone.m4a",
                                   "recording.mp4", "screen.mp4", "system-audio.m4a"));
}

TEST_F(RecordingRecoveryTest, MakesThePicturesAndTheirCloneWhenNothingElseIsAskedFor) {
  segment({videoOf(700)});
  const RecordingRecoveryPayload payload = recover();
  EXPECT_THAT(ids(payload), ElementsAre("screen"));
  EXPECT_THAT(names(), ElementsAre("recording.mp4", "screen.mp4"));
  EXPECT_EQ(bytesOf("recording.mp4"), bytesOf("screen.mp4"));
  EXPECT_EQ(payload.clock, (CaptureSessionClock{std::nullopt, std::nullopt, 700}));
}

TEST_F(RecordingRecoveryTest, TakesTheSoundThatTheFlagsCountAndNotTheSegment) {
  const std::string path = segment({videoOf(1000), audioOf(1000), audioOf(1000)});
  request.recoverMicrophone = true;
  EXPECT_THAT(ids(recover()), ElementsAre("screen", "microphone"));
  EXPECT_EQ(sampleBytesOf(at("microphone.m4a"), 0), sampleBytesOf(path, 1)) << "the first track of sound";
  std::filesystem::remove(at("microphone.m4a"));
  std::filesystem::remove(at("recording.mp4"));
  request.recoverSystemAudio = true;
  EXPECT_THAT(ids(recover()), ElementsAre("screen", "system-audio", "microphone"));
  EXPECT_EQ(sampleBytesOf(at("system-audio.m4a"), 0), sampleBytesOf(path, 1));
  EXPECT_EQ(sampleBytesOf(at("microphone.m4a"), 0), sampleBytesOf(path, 2));
  EXPECT_EQ(sampleBytesOf(at("recording.mp4"), 1), sampleBytesOf(path, 1)) << "the computer's sound first";
  EXPECT_EQ(sampleBytesOf(at("recording.mp4"), 2), sampleBytesOf(path, 2));
}

TEST_F(RecordingRecoveryTest, TakesTheSecondPicturesForTheCamera) {
  const std::string path = segment({videoOf(1000), videoOf(1000)});
  request.recoverCamera = true;
  EXPECT_THAT(ids(recover()), ElementsAre("screen", "camera"));
  EXPECT_EQ(sampleBytesOf(at("screen.mp4"), 0), sampleBytesOf(path, 0));
  EXPECT_EQ(sampleBytesOf(at("camera.mp4"), 0), sampleBytesOf(path, 1));
}

TEST_F(RecordingRecoveryTest, RunsAgainToTheSameAnswerWithoutWritingAnything) {
  fullSegment(1000);
  fullSegment(500, false);
  askForEverything();
  write("interaction-events.jsonl", "{}\n");
  const auto before = segments();
  const RecordingRecoveryPayload first = recover();
  files.clearLog();
  files.setObserver([](const FaultyFileSystem::Event& event) {
    EXPECT_TRUE(event.operation == FileOperation::info || event.operation == FileOperation::open ||
                event.operation == FileOperation::read || event.operation == FileOperation::list)
        << static_cast<int>(event.operation) << event.path;
    EXPECT_TRUE(event.operation != FileOperation::open || event.path.find("/segments/") == std::string::npos)
        << "segments are not needed any more";
  });
  EXPECT_EQ(recover(), first);
  EXPECT_EQ(segments(), before);
}

TEST_F(RecordingRecoveryTest, MakesOnlyWhatIsMissingAndKeepsTheRest) {
  fullSegment(1000);
  askForEverything();
  const RecordingRecoveryPayload first = recover();
  std::map<std::string, std::string> whole;
  for (const std::string& name : everyOutput)
    whole[name] = bytesOf(name);
  const auto before = segments();
  const auto inodeOf = [&](const std::string& name) { return machineFileSystem().info(at(name))->inode; };
  for (std::size_t kept = 0; kept < std::size_t{1} << everyOutput.size(); ++kept) {
    SCOPED_TRACE(kept);
    std::map<std::string, std::uint64_t> inodes;
    for (std::size_t i = 0; i < everyOutput.size(); ++i) {
      if ((kept >> i & 1) != 0)
        inodes[everyOutput[i]] = inodeOf(everyOutput[i]);
      else {
        std::filesystem::remove(at(everyOutput[i]));
        write("." + everyOutput[i] + ".0123456789abcdef.tmp", "what a killed process was writing");
      }
    }
    EXPECT_EQ(recover(), first);
    EXPECT_EQ(names(), everyOutput);
    for (const std::string& name : everyOutput)
      EXPECT_EQ(bytesOf(name), whole[name]) << name;
    for (const auto& [name, inode] : inodes)
      EXPECT_EQ(inodeOf(name), inode) << name << " was made anew";
    EXPECT_EQ(segments(), before);
  }
}

TEST_F(RecordingRecoveryTest, TakesATornSegmentUpToItsLastWholeFragment) {
  const std::string path = fullSegment(1000);
  const std::string torn = fullSegment(1000, false); // one fragment, whose last samples were still held back
  const auto whole = bytesOf("segments/segment-0001.mp4");
  write("segments/segment-0001.mp4", whole + whole.substr(whole.size() / 2, 1000));
  const auto before = segments();
  askForEverything();
  const RecordingRecoveryPayload payload = recover();
  EXPECT_EQ(payload.clock.programDurationMs, 1000 + 981)
      << "as long as the longest track: 46 packets of sound";
  EXPECT_EQ(payload.tracks.at(1).durationMs, 1000 + 981);
  EXPECT_FALSE(movieAt(at("screen.mp4")).isFragmented);
  EXPECT_EQ(sampleBytesOf(at("screen.mp4"), 0).size(), 30U + 29U);
  EXPECT_EQ(segments(), before);
}

TEST_F(RecordingRecoveryTest, MakesOrdinaryFilesOfALoneTornSegment) {
  segment({videoOf(1000)}, false);
  recover();
  EXPECT_FALSE(movieAt(at("screen.mp4")).isFragmented);
  EXPECT_FALSE(movieAt(at("recording.mp4")).isFragmented);
}

TEST_F(RecordingRecoveryTest, ListsATraceThatHoldsAnything) {
  segment({videoOf(700)});
  request.recoverInteractions = true;
  EXPECT_THAT(ids(recover()), ElementsAre("screen")) << "none is there";
  write("interaction-events.jsonl", "");
  EXPECT_THAT(ids(recover()), ElementsAre("screen")) << "empty";
  write("interaction-events.jsonl", "x");
  const RecordingRecoveryPayload payload = recover();
  ASSERT_THAT(ids(payload), ElementsAre("screen", "interaction-events"));
  EXPECT_EQ(payload.tracks[1].sizeBytes, 1);
  EXPECT_EQ(payload.tracks[1].durationMs, 700);
  request.recoverInteractions = false;
  EXPECT_THAT(ids(recover()), ElementsAre("screen"));
  request.recoverInteractions = true;
  std::filesystem::remove(at("interaction-events.jsonl"));
  std::filesystem::create_symlink(at("screen.mp4"), at("interaction-events.jsonl"));
  EXPECT_THAT(ids(recover()), ElementsAre("screen")) << "a link";
  files.inject({FileOperation::info, "interaction-events.jsonl", 0, 1, EIO});
  EXPECT_THAT(ids(recover()), ElementsAre("screen")) << "cannot be looked at";
}

TEST_F(RecordingRecoveryTest, LeavesTheManifestAndStrangersAlone) {
  segment({videoOf(700)});
  const Names strangers = {".other.mp4.0123456789abcdef.tmp",
                           ".screen.mp4.0123456789abcde.tmp",
                           ".screen.mp4.0123456789abcdef0.tmp",
                           ".screen.mp4.0123456789ABCDEF.tmp",
                           ".screen.mp4.0123456789abcdef.tmp.mp4",
                           "native-manifest.json",
                           "native-manifest.json.tmp",
                           "screen.mp4.0123456789abcdef.tmp"};
  for (const std::string& name : strangers)
    write(name, "kept");
  std::filesystem::create_directory(at(".screen.mp4.1123456789abcdef.tmp"));
  std::filesystem::create_symlink(at("native-manifest.json"), at(".screen.mp4.2123456789abcdef.tmp"));
  write(".screen.mp4.3123456789abcdef.tmp", "removed");
  recover();
  EXPECT_FALSE(std::filesystem::exists(at(".screen.mp4.3123456789abcdef.tmp")));
  EXPECT_TRUE(std::filesystem::is_directory(at(".screen.mp4.1123456789abcdef.tmp")));
  EXPECT_TRUE(std::filesystem::is_symlink(at(".screen.mp4.2123456789abcdef.tmp")));
  for (const std::string& name : strangers)
    EXPECT_EQ(bytesOf(name), "kept") << name;
  for (const FaultyFileSystem::Event& event : files.log())
    EXPECT_TRUE(event.path != at("native-manifest.json"));
}

TEST_F(RecordingRecoveryTest, RemovesNothingForARequestThatIsRefused) {
  write(".screen.mp4.0123456789abcdef.tmp", "kept");
  request.segmentPaths = {at("segments/segment-0000.mp4")};
  EXPECT_EQ(error(), Error::invalidRequest) << "no such segment";
  EXPECT_THAT(names(), ElementsAre(".screen.mp4.0123456789abcdef.tmp"));
}

TEST_F(RecordingRecoveryTest, CodesSoundAnewThatCannotBeJoined) {
  fullSegment(1000);
  request.recoverSystemAudio = true;
  files.inject({FileOperation::write, "system-audio", 0, 1, EIO});
  EXPECT_EQ(error(), Error::mergeFailed) << "no coder";
  EXPECT_EQ(reencoder.calls.size(), 1U);
  EXPECT_THAT(names(), ElementsAre("screen.mp4"));
  reencoder.fails = false; // what it makes here is no sound
  files.inject({FileOperation::write, "system-audio", 0, 1, EIO});
  EXPECT_EQ(error(), Error::invalidMedia);
}

} // namespace
} // namespace tessarin
