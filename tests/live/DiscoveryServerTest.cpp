#include "DiscoveryFixture.hpp"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// What discovery costs, and what it does without a server.
namespace tessarin {
namespace {

class DiscoveryServer : public DiscoveryFixture {};

TEST_F(DiscoveryServer, HasNoAccessWithoutADisplay) {
  const auto absent = std::make_shared<x11::DisplayServer>(":59999");
  const auto content = x11::makeDesktopContent(absent);
  EXPECT_FALSE(content->hasScreenCaptureAccess());
  EXPECT_THROW(content->content(), DesktopFailure);
}

TEST_F(DiscoveryServer, HasAccessToADisplayThatOpens) {
  startDesktop();
  EXPECT_TRUE(discovery->hasScreenCaptureAccess());
}

TEST_F(DiscoveryServer, FailsWhenTheServerIsGoneThoughAnotherOneComes) {
  startDesktop();
  show({});
  look();
  desktop->killServer();
  const PrivateDesktop another;
  EXPECT_NE(another.display(), desktop->display());
  EXPECT_THROW(discovery->content(), DesktopFailure);
  EXPECT_FALSE(discovery->hasScreenCaptureAccess());
  EXPECT_THROW(discovery->content(), DesktopFailure);
}

TEST_F(DiscoveryServer, NoticesAtOnceThatTheServerWentWhileNobodyAsked) {
  startDesktop();
  ASSERT_TRUE(discovery->hasScreenCaptureAccess());
  desktop->killServer();
  EXPECT_FALSE(discovery->hasScreenCaptureAccess());
}

// As a change of the keyboard's layout, of which the server tells every client.
TEST_F(DiscoveryServer, KeepsNoNewsThatNobodyAskedFor) {
  startDesktop();
  auto& connection = server->connection();
  const auto hearNews = [&] {
    desktop->run({"xmodmap", "-e", "keycode 200 = a"});
    connection.sync();
  };
  hearNews();
  EXPECT_NE(connection.pollEvent(), nullptr);
  hearNews();
  EXPECT_EQ(&server->connection(), &connection);
  EXPECT_EQ(connection.pollEvent(), nullptr);
}

TEST_F(DiscoveryServer, FailsWhenTheServerDiesWhileItIsAsked) {
  startDesktop();
  ASSERT_TRUE(discovery->hasScreenCaptureAccess());
  kill(desktop->serverPid(), SIGSTOP);
  std::atomic<bool> isAsking = false;
  auto answer = std::async(std::launch::async, [&] {
    isAsking = true;
    isAsking.notify_one();
    discovery->content();
  });
  isAsking.wait(false);
  EXPECT_EQ(answer.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  desktop->killServer();
  ASSERT_EQ(answer.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  EXPECT_THROW(answer.get(), DesktopFailure);
}

TEST_F(DiscoveryServer, IsGivenUpWhenItDoesNotAnswer) {
  startDesktop();
  const auto impatient =
      std::make_shared<x11::DisplayServer>(desktop->display(), std::chrono::milliseconds(100));
  const auto content = x11::makeDesktopContent(impatient);
  EXPECT_EQ(content->content().displays.size(), 1U);
  kill(desktop->serverPid(), SIGSTOP);
  EXPECT_THROW(content->content(), DesktopFailure); // on the connection that there was
  EXPECT_THROW(content->content(), DesktopFailure); // when a new one is to be opened
  EXPECT_FALSE(content->hasScreenCaptureAccess());
  kill(desktop->serverPid(), SIGCONT);
  // What was given up has not been left half done.
  EXPECT_EQ(discovery->content().displays.size(), 1U);
  EXPECT_TRUE(x11::makeDesktopContent(server)->hasScreenCaptureAccess());
}

TEST_F(DiscoveryServer, KeepsOneWhoAsksAgainAndAgainWaitingOnce) {
  startDesktop();
  constexpr std::chrono::milliseconds patience{800};
  const auto impatient = std::make_shared<x11::DisplayServer>(desktop->display(), patience);
  const auto content = x11::makeDesktopContent(impatient);
  EXPECT_EQ(content->content().displays.size(), 1U);
  kill(desktop->serverPid(), SIGSTOP);
  const auto begun = std::chrono::steady_clock::now();
  for (int look = 0; look < 8; ++look)
    EXPECT_THROW(content->content(), DesktopFailure);
  EXPECT_GE(std::chrono::steady_clock::now() - begun, patience);
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 2 * patience);
  kill(desktop->serverPid(), SIGCONT);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!content->hasScreenCaptureAccess())
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  EXPECT_EQ(content->content().displays.size(), 1U);
}

// Each connection that is being opened takes a thread and a descriptor until the server answers.
TEST_F(DiscoveryServer, IsAskedForOneConnectionHoweverLongItKeepsSilent) {
  startDesktop();
  const auto countOf = [](const char* folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
  };
  const auto impatient =
      std::make_shared<x11::DisplayServer>(desktop->display(), std::chrono::milliseconds(50));
  kill(desktop->serverPid(), SIGSTOP);
  std::vector<std::ptrdiff_t> threads;
  std::vector<std::ptrdiff_t> descriptors;
  for (int round = 0; round < 3; ++round) {
    std::this_thread::sleep_for(std::chrono::milliseconds(round > 0 ? 550 : 0)); // it is left alone so long
    EXPECT_THROW(impatient->connection(), DesktopFailure);
    threads.push_back(countOf("/proc/self/task"));
    descriptors.push_back(countOf("/proc/self/fd"));
  }
  EXPECT_EQ(threads[2], threads[0]);
  EXPECT_EQ(descriptors[2], descriptors[0]);

  std::shared_ptr<x11::Handshake> handshake;
  const auto open = [&](std::chrono::milliseconds patience) {
    return x11::Connection(desktop->display(), patience, &handshake).isLost();
  };
  EXPECT_THROW(open(std::chrono::milliseconds(50)), DesktopFailure);
  const auto first = handshake;
  ASSERT_NE(first, nullptr);
  EXPECT_THROW(open(std::chrono::milliseconds(50)), DesktopFailure);
  EXPECT_EQ(handshake, first);
  kill(desktop->serverPid(), SIGCONT);
  EXPECT_FALSE(open(std::chrono::seconds(10)));
  EXPECT_EQ(handshake, nullptr);
}

// One that was begun long ago may have ended with a server that has gone since.
TEST_F(DiscoveryServer, IsAskedAnewWhereAnOldQuestionHasBeenAnswered) {
  startDesktop();
  std::shared_ptr<x11::Handshake> handshake;
  kill(desktop->serverPid(), SIGSTOP);
  const auto open = [&](const std::string& display) {
    return x11::Connection(display, std::chrono::milliseconds(50), &handshake).isLost();
  };
  EXPECT_THROW(open(desktop->display()), DesktopFailure);
  const std::weak_ptr<x11::Handshake> begun = handshake;
  desktop->killServer();
  // Its thread lets go of it when it has ended.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (begun.use_count() > 1) {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const PrivateDesktop another;
  EXPECT_FALSE(x11::Connection(another.display(), std::chrono::seconds(10), &handshake).isLost());
  EXPECT_TRUE(begun.expired());
}

TEST_F(DiscoveryServer, ShowsTheScreenThatTheDisplayNames) {
  startDesktop({.serverArguments = {"-screen", "1", "400x300x24"}});
  x11::Connection first(desktop->display() + ".0");
  x11::Connection second(desktop->display() + ".1");
  EXPECT_EQ(first.screenNumber(), 0);
  EXPECT_EQ(first.screen().width_in_pixels, 1280);
  EXPECT_EQ(second.screenNumber(), 1);
  EXPECT_EQ(second.screen().width_in_pixels, 400);
}

TEST_F(DiscoveryServer, IsAskedAsOftenForManyWindowsAsForOne) {
  startDesktop({.hasWindowManager = true});
  const auto roundTripsWith = [&](std::size_t count) {
    while (clients.size() < count) {
      const auto place = std::to_string(clients.size() * 11);
      show({"--at", place + "," + place});
    }
    const auto before = server->connection().roundTrips();
    look();
    const auto roundTrips = server->connection().roundTrips() - before;

    EXPECT_EQ(latest.windows.size(), count);
    constexpr int repetitions = 20;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < repetitions; ++i) {
      look();
    }
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    RecordProperty("millisecondsWith" + std::to_string(count), std::to_string(elapsed.count() / repetitions));
    RecordProperty("roundTripsWith" + std::to_string(count), std::to_string(roundTrips));
    return roundTrips;
  };
  const auto one = roundTripsWith(1);
  EXPECT_EQ(roundTripsWith(10), one);
  EXPECT_EQ(roundTripsWith(40), one);
  EXPECT_LE(one, 8U);
}

TEST_F(DiscoveryServer, OpensInTwoRoundTripsBesideTheHandshake) {
  startDesktop();
  EXPECT_EQ(server->connection().roundTrips(), 2U);
}

} // namespace
} // namespace tessarin
