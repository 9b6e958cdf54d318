#include "live/InteractionTesting.hpp"

#include <filesystem>
#include <latch>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

// How watching ends.
class InteractionStop : public InteractionFixture {};

TEST_F(InteractionStop, TellsNothingOnceItHasStopped) {
  startDesktop();
  for (int i = 0; i < 20; ++i) {
    std::atomic<bool> hasStopped = false;
    std::atomic<bool> wasLate = false;
    monitor = source->monitor({.onButton = [&](const ButtonPress&) { wasLate = wasLate || hasStopped; },
                               .onKey = [&](const KeyPress&) { wasLate = wasLate || hasStopped; }});
    ASSERT_TRUE(monitor);
    std::thread presser([&] {
      for (int j = 0; j < 50; ++j) {
        input->click();
        input->tap(KEY_A);
      }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(i));
    monitor->stop();
    hasStopped = true;
    monitor->stop();
    presser.join();
    EXPECT_FALSE(wasLate);
  }
}

TEST_F(InteractionStop, StopsFromAHandlerAndFromSeveralThreads) {
  startDesktop();
  std::latch isCalled(1);
  std::atomic<int> calls = 0;
  std::atomic<InteractionMonitor*> own = nullptr;
  monitor = source->monitor({.onButton =
                                 [&](const ButtonPress&) {
                                   while (!own)
                                     std::this_thread::yield();
                                   own.load()->stop();
                                   if (++calls == 1)
                                     isCalled.count_down();
                                 },
                             .onKey = nullptr});
  ASSERT_TRUE(monitor);
  own = monitor.get();
  for (int i = 0; i < 100; ++i)
    input->click();
  isCalled.wait();
  std::thread first([&] { monitor->stop(); });
  std::thread second([&] { monitor->stop(); });
  first.join();
  second.join();
  EXPECT_EQ(calls, 1);
}

TEST_F(InteractionStop, EndsQuietlyWithTheServer) {
  startDesktop();
  watch();
  input->click();
  presses.buttons(1);
  EXPECT_FALSE(source->isSecureInput());
  desktop->killServer();
  const auto start = std::chrono::steady_clock::now();
  while (!source->isSecureInput() && std::chrono::steady_clock::now() - start < 10s)
    std::this_thread::sleep_for(1ms);
  EXPECT_TRUE(source->isSecureInput()) << "what is not known may be secret";
  monitor->stop();
  monitor.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
  EXPECT_EQ(presses.buttons(0).size(), 1U);
}

TEST_F(InteractionStop, StopsThoughTheServerStandsStill) {
  startDesktop();
  KeyboardHolder holder(*desktop);
  watch();
  holder.command("grab"); // so that there is much to ask
  input->tap(KEY_A);
  presses.keys(1);
  ASSERT_EQ(kill(desktop->serverPid(), SIGSTOP), 0);
  std::this_thread::sleep_for(300ms);
  const auto start = std::chrono::steady_clock::now();
  monitor->stop();
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  ASSERT_EQ(kill(desktop->serverPid(), SIGCONT), 0);
}

std::size_t entries(const std::string& directory) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

TEST_F(InteractionStop, LeavesNoDescriptorAndNoThread) {
  startDesktop();
  source->pointer();
  watch();
  monitor->stop();
  monitor.reset();
  const std::size_t descriptors = entries("/proc/self/fd");
  const std::size_t threads = entries("/proc/self/task");
  for (int i = 0; i < 20; ++i) {
    watch();
    input->click();
    monitor->stop();
    monitor.reset();
  }
  EXPECT_EQ(entries("/proc/self/fd"), descriptors);
  const auto deadline = std::chrono::steady_clock::now() + 5s; // the handshakes' threads end by themselves
  while (entries("/proc/self/task") > threads && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(5ms);
  EXPECT_LE(entries("/proc/self/task"), threads);
}

} // namespace
} // namespace tessarin
