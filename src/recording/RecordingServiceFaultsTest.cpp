// Whole sessions on a file layer that goes wrong once, or from some moment on: at each of the operations that
// a good run makes, of each kind. What the host is told, that what was finished stays as it was, and that
// nothing half-made is left behind.

#include "support/RecordingFaultRun.hpp"

#include <cerrno>
#include <ostream>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using namespace tessarin::testing;
using ::testing::HasSubstr;

struct Scenario {
  const char* name;
  void (*prepare)(FaultRig& rig);
};

const Scenario stopped{"Stop", [](FaultRig& rig) {
                         rig.useEverything();
                         rig.thenPauseAndResume();
                         rig.thenEnd([&rig] { rig.send("stop"); });
                       }};
const Scenario cancelledLater{"Cancel", [](FaultRig& rig) {
                                rig.useEverything();
                                rig.thenPauseAndResume();
                                rig.thenEnd([&rig] { rig.send("cancel"); });
                              }};
const Scenario abandoned{"EndOfInput", [](FaultRig& rig) {
                           rig.useEverything();
                           rig.thenPauseAndResume();
                           rig.thenEnd([&rig] { rig.endInput(); });
                         }};
// One segment of the screen, which is copied rather than joined.
const Scenario lone{"LoneSegment", [](FaultRig& rig) {
                      rig.then([&rig] {
                        rig.act();
                        rig.send("stop");
                      });
                    }};

struct Damage {
  const char* name;
  int errorNumber;
  bool lasts = false;    // from then on
  bool shortens = false; // some of what is written or read comes through
};

std::vector<Damage> damagesOf(FileOperation operation) {
  std::vector<Damage> damages{{"broken once", EIO}, {"full from then on", ENOSPC, true}};
  if (operation == FileOperation::write || operation == FileOperation::read)
    damages.push_back({"cut short", ENOSPC, false, true});
  return damages;
}

FaultyFileSystem::Fault faultOf(FileOperation operation, std::size_t n, const Damage& damage) {
  FaultyFileSystem::Fault fault{.operation = operation, .skip = n - 1, .errorNumber = damage.errorNumber};
  if (damage.lasts)
    fault.times = FaultyFileSystem::always;
  if (damage.shortens)
    fault.shortenedTo = 40;
  return fault;
}

struct FaultCase {
  Scenario scenario;
  const char* name;
  FileOperation operation;
};
void PrintTo(const FaultCase& it, std::ostream* stream) {
  *stream << it.scenario.name << it.name;
}

class RecordingServiceFaults : public ::testing::TestWithParam<FaultCase> {};

// Failures of these change nothing for the host: the watch says that it knows nothing, a copy takes the place
// of a clone, and what could not be removed stays.
bool isHarmless(FileOperation operation) {
  return operation == FileOperation::list || operation == FileOperation::space ||
         operation == FileOperation::clone || operation == FileOperation::remove;
}

TEST_P(RecordingServiceFaults, EachIsToldAndCostsNothingThatWasFinished) {
  const auto [scenario, name, operation] = GetParam();
  FaultRun good(scenario.prepare);
  good.run();
  good.check(good.rig.entries());
  const std::size_t count = good.rig.files.count(operation);
  ASSERT_GT(count, 0u);
  const std::vector<std::string> entries = good.rig.entries();
  std::size_t noticed = 0;
  for (const Damage& damage : damagesOf(operation))
    for (std::size_t n = 1; n <= count; ++n) {
      SCOPED_TRACE(std::string(damage.name) + " at " + std::to_string(n));
      FaultRun run(scenario.prepare);
      run.rig.files.inject(faultOf(operation, n, damage));
      run.run();
      if (operation == FileOperation::remove)
        run.noteUnremovable(n, damage.lasts);
      run.check(entries);
      if (isHarmless(operation)) {
        EXPECT_EQ(run.status, good.status);
      }
      if (run.canBeRecovered())
        run.recover();
      noticed += run.rig.events() != good.rig.events() ? 1 : 0;
      if (HasFailure())
        return; // one is enough to see
    }
  if (!isHarmless(operation)) {
    EXPECT_GT(noticed, 0u);
  }
}

std::vector<FaultCase> allCases() {
  std::vector<FaultCase> cases;
  for (const Scenario& scenario : {stopped, cancelledLater, abandoned, lone}) {
    cases.push_back({scenario, "Open", FileOperation::open});
    cases.push_back({scenario, "Write", FileOperation::write});
    cases.push_back({scenario, "Sync", FileOperation::sync});
    cases.push_back({scenario, "Rename", FileOperation::rename});
    cases.push_back({scenario, "MakeDirectory", FileOperation::makeDirectory});
    cases.push_back({scenario, "Read", FileOperation::read});
    cases.push_back({scenario, "Info", FileOperation::info});
  }
  for (const Scenario& scenario : {stopped, cancelledLater, abandoned}) {
    cases.push_back({scenario, "List", FileOperation::list});
    cases.push_back({scenario, "Space", FileOperation::space});
  }
  cases.push_back({cancelledLater, "Remove", FileOperation::remove});
  for (const Scenario& scenario : {stopped, lone})
    cases.push_back({scenario, "Copy", FileOperation::copy});
  cases.push_back({lone, "Clone", FileOperation::clone});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(All, RecordingServiceFaults, ::testing::ValuesIn(allCases()), [](const auto& row) {
  return std::string(row.param.scenario.name) + row.param.name;
});

// A disk that takes a minute for each thing makes the ends of segments slow, and nothing else: no watch takes
// it for a source that has fallen silent.
TEST(RecordingServiceSlowDisk, LosesNothing) {
  FaultRun run(stopped.prepare);
  for (const FileOperation operation :
       {FileOperation::write, FileOperation::sync, FileOperation::copy, FileOperation::rename})
    for (const char* const path : {"/segments/", "native-manifest", ".mp4", ".m4a"})
      run.rig.files.inject(
          {.operation = operation, .pathPart = path, .times = FaultyFileSystem::always, .delayedBy = [&run] {
             run.rig.clock.advance(1min);
           }});
  run.run();
  run.check(run.rig.entries());
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.rig.lastEvent(), HasSubstr(R"("programDurationMs":2033)"));
  EXPECT_GT(run.rig.clock.elapsed(), 30min);
}

} // namespace
} // namespace tessarin
