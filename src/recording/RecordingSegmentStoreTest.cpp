#include "recording/RecordingSegmentStore.hpp"

#include "support/FailureOf.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/RecordingRequests.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <thread>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using Error = RecordingSegmentStoreError;

std::optional<Error> errorOf(const std::function<void()>& action) {
  return failureOf<Error>(action);
}

class RecordingSegmentStoreTest : public ::testing::Test {
 protected:
  RecordingSegmentStoreTest() { std::filesystem::create_directory(session); }

  RecordingSegmentStore makeStore() { return RecordingSegmentStore(files, sampleSessionID, session); }

  // Allocates a segment and puts a file where it belongs.
  PendingRecordingSegment recordedSegment(RecordingSegmentStore& store) const {
    PendingRecordingSegment pending = store.allocateNextSegment();
    write("segments/" + std::filesystem::path(pending.path).filename().string());
    return pending;
  }

  void write(const std::string& name) const { directory.write(sampleSessionID + "/" + name, "bytes"); }
  std::string read(const std::string& name) const { return directory.read(sampleSessionID + "/" + name); }
  bool has(const std::string& name) const { return std::filesystem::exists(session + "/" + name); }
  std::string segmentJson(const std::string& name, int index, int durationMs, int sizeBytes) const {
    return R"({"durationMs":)" + std::to_string(durationMs) + R"(,"index":)" + std::to_string(index) +
           R"(,"path":")" + session + "/segments/" + name + R"(","sizeBytes":)" + std::to_string(sizeBytes) +
           "}";
  }
  std::string manifestJson(const std::string& segments) const {
    return R"({"schemaVersion":1,"segments":[)" + segments + R"(],"sessionId":")" + sampleSessionID + "\"}\n";
  }

  TemporaryDirectory directory;
  const std::string session = directory / sampleSessionID;
  FaultyFileSystem files{machineFileSystem()};
};

TEST_F(RecordingSegmentStoreTest, LaysOutTheSessionDirectory) {
  const RecordingSegmentStore store = makeStore();
  EXPECT_EQ(store.sessionID(), sampleSessionID);
  const RecordingSessionPaths& paths = store.paths();
  EXPECT_EQ(paths.sessionDirectory, session);
  EXPECT_EQ(paths.segmentsDirectory, session + "/segments");
  EXPECT_EQ(paths.finalOutput, session + "/recording.mp4");
  EXPECT_EQ(paths.screenOutput, session + "/screen.mp4");
  EXPECT_EQ(paths.cameraOutput, session + "/camera.mp4");
  EXPECT_EQ(paths.systemAudioOutput, session + "/system-audio.m4a");
  EXPECT_EQ(paths.microphoneOutput, session + "/microphone.m4a");
  EXPECT_EQ(paths.interactionEvents, session + "/interaction-events.jsonl");
  EXPECT_EQ(paths.sensorData, session + "/sensor-data.jsonl");
  EXPECT_EQ(paths.manifest, session + "/native-manifest.json");
  EXPECT_TRUE(std::filesystem::is_directory(session + "/segments"));
  EXPECT_FALSE(has("native-manifest.json"));
  EXPECT_TRUE(store.segments().empty());
}

TEST_F(RecordingSegmentStoreTest, TakesAnExistingSegmentsDirectoryAndASlashAtTheEnd) {
  makeStore();
  const RecordingSegmentStore again(files, sampleSessionID, session + "//");
  EXPECT_EQ(again.paths().manifest, session + "/native-manifest.json");
}

TEST_F(RecordingSegmentStoreTest, RefusesADirectoryThatIsNotTheSessions) {
  const auto errorFor = [&](const std::string& id, const std::string& path) {
    return errorOf([&] { const RecordingSegmentStore store(files, id, path); });
  };
  EXPECT_EQ(errorFor("not-a-uuid", directory / "not-a-uuid"), Error::invalidSessionDirectory);
  EXPECT_EQ(errorFor(sampleSessionID, directory.path()), Error::invalidSessionDirectory);
  EXPECT_EQ(errorFor(sampleSessionID, ""), Error::invalidSessionDirectory);
  const std::string other = "11111111-2222-3333-4444-555555555555";
  EXPECT_EQ(errorFor(other, directory / other), Error::invalidSessionDirectory); // not there
  directory.write(other, "a file");
  EXPECT_EQ(errorFor(other, directory / other), Error::invalidSessionDirectory);
  const std::string link = "22222222-2222-3333-4444-555555555555";
  std::filesystem::create_directory_symlink(session, directory / link);
  EXPECT_EQ(errorFor(link, directory / link), Error::invalidSessionDirectory);
  EXPECT_EQ(errorFor(link, (directory / link) + "/"), Error::invalidSessionDirectory);
  EXPECT_FALSE(has("segments"));

  files.failAlways(FileOperation::info, EACCES);
  EXPECT_EQ(errorOf([&] { makeStore(); }), Error::invalidSessionDirectory);
}

TEST_F(RecordingSegmentStoreTest, FailsWhenSegmentsCannotBeMade) {
  files.failNth(FileOperation::makeDirectory, 1, EROFS);
  EXPECT_EQ(errorOf([&] { makeStore(); }), Error::filesystem);
  write("segments"); // a file in the way
  EXPECT_EQ(errorOf([&] { makeStore(); }), Error::filesystem);
}

TEST_F(RecordingSegmentStoreTest, NumbersSegmentsInOrderAndUsesUpEveryNumber) {
  RecordingSegmentStore store = makeStore();
  EXPECT_EQ(store.allocateNextSegment(),
            (PendingRecordingSegment{0, session + "/segments/segment-0000.mp4"}));
  EXPECT_EQ(store.allocateNextSegment(),
            (PendingRecordingSegment{1, session + "/segments/segment-0001.mp4"}));
}

TEST_F(RecordingSegmentStoreTest, GrowsPastFourDigits) {
  RecordingSegmentStore store = makeStore();
  PendingRecordingSegment pending;
  for (int i = 0; i <= 10000; ++i)
    pending = store.allocateNextSegment();
  EXPECT_EQ(pending, (PendingRecordingSegment{10000, session + "/segments/segment-10000.mp4"}));
  write("segments/segment-10000.mp4");
  store.finalize(pending, 5, 6);
  EXPECT_EQ(read("native-manifest.json"), manifestJson(segmentJson("segment-10000.mp4", 10000, 5, 6)));
}

TEST_F(RecordingSegmentStoreTest, DoesNotGiveOutANameThatIsTaken) {
  RecordingSegmentStore first = makeStore();
  recordedSegment(first);
  RecordingSegmentStore second = makeStore();
  EXPECT_EQ(errorOf([&] { second.allocateNextSegment(); }), Error::outputAlreadyExists);
  std::filesystem::remove(session + "/segments/segment-0000.mp4");
  EXPECT_EQ(second.allocateNextSegment().index, 0);

  std::filesystem::create_symlink("/nowhere", session + "/segments/segment-0001.mp4");
  EXPECT_EQ(errorOf([&] { second.allocateNextSegment(); }), Error::outputAlreadyExists);
}

TEST_F(RecordingSegmentStoreTest, GivesOutNothingWhenItCannotLook) {
  RecordingSegmentStore store = makeStore();
  files.failNth(FileOperation::info, 1, EIO);
  EXPECT_EQ(errorOf([&] { store.allocateNextSegment(); }), Error::filesystem);
  EXPECT_EQ(store.allocateNextSegment().index, 0);
}

TEST_F(RecordingSegmentStoreTest, EntersFinishedSegmentsInTheManifest) {
  RecordingSegmentStore store = makeStore();
  const PendingRecordingSegment first = recordedSegment(store);
  store.allocateNextSegment(); // given up, leaves a gap
  const PendingRecordingSegment third = recordedSegment(store);

  store.finalize(first, 1000, 5);
  const std::string firstJson = segmentJson("segment-0000.mp4", 0, 1000, 5);
  EXPECT_EQ(read("native-manifest.json"), manifestJson(firstJson));
  store.finalize(third, 1, 1);
  EXPECT_EQ(read("native-manifest.json"),
            manifestJson(firstJson + "," + segmentJson("segment-0002.mp4", 2, 1, 1)));
  EXPECT_EQ(store.segments(),
            (std::vector<NativeRecordingSegment>{{0, first.path, 1000, 5}, {2, third.path, 1, 1}}));
  EXPECT_FALSE(has("native-manifest.json.tmp"));
}

TEST_F(RecordingSegmentStoreTest, RefusesWhatIsNoFinishedSegment) {
  RecordingSegmentStore store = makeStore();
  const PendingRecordingSegment good = recordedSegment(store);
  store.finalize(good, 1, 1);
  const std::string before = read("native-manifest.json");
  const PendingRecordingSegment next = recordedSegment(store);
  const PendingRecordingSegment missing = store.allocateNextSegment();
  write("segment-0001.mp4");
  write("segments/other.mp4");

  const auto errorFor = [&](const PendingRecordingSegment& pending, std::int64_t durationMs,
                            std::int64_t sizeBytes) {
    return errorOf([&] { store.finalize(pending, durationMs, sizeBytes); });
  };
  EXPECT_EQ(errorFor(next, 0, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor(next, -1, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor(next, 1, 0), Error::invalidMedia);
  EXPECT_EQ(errorFor(missing, 1, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor({1, session + "/segment-0001.mp4"}, 1, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor({1, session + "/segments/../segments/segment-0001.mp4"}, 1, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor({1, session + "/segments/other.mp4"}, 1, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor({7, next.path}, 1, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor({0, next.path}, 1, 1), Error::invalidMedia);
  EXPECT_EQ(errorFor(good, 1, 1), Error::segmentAlreadyFinalized);
  EXPECT_EQ(errorFor(good, 0, 1), Error::invalidMedia); // the first check that fails decides
  EXPECT_EQ(read("native-manifest.json"), before);
  EXPECT_EQ(store.segments().size(), 1U);
  EXPECT_EQ(errorFor(next, 1, 1), std::nullopt);
}

TEST_F(RecordingSegmentStoreTest, CountsASegmentThatCannotBeLookedAtAsMissing) {
  RecordingSegmentStore store = makeStore();
  const PendingRecordingSegment pending = recordedSegment(store);
  files.failNth(FileOperation::info, 1, EIO);
  EXPECT_EQ(errorOf([&] { store.finalize(pending, 1, 1); }), Error::invalidMedia);
}

TEST_F(RecordingSegmentStoreTest, ReplacesTheManifestOnlyByOneThatIsOnDisk) {
  RecordingSegmentStore store = makeStore();
  const PendingRecordingSegment pending = recordedSegment(store);
  files.clearLog();
  store.finalize(pending, 1, 1);
  const std::string manifest = session + "/native-manifest.json";
  std::vector<std::pair<FileOperation, std::string>> operations;
  for (const FaultyFileSystem::Event& event : files.log())
    if (event.operation != FileOperation::info)
      operations.emplace_back(event.operation, event.path);
  EXPECT_EQ(operations,
            (std::vector<std::pair<FileOperation, std::string>>{{FileOperation::open, manifest + ".tmp"},
                                                                {FileOperation::write, manifest + ".tmp"},
                                                                {FileOperation::sync, manifest + ".tmp"},
                                                                {FileOperation::rename, manifest + ".tmp"},
                                                                {FileOperation::sync, session}}));
}

TEST_F(RecordingSegmentStoreTest, LeavesMemoryAndDiskAsTheyWereWhenTheManifestCannotBeWritten) {
  RecordingSegmentStore store = makeStore();
  store.finalize(recordedSegment(store), 1000, 5);
  const std::string before = read("native-manifest.json");
  const PendingRecordingSegment pending = recordedSegment(store);

  for (const FileOperation operation :
       {FileOperation::open, FileOperation::write, FileOperation::sync, FileOperation::rename}) {
    files.inject({operation, "native-manifest.json.tmp", 0, 1, ENOSPC, std::nullopt});
    EXPECT_EQ(errorOf([&] { store.finalize(pending, 2000, 6); }), Error::filesystem);
    EXPECT_EQ(read("native-manifest.json"), before);
    EXPECT_EQ(store.segments().size(), 1U);
    EXPECT_FALSE(has("native-manifest.json.tmp"));
  }
  files.inject({FileOperation::write, "", 0, 1, ENOSPC, 10});
  EXPECT_EQ(errorOf([&] { store.finalize(pending, 2000, 6); }), Error::filesystem);
  EXPECT_EQ(read("native-manifest.json"), before);

  store.finalize(pending, 2000, 6);
  EXPECT_EQ(store.segments().size(), 2U);
}

TEST_F(RecordingSegmentStoreTest, KeepsMemoryAndDiskInAgreementWhicheverOperationFails) {
  for (const FileOperation operation : {FileOperation::open, FileOperation::info, FileOperation::write,
                                        FileOperation::sync, FileOperation::rename, FileOperation::remove})
    for (std::size_t n = 1, happened = n; n <= happened; ++n) {
      std::filesystem::remove_all(session);
      std::filesystem::create_directory(session);
      RecordingSegmentStore store = makeStore();
      files.clearLog();
      files.failNth(operation, n, EIO);
      for (int i = 0; i < 4; ++i) {
        try {
          store.finalize(recordedSegment(store), 1, 1);
        } catch (const Failure<Error>&) {
        }
        std::string segments;
        for (const NativeRecordingSegment& segment : store.segments())
          segments += (segments.empty() ? "" : ",") + json::encode(segment);
        ASSERT_EQ(has("native-manifest.json"), !segments.empty());
        if (!segments.empty()) {
          ASSERT_EQ(read("native-manifest.json"), manifestJson(segments));
        }
      }
      happened = files.count(operation);
      files.clearFaults();
    }
}

TEST_F(RecordingSegmentStoreTest, OverwritesAStaleTemporaryManifest) {
  write("native-manifest.json.tmp");
  RecordingSegmentStore store = makeStore();
  store.finalize(recordedSegment(store), 1, 1);
  EXPECT_EQ(read("native-manifest.json"), manifestJson(segmentJson("segment-0000.mp4", 0, 1, 1)));
  EXPECT_FALSE(has("native-manifest.json.tmp"));
}

TEST_F(RecordingSegmentStoreTest, DoesNotWriteThroughALinkInTheTemporarysPlace) {
  const std::string victim = directory.write("victim", "untouched");
  std::filesystem::create_symlink(victim, session + "/native-manifest.json.tmp");
  RecordingSegmentStore store = makeStore();
  store.finalize(recordedSegment(store), 1, 1);
  EXPECT_EQ(read("native-manifest.json"), manifestJson(segmentJson("segment-0000.mp4", 0, 1, 1)));
  EXPECT_EQ(directory.read("victim"), "untouched");
}

TEST_F(RecordingSegmentStoreTest, DiscardsEveryFileItKnowsOf) {
  RecordingSegmentStore store = makeStore();
  store.finalize(recordedSegment(store), 1, 1);
  store.finalize(recordedSegment(store), 1, 1);
  recordedSegment(store); // never reached the store
  const std::vector<std::string> outputs = {"recording.mp4",    "screen.mp4",     "camera.mp4",
                                            "system-audio.m4a", "microphone.m4a", "interaction-events.jsonl",
                                            "sensor-data.jsonl"};
  for (const std::string& name : outputs)
    write(name);
  write("notes.txt");
  files.clearLog();
  store.discardAll();

  std::vector<std::string> removed;
  for (const FaultyFileSystem::Event& event : files.log())
    removed.push_back(event.path.substr(session.size() + 1));
  std::vector<std::string> expected = {"segments/segment-0000.mp4", "segments/segment-0001.mp4",
                                       "native-manifest.json"};
  expected.insert(expected.end(), outputs.begin(), outputs.end());
  EXPECT_EQ(removed, expected);
  for (const std::string& name : expected)
    EXPECT_FALSE(has(name)) << name;
  EXPECT_TRUE(has("segments/segment-0002.mp4"));
  EXPECT_TRUE(has("notes.txt"));
  EXPECT_TRUE(store.segments().empty());
}

TEST_F(RecordingSegmentStoreTest, DiscardsASessionWithNothingInIt) {
  RecordingSegmentStore store = makeStore();
  store.discardAll();
  EXPECT_TRUE(has("segments"));
}

TEST_F(RecordingSegmentStoreTest, DiscardsWhatItCanWhenARemovalFails) {
  RecordingSegmentStore store = makeStore();
  store.finalize(recordedSegment(store), 1, 1);
  write("screen.mp4");
  files.failNth(FileOperation::remove, 1, EACCES);
  store.discardAll();
  EXPECT_TRUE(has("segments/segment-0000.mp4"));
  EXPECT_FALSE(has("native-manifest.json"));
  EXPECT_FALSE(has("screen.mp4"));
  EXPECT_TRUE(store.segments().empty());
}

TEST_F(RecordingSegmentStoreTest, SerialisesFinishersOnSeveralThreads) {
  RecordingSegmentStore store = makeStore();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 5; ++i)
        store.finalize(recordedSegment(store), 1, 1);
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(store.segments().size(), 20U);
  const auto manifest = json::decode<NativeRecordingManifest>(read("native-manifest.json"));
  EXPECT_EQ(manifest.segments, store.segments());
}

} // namespace
} // namespace tessarin
