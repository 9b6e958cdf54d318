// A recovery whose file layer fails at any of its operations, or that is killed there.

#include "support/RecordingRecoveryRig.hpp"

#include <gmock/gmock.h>

#include <set>

namespace tessarin {
namespace {

using namespace tessarin::testing;
using ::testing::ElementsAre;

class RecordingRecoveryFaults : public RecordingRecoveryTest {
 protected:
  RecordingRecoveryFaults() {
    files.spareSyncs();
    fullSegment(400);
    fullSegment(300, false);
    askForEverything();
    write("interaction-events.jsonl", "{}\n");
    before = segments();
    expected = recover();
    removeOutputs();
  }

  void removeOutputs() const {
    for (const std::string& name : everyOutput)
      std::filesystem::remove(at(name));
  }
  bool hasTemporaries() const {
    const Names found = names();
    return std::any_of(found.begin(), found.end(), [](const std::string& name) { return name[0] == '.'; });
  }
  // How a recovery ends.
  std::string outcome() {
    try {
      return recover() == expected ? "done" : "another answer";
    } catch (const FileFailure&) {
      return "file failure";
    } catch (const Failure<Error>& failure) {
      switch (failure.value()) {
      case Error::invalidRequest:
        return "invalidRequest";
      case Error::invalidMedia:
        return "invalidMedia";
      case Error::mergeFailed:
        return "mergeFailed";
      }
      throw;
    }
  }
  // How it may end when this operation fails.
  std::set<std::string> outcomesOf(const FaultyFileSystem::Event& event) const {
    const bool isOfTemporary = event.path.ends_with(".tmp");
    if (event.path == session() && event.operation == FileOperation::info)
      return {"file failure"};
    if (event.path == at("segments"))
      return {"invalidRequest"};
    // Once a file is in place, whether its directory could be synced changes nothing.
    if (event.path == session() && event.operation == FileOperation::sync)
      return {"done"};
    if (event.operation == FileOperation::list || event.operation == FileOperation::clone ||
        event.operation == FileOperation::remove)
      return {"done"};
    if (event.path.find("/segments/") != std::string::npos && event.operation != FileOperation::info)
      return {"mergeFailed"};
    if (event.path.find("/segments/") != std::string::npos)
      return {"invalidRequest", "mergeFailed"}; // of the path, or of the open file
    if (isOfTemporary)
      return {"mergeFailed"};
    if (event.path == at("interaction-events.jsonl"))
      return {"another answer"}; // without the trace
    return {"invalidMedia", "mergeFailed"};
  }

  std::map<std::string, std::string> before;
  RecordingRecoveryPayload expected;
};

TEST_F(RecordingRecoveryFaults, AnyOperationMayFailAndTheNextRunSucceeds) {
  files.clearLog();
  ASSERT_EQ(outcome(), "done");
  const std::vector<FaultyFileSystem::Event> clean = files.log();
  ASSERT_GT(clean.size(), 50U);
  std::map<FileOperation, std::size_t> counts;
  std::set<std::string> seen;
  for (const FaultyFileSystem::Event& planned : clean) {
    const std::size_t n = ++counts[planned.operation];
    SCOPED_TRACE(::testing::Message() << "operation " << static_cast<int>(planned.operation) << " number "
                                      << n << " on " << planned.path);
    removeOutputs();
    files.clearLog();
    files.failNth(planned.operation, n, EIO);
    const std::string ended = outcome();
    files.clearFaults();
    seen.insert(ended);
    EXPECT_TRUE(outcomesOf(planned).contains(ended)) << ended;
    EXPECT_FALSE(hasTemporaries());
    EXPECT_EQ(segments(), before);
    EXPECT_EQ(outcome(), "done");
  }
  EXPECT_THAT(seen, ElementsAre("another answer", "done", "file failure", "invalidMedia", "invalidRequest",
                                "mergeFailed"));
}

// A disk that gets worse and stays so, and one that ends a file early for once: the recovery fails by one of
// its errors, or it needs nothing of what failed.
TEST_F(RecordingRecoveryFaults, AnyOperationMayFailFromThenOnOrComeShort) {
  struct Damage {
    FileOperation operation;
    std::size_t times;
    std::optional<std::size_t> shortenedTo;
  };
  std::vector<Damage> damages;
  for (const FileOperation operation :
       {FileOperation::open, FileOperation::info, FileOperation::read, FileOperation::write,
        FileOperation::sync, FileOperation::copy, FileOperation::rename, FileOperation::list})
    damages.push_back({operation, FaultyFileSystem::always, std::nullopt});
  for (const std::size_t bytes : {std::size_t{0}, std::size_t{1}, std::size_t{40}}) {
    damages.push_back({FileOperation::read, 1, bytes});
    damages.push_back({FileOperation::write, 1, bytes});
  }
  for (const Damage& damage : damages) {
    removeOutputs();
    files.clearLog();
    ASSERT_EQ(outcome(), "done");
    const std::size_t count = files.count(damage.operation);
    ASSERT_GT(count, 0U);
    for (std::size_t n = 1; n <= count; ++n) {
      SCOPED_TRACE(::testing::Message() << "operation " << static_cast<int>(damage.operation) << " number "
                                        << n << (damage.shortenedTo ? " short" : " from then on"));
      removeOutputs();
      files.inject({.operation = damage.operation,
                    .skip = n - 1,
                    .times = damage.times,
                    .errorNumber = ENOSPC,
                    .shortenedTo = damage.shortenedTo});
      const std::string ended = outcome();
      files.clearFaults();
      // The last thing that is looked at is the trace, without which there is an answer too.
      const bool isOfTrace = damage.operation == FileOperation::info && n == count;
      EXPECT_EQ(ended == "another answer", isOfTrace);
      EXPECT_FALSE(hasTemporaries());
      EXPECT_EQ(segments(), before);
      EXPECT_EQ(outcome(), "done");
    }
  }
}

TEST_F(RecordingRecoveryFaults, AFullDiskIsAFailedMergeAndLeavesTheSpaceItTook) {
  for (const std::size_t stored : {std::size_t{0}, std::size_t{13}}) {
    for (const std::string& name : everyOutput) {
      SCOPED_TRACE(name);
      removeOutputs();
      files.inject({FileOperation::write, "." + name, 0, FaultyFileSystem::always, ENOSPC, stored});
      files.inject({FileOperation::copy, "." + name, 0, FaultyFileSystem::always, ENOSPC});
      EXPECT_EQ(outcome(), "mergeFailed");
      files.clearFaults();
      EXPECT_FALSE(hasTemporaries());
      EXPECT_FALSE(std::filesystem::exists(at(name)));
      EXPECT_EQ(segments(), before);
      EXPECT_EQ(outcome(), "done") << "with space again";
    }
  }
}

// From one operation on nothing is done any more, not even cleaning up: what is on disk is what a process
// leaves that is killed there.
TEST_F(RecordingRecoveryFaults, ItMayBeKilledAtAnyOperationAndTheNextRunSucceeds) {
  files.clearLog();
  ASSERT_EQ(outcome(), "done");
  const std::size_t operations = files.log().size();
  std::size_t leftTemporaries = 0;
  for (std::size_t last = 0; last < operations; ++last) {
    SCOPED_TRACE(last);
    removeOutputs();
    std::size_t done = 0;
    files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (done++ >= last)
        throw FileFailure(event.operation, EIO);
    });
    EXPECT_NE(outcome(), "done");
    files.setObserver(nullptr);
    leftTemporaries += hasTemporaries() ? 1 : 0;
    EXPECT_EQ(segments(), before);
    EXPECT_EQ(outcome(), "done");
    EXPECT_FALSE(hasTemporaries());
  }
  EXPECT_GT(leftTemporaries, 10U);
}

} // namespace
} // namespace tessarin
