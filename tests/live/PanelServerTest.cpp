#include "PanelFixture.hpp"

#include "backends/x11/Discovery.hpp"

#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <filesystem>
#include <optional>

namespace tessarin {
namespace {

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

std::ptrdiff_t entries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

TEST_F(PanelFixture, AfterTheServersEndEveryCallDoesNothingAndNothingSpins) {
  start();
  auto tested = panel({100, 100, 40, 40});
  auto second = panel({10, 10, 40, 40}, true);
  tested->setPicture(plainPicture(40, 40, 0xFF00FF00));
  ASSERT_TRUE(becomes(120, 120, 0x00FF00));
  Hands hands(desktop->display());
  hands.moveTo(120, 120);
  hands.press();
  ASSERT_TRUE(eventually([&] { return tested->told() == std::vector<std::string>{"down 120,120"}; }));

  desktop->killServer();
  EXPECT_TRUE(eventually([&] { return tested->told().back() == "up"; }));
  const auto before = processorSeconds();
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_LT(processorSeconds() - before, 0.05);

  const auto id = tested->id();
  EXPECT_NE(id, 0U);
  tested->setFrame({1, 2, 3, 4});
  tested->setFrame({});
  tested->setPicture(plainPicture(400, 400, 0xFFFFFFFF));
  tested->setPicture({});
  EXPECT_EQ(tested->pixelSize(), (SizeDTO{40, 40})); // as it was
  EXPECT_EQ(tested->told(), (std::vector<std::string>{"down 120,120", "up"}));
  tested.reset();
  second.reset();
}

TEST_F(PanelFixture, ALossIsFoundOutByACallAsWell) {
  start();
  auto tested = panel({100, 100, 40, 40});
  mainThread.sync([&] { desktop->killServer(); });
  const auto before = tested->pixelSize();
  tested->setPicture(plainPicture(40, 40, 0xFF00FF00));
  tested->setFrame({0, 0, 20, 20}); // and the next one does nothing
  EXPECT_EQ(tested->pixelSize(), before);
}

// A client may keep the server to itself for long. Nobody waits for it but what has to be taken down, a
// second.
TEST_F(PanelFixture, AServerThatDoesNotReadKeepsNobodyWaiting) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, std::vector<std::string>{"-extension", "MIT-SHM"}}) {
    start({.width = 640, .height = 480, .serverArguments = arguments});
    auto tested = panel({0, 0, 400, 400});
    auto second = panel({400, 0, 200, 400}, true);
    tested->setPicture(plainPicture(400, 400, 0xFF00FF00));
    second->setPicture(plainPicture(200, 400, 0xFF00FF00));
    ASSERT_TRUE(becomes(390, 390, 0x00FF00));
    ASSERT_TRUE(becomes(590, 390, 0x00FF00));
    ASSERT_EQ(kill(desktop->serverPid(), SIGSTOP), 0);
    const auto begun = std::chrono::steady_clock::now();
    for (int i = 0; i < 60; ++i) {
      tested->setPicture(plainPicture(400, 400, i % 2 == 0 ? 0xFFFF0000 : 0xFF0000FF));
      second->setPicture(plainPicture(200, 400, i % 2 == 0 ? 0xFFFF0000 : 0xFF0000FF));
      mainThread.sync([] {});
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::seconds(3));
    ASSERT_EQ(kill(desktop->serverPid(), SIGCONT), 0);
    EXPECT_TRUE(becomes(390, 390, 0x0000FF)); // the newest one, whole
    EXPECT_TRUE(becomes(10, 10, 0x0000FF));
    EXPECT_TRUE(becomes(590, 390, 0x0000FF));

    ASSERT_EQ(kill(desktop->serverPid(), SIGSTOP), 0);
    tested->setPicture(plainPicture(400, 400, 0xFFFFFFFF));
    const auto closing = std::chrono::steady_clock::now();
    tested.reset();
    second.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - closing, std::chrono::seconds(4));
    desktop->killServer();
  }
}

TEST_F(PanelFixture, WithoutAServerThereIsNoPanel) {
  server = std::make_shared<x11::DisplayServer>(":987");
  factory = x11::makePanelFactory(server, mainThread);
  EXPECT_THROW(panel({0, 0, 10, 10}), DesktopFailure);
}

TEST_F(PanelFixture, LeavesNothingBehindWithTheLastPanel) {
  start();
  // The first one sets up what the process keeps.
  const auto show = [this] {
    const auto tested = panel({0, 0, 64, 64});
    const auto other = panel({64, 0, 64, 64}, true);
    tested->setPicture(plainPicture(64, 64, 0xFF00FF00));
    EXPECT_TRUE(becomes(10, 10, 0x00FF00));
  };
  show();
  const auto settled = [](const char* folder, std::ptrdiff_t count) {
    return eventually([=] { return entries(folder) <= count; }) ? count : entries(folder);
  };
  const auto descriptors = entries("/proc/self/fd");
  const auto threads = entries("/proc/self/task");
  for (int i = 0; i < 100; ++i)
    show();
  EXPECT_EQ(settled("/proc/self/fd", descriptors), descriptors);
  EXPECT_EQ(settled("/proc/self/task", threads), threads);
  EXPECT_TRUE(server->ownWindows().empty());
  x11::Connection viewer(desktop->display());
  const auto tree = viewer.required(xcb_query_tree_reply, xcb_query_tree(viewer.get(), viewer.root()));
  EXPECT_EQ(xcb_query_tree_children_length(tree.get()), 0);
}

// Runs it as a process whose number others know as another one, as a container's are, where such processes
// may be made, and else as one of the ordinary numbers. Yields its exit status.
int statusInAContainer(const std::function<bool()>& action) {
  const auto run = [](const std::function<int()>& process) {
    const pid_t child = fork();
    if (child == 0)
      _exit(process());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  return run([&] {
    const bool isContainer = unshare(CLONE_NEWPID) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWPID) == 0;
    if (!isContainer)
      std::fputs("in an ordinary process\n", stderr);
    return run([&] { return action() ? 0 : 1; });
  });
}

// The stream knows windows by the number that the server has, and so would not leave out another one.
TEST(PanelOfAContainer, BelongsToTheSameProcessWhetherAnythingIsSeenOfItOrNot) {
  ignoreBrokenPipes();
  const PrivateDesktop desktop({.width = 640, .height = 480});
  const int status = statusInAContainer([&] {
    MainThread mainThread;
    const auto server = std::make_shared<x11::DisplayServer>(desktop.display());
    const auto factory = x11::makePanelFactory(server, mainThread);
    const auto discovery = x11::makeDesktopContent(server);
    TestedPanel tested(mainThread, *factory,
                       {.frame = {20, 30, 40, 50}, .accessibilityLabel = "Panel", .handlers = {}});
    const auto owner = [&](bool isOnScreen) -> std::optional<RunningApplication> {
      for (const auto& window : discovery->content().windows)
        if (window.windowID == tested.id() && window.isOnScreen == isOnScreen)
          return window.owningApplication;
      return std::nullopt;
    };
    const auto hidden = owner(false);
    tested.setPicture(plainPicture(40, 50, 0xFF00FF00));
    const bool isSeen = eventually([&] { return owner(true).has_value(); });
    return isSeen && hidden && hidden == owner(true);
  });
  EXPECT_EQ(status, 0);
}

TEST_F(PanelFixture, ClosesOneOfSeveralPanels) {
  start();
  const auto staying = panel({0, 0, 40, 40});
  auto closing = panel({100, 0, 40, 40});
  staying->setPicture(plainPicture(40, 40, 0xFF00FF00));
  closing->setPicture(plainPicture(40, 40, 0xFF0000FF));
  ASSERT_TRUE(becomes(110, 10, 0x0000FF));
  closing.reset();
  EXPECT_TRUE(becomes(110, 10, 0));
  staying->setPicture(plainPicture(40, 40, 0xFFFF00FF));
  EXPECT_TRUE(becomes(10, 10, 0xFF00FF));
}

// Prints what thirty pictures a second cost, of a core. The bound is for instrumented programs too.
TEST_F(PanelFixture, ThirtyPicturesASecondCostLittle) {
  for (const bool hasCompositingManager : {false, true}) {
    start({.width = 1280, .height = 800, .hasCompositingManager = hasCompositingManager});
    for (const auto& [width, height] : {std::pair(384, 288), std::pair(800, 600)}) {
      const auto tested = panel({0, 0, static_cast<double>(width), static_cast<double>(height)});
      const auto circle = [w = width, h = height](std::uint32_t colour) {
        return pictureOf(w, h, [=](int x, int y) {
          const double dx = (x - w / 2.0) / (w / 2.0);
          const double dy = (y - h / 2.0) / (h / 2.0);
          return dx * dx + dy * dy < 1 ? colour : 0U;
        });
      };
      const Picture pictures[] = {circle(0xFF00FF00), circle(0xFFFF0000)};
      constexpr int rounds = 150;
      const auto before = processorSeconds();
      for (int i = 0; i < rounds; ++i) {
        tested->setPicture(pictures[i % 2]);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      const auto perSecond = (processorSeconds() - before) / rounds * 30;
      std::printf("%dx%d %s: %.2f %% of a core\n", width, height, hasCompositingManager ? "mixed" : "shaped",
                  perSecond * 100);
      EXPECT_LT(perSecond, 0.2);
    }
  }
}

} // namespace
} // namespace tessarin
