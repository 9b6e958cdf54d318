#include "support/CommandLineRig.hpp"
#include "support/SyntheticMovie.hpp"

#include <filesystem>

namespace tessarin {
namespace {

const std::string sessionID = "0B8C6A52-3C5A-4F1B-9E43-1F2D3C4B5A69";

class NativeCLIRecoveryTest : public CommandLineRig {
 protected:
  NativeCLIRecoveryTest() { std::filesystem::create_directories(session() + "/segments"); }

  std::string session() const { return directory / sessionID; }
  std::string segment() const { return session() + "/segments/segment-0000.mp4"; }
  NativeExecution recover(const std::string& key = "sessionId") {
    return runWith("recover-recording", R"({")" + key + R"(":")" + sessionID + R"(","outputDirectory":")" +
                                            session() + R"(","segmentPaths":[")" + segment() + R"("]})");
  }
};

TEST_F(NativeCLIRecoveryTest, ARequestThatDoesNotDecodeOrPassIsRefusedAsFailedWork) {
  const NativeExecution refused = failure("invalidRequest", "The recording recovery request is invalid.", 1);
  for (const char* const request : {"1", "[]", "{}", R"({"sessionId":"x","outputDirectory":"/x"})",
                                    R"({"sessionId":"x","outputDirectory":"/x","segmentPaths":[]})"})
    EXPECT_EQ(runWith("recover-recording", request), refused) << request;
  EXPECT_EQ(recover(), refused) << "no such segment";
  EXPECT_EQ(machine.calls, 0);
}

TEST_F(NativeCLIRecoveryTest, AnswersWithWhatThereIsNow) {
  testing::writeSyntheticMovie(segment(), {testing::videoOf(700)});
  const NativeExecution answer = recover();
  const std::string size = std::to_string(std::filesystem::file_size(session() + "/screen.mp4"));
  const auto entry = [&](const std::string& kind, const std::string& name) {
    return R"({"codec":"h264","durationMs":700,"heightPixels":240,)" + kind + R"(,"path":")" + session() +
           "/" + name + R"(","sizeBytes":)" + size + R"(,"widthPixels":320})";
  };
  EXPECT_EQ(answer,
            success(R"({"clock":{"programDurationMs":700},"deliverables":[)" +
                    entry(R"("id":"share-video","kind":"shareVideo")", "recording.mp4") + R"(],"tracks":[)" +
                    entry(R"("id":"screen","kind":"screenVideo","mediaType":"video")", "screen.mp4") + "]}"));
  EXPECT_EQ(recover("sessionID"), answer) << "again, with the other spelling";
  EXPECT_TRUE(reencoder.calls.empty());
}

TEST_F(NativeCLIRecoveryTest, TellsBadMediaAndFailedMergesAlike) {
  const NativeExecution failed =
      failure("recordingMergeFailed", "The finalized recording segments could not be recovered.", 1);
  directory.write(sessionID + "/segments/segment-0000.mp4", "no movie");
  EXPECT_EQ(recover(), failed);
  directory.write(sessionID + "/recording.mp4", "no movie");
  EXPECT_EQ(recover(), failed);
}

TEST_F(NativeCLIRecoveryTest, ASessionThatCannotBeLookedAtIsUnexpected) {
  testing::writeSyntheticMovie(segment(), {testing::videoOf(700)});
  files.failNth(FileOperation::info, 1, EIO);
  EXPECT_EQ(recover(), failure("internalError", "The native helper encountered an unexpected error.", 1));
}

} // namespace
} // namespace tessarin
