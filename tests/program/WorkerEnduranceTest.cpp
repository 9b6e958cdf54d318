#include "DesktopFixture.hpp"
#include "PrivateServer.hpp"
#include "WorkerProcess.hpp"

#include "support/TemporaryDirectory.hpp"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

namespace tessarin {
namespace {

namespace fs = std::filesystem;

struct Footprint {
  std::int64_t residentKilobytes = 0;
  std::int64_t descriptors = 0;
  std::int64_t mappings = 0;
  std::int64_t threads = 0;
};

Footprint footprintOf(pid_t process) {
  const std::string folder = "/proc/" + std::to_string(process);
  Footprint result;
  std::ifstream status(folder + "/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:")
      status >> result.residentKilobytes;
    else if (word == "Threads:")
      status >> result.threads;
  }
  result.descriptors = std::distance(fs::directory_iterator(folder + "/fd"), fs::directory_iterator());
  std::ifstream maps(folder + "/maps");
  for (std::string line; std::getline(maps, line);)
    ++result.mappings;
  return result;
}

// The sanitizers keep memory of their own, and one of them a thread.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool isInstrumented = true;
#else
constexpr bool isInstrumented = false;
#endif
#if defined(__SANITIZE_THREAD__)
constexpr int threadsAtRest = 3;
#else
constexpr int threadsAtRest = 2; // the main loop and the job
#endif

// A thread that has opened a connection may need a moment to end behind it.
Footprint footprintAtRest(pid_t process) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  Footprint result = footprintOf(process);
  while (result.threads > threadsAtRest && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    result = footprintOf(process);
  }
  EXPECT_EQ(result.threads, threadsAtRest);
  return result;
}

class WorkerEnduranceTest : public DesktopFixture {
 protected:
  void serve(WorkerProcess& worker, int listings, int preparations) {
    const std::string session = directory / anyRequestID;
    for (int i = 0; i < listings; ++i)
      ASSERT_NE(worker.list().find(R"("ok":true)"), std::string::npos);
    for (int i = 0; i < preparations; ++i) {
      fs::create_directory(session);
      ASSERT_NE(worker.prepare(session).find(R"("ok":true)"), std::string::npos);
      ASSERT_NE(worker.prepare(session).find(R"("code":"outputFailed")"), std::string::npos) << "not empty";
      fs::remove_all(session);
    }
  }

  TemporaryDirectory directory;
};

TEST_F(WorkerEnduranceTest, DoesNotGrowByItsRequests) {
  const auto client = desktop.client({"--at", "30,40", "--size", "400x300", "--paint", "photo"});
  WorkerProcess worker(desktop.display());
  serve(worker, 50, 10);
  const Footprint before = footprintAtRest(worker.process().pid());
  serve(worker, 500, 50);
  const Footprint after = footprintAtRest(worker.process().pid());
  EXPECT_EQ(after.descriptors, before.descriptors);
  if (!isInstrumented) {
    EXPECT_LE(after.mappings, before.mappings + 2);
    // A leak of as little as a kilobyte a request would be twice that.
    EXPECT_LE(after.residentKilobytes, before.residentKilobytes + 300);
  }
  RecordProperty("residentKilobytesBefore", std::to_string(before.residentKilobytes));
  RecordProperty("residentKilobytesAfter", std::to_string(after.residentKilobytes));
  EXPECT_EQ(worker.end(), 0);
}

TEST_F(WorkerEnduranceTest, KeepsNothingOfServersThatAreGone) {
  PrivateServer server;
  WorkerProcess worker(server.display());
  const auto serveOnce = [&] { return worker.list().find(R"("ok":true)") != std::string::npos; };
  ASSERT_TRUE(serveOnce());
  server.restart();
  ASSERT_TRUE(serveOnce());
  const Footprint before = footprintAtRest(worker.process().pid());
  for (int i = 0; i < 8; ++i) {
    server.restart();
    ASSERT_TRUE(serveOnce());
  }
  const Footprint after = footprintAtRest(worker.process().pid());
  EXPECT_EQ(after.descriptors, before.descriptors);
  if (!isInstrumented) {
    EXPECT_LE(after.mappings, before.mappings + 2);
  }
  EXPECT_EQ(worker.end(), 0);
}

} // namespace
} // namespace tessarin
