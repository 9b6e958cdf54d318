#include "backends/pipewire/Devices.hpp"

#include "live/SoundTesting.hpp"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <linux/capability.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using List = std::vector<CaptureDevice>;
// Longer than the backend's own patience with a server, and still not long.
constexpr auto bounded = 4s;

// This thread, and those that it starts, may not give themselves a priority, as with an ordinary user.
class WithoutPriority {
 public:
  WithoutPriority() {
    exchange(&before_, nullptr);
    auto without = before_;
    without[0].effective &= ~(1U << CAP_SYS_NICE);
    exchange(nullptr, &without);
  }
  ~WithoutPriority() { exchange(nullptr, &before_); }
  WithoutPriority(const WithoutPriority&) = delete;
  WithoutPriority& operator=(const WithoutPriority&) = delete;

 private:
  using Capabilities = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;
  static void exchange(Capabilities* read, const Capabilities* written) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    if ((read && syscall(SYS_capget, &header, read->data()) != 0) ||
        (written && syscall(SYS_capset, &header, written->data()) != 0)) {
      throw std::runtime_error("the capabilities cannot be changed");
    }
  }

  Capabilities before_{};
};

// How many entries a directory has.
std::ptrdiff_t countOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), std::filesystem::directory_iterator());
}

// The open descriptors, each by what it is: sockets, events, files.
std::map<std::string, int> openDescriptors() {
  std::map<std::string, int> result;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone; // the one that reads the directory
    const auto target = std::filesystem::read_symlink(entry, gone).string();
    ++result[target.substr(0, target.find_first_of("0123456789"))];
  }
  return result;
}

class SoundDevices : public ::testing::Test {
 protected:
  void start(const PrivateSoundServer::Options& options = {}) {
    server = std::make_unique<PrivateSoundServer>(options);
    environment = std::make_unique<ProcessEnvironment>(server->environment());
  }
  // A place where no server is.
  void startWithoutServer() {
    environment = std::make_unique<ProcessEnvironment>(
        std::vector<std::pair<std::string, std::string>>{{"XDG_RUNTIME_DIR", directory.path()},
                                                         {"PIPEWIRE_RUNTIME_DIR", directory.path()},
                                                         {"PIPEWIRE_REMOTE", "pipewire-0"}});
  }
  // All that can be asked, where nothing can be had.
  void expectNothing(std::chrono::milliseconds limit) {
    EXPECT_LT(durationOf([&] { EXPECT_FALSE(devices->isReachable()); }), limit);
    EXPECT_LT(durationOf([&] { EXPECT_EQ(devices->devices(MediaKind::audio), List()); }), limit);
    EXPECT_LT(durationOf([&] { EXPECT_EQ(devices->devices(MediaKind::video), List()); }), limit);
    EXPECT_LT(durationOf([&] { expectUnavailable(std::nullopt); }), limit);
    EXPECT_LT(durationOf([&] {
                EXPECT_EQ(errorOf([&] { devices->openSystemAudio([](const auto&) {}, [] {}); }),
                          CaptureDeviceError::unavailable);
              }),
              limit);
  }
  void expectUnavailable(const std::optional<std::string>& deviceID) {
    EXPECT_EQ(errorOf([&] {
                devices->openMicrophone(
                    deviceID, [](const auto&) {}, [] {});
              }),
              CaptureDeviceError::unavailable);
  }
  std::string defaultOf(MediaKind kind) {
    std::string found;
    for (const auto& device : devices->devices(kind)) {
      found += device.isDefault ? device.id + ";" : "";
    }
    return found;
  }
  // The session manager follows what happens within moments.
  bool becomesDefault(MediaKind kind, const std::string& ids) {
    const auto deadline = std::chrono::steady_clock::now() + 5s;
    while (defaultOf(kind) != ids) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
    }
    return true;
  }

  TemporaryDirectory directory;
  std::unique_ptr<PrivateSoundServer> server;
  std::unique_ptr<ProcessEnvironment> environment;
  std::unique_ptr<CaptureDevices> devices = pipewire::makeCaptureDevices();
};

TEST_F(SoundDevices, AreListedInTheServersOrderWithIdsNamesAndDefaults) {
  start();
  const auto zebra =
      server->source({"microphone", "--name", "mic.zebra", "--description", "Zebra \xc3\xa9\xe4\xb8\xad"});
  const auto apple = server->source({"microphone", "--name", "mic.apple", "--description", "Apple"});
  const auto camera = server->source(
      {"camera", "--name", "cam.one", "--description", "Camera one", "--offer", "yuy2,320x240,30"});
  EXPECT_TRUE(devices->isReachable());
  server->setDefaultNode("audio.source", "mic.apple");
  EXPECT_EQ(devices->devices(MediaKind::audio),
            (List{{"mic.zebra", "Zebra \xc3\xa9\xe4\xb8\xad", false}, {"mic.apple", "Apple", true}}));
  EXPECT_EQ(devices->devices(MediaKind::video), (List{{"cam.one", "Camera one", true}}));
  // The same connection hears of what changes.
  server->setDefaultNode("audio.source", "mic.zebra");
  EXPECT_EQ(devices->devices(MediaKind::audio),
            (List{{"mic.zebra", "Zebra \xc3\xa9\xe4\xb8\xad", true}, {"mic.apple", "Apple", false}}));
  zebra->unplug();
  EXPECT_TRUE(becomesDefault(MediaKind::audio, "mic.apple;"));
  EXPECT_EQ(devices->devices(MediaKind::audio), (List{{"mic.apple", "Apple", true}}));
  const auto again = server->source({"microphone", "--name", "mic.zebra", "--description", "Zebra"});
  EXPECT_EQ(devices->devices(MediaKind::audio).size(), 2U);
  expectUnavailable("cam.one");
  expectUnavailable("test-speakers");
  expectUnavailable("test-speakers.monitor");
}

TEST_F(SoundDevices, AreNoneWhereThereAreOnlySpeakers) {
  start();
  EXPECT_TRUE(devices->isReachable());
  EXPECT_EQ(devices->devices(MediaKind::audio), List());
  EXPECT_EQ(devices->devices(MediaKind::video), List());
  expectUnavailable(std::nullopt);
  expectUnavailable("nobody");
  // When the last microphone goes, the speakers stand in for it, and are none.
  auto microphone = server->source({"microphone", "--name", "mic.a", "--description", "A"});
  EXPECT_TRUE(becomesDefault(MediaKind::audio, "mic.a;"));
  microphone->unplug();
  EXPECT_TRUE(becomesDefault(MediaKind::audio, ""));
  EXPECT_EQ(devices->devices(MediaKind::audio), List());
  expectUnavailable(std::nullopt);
}

TEST_F(SoundDevices, PlayNothingWithoutAnOutput) {
  start({.hasSink = false});
  EXPECT_TRUE(devices->isReachable());
  EXPECT_EQ(errorOf([&] { devices->openSystemAudio([](const auto&) {}, [] {}); }),
            CaptureDeviceError::unavailable);
}

TEST_F(SoundDevices, AreNotThereAtOnceWithoutAServer) {
  startWithoutServer();
  expectNothing(500ms);
}

TEST_F(SoundDevices, AreNotThereWhenTheServerDoesNotAnswer) {
  start();
  server->stopAnswering();
  EXPECT_LT(durationOf([&] { EXPECT_FALSE(devices->isReachable()); }), bounded);
  EXPECT_LT(durationOf([&] { expectUnavailable(std::nullopt); }), bounded);
  server->goOn();
  EXPECT_TRUE(devices->isReachable());
  // Nor when it stops answering a connection that is there.
  server->stopAnswering();
  EXPECT_LT(durationOf([&] { EXPECT_FALSE(devices->isReachable()); }), bounded);
  EXPECT_LT(durationOf([&] { EXPECT_EQ(devices->devices(MediaKind::audio), List()); }), bounded);
  server->goOn();
  EXPECT_TRUE(devices->isReachable());
}

TEST_F(SoundDevices, AreNotThereWhenSomethingElseListens) {
  startWithoutServer();
  const auto listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const auto path = directory / "pipewire-0";
  ASSERT_LT(path.size(), sizeof address.sun_path);
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  // Connections wait to be accepted, until no more are let in.
  ASSERT_EQ(listen(listener, 1), 0);
  expectNothing(bounded);
  close(listener);
}

// The library asks the bus for the priority of its data thread where it may not take that by itself.
TEST_F(SoundDevices, AreThereThoughTheSessionBusDoesNotAnswer) {
  start();
  const auto microphone = server->source({"microphone", "--name", "mic.a", "--description", "A"});
  server->stopBus();
  const WithoutPriority unprivileged;
  // The bus library keeps for good what it makes; unloaded, that would look lost to who counts memory.
  ASSERT_TRUE(dlopen("libdbus-1.so.3", RTLD_NOW | RTLD_NODELETE));
  EXPECT_LT(durationOf([&] {
              EXPECT_EQ(devices->devices(MediaKind::audio), (List{{"mic.a", "A", true}}));
            }),
            bounded);
  SoundReceiver receiver;
  const auto stream = devices->openMicrophone("mic.a", receiver.handler(), receiver.endHandler());
  stream->start();
  EXPECT_TRUE(receiver.hears(4800));
}

TEST_F(SoundDevices, LeaveNoDescriptorOrThreadBehind) {
  start();
  const auto microphone = server->source({"microphone", "--name", "mic.a"});
  const auto camera = server->source({"camera", "--name", "cam.a"});
  const auto use = [](bool isThere) {
    const auto ignore = [](const auto&) {};
    const auto end = [] {};
    for (const auto kind : {'m', 's', 'c'}) {
      const auto own = pipewire::makeCaptureDevices();
      EXPECT_EQ(own->isReachable(), isThere);
      if (isThere) {
        const auto stream = kind == 'm'   ? own->openMicrophone(std::nullopt, ignore, end)
                            : kind == 's' ? own->openSystemAudio(ignore, end)
                                          : own->openCamera(std::nullopt, ignore, end);
        stream->start();
      }
    }
  };
  // The library keeps some of what it sets up with the first connection, and may lose the event by which a
  // stream is woken when the stream goes while that event is on its way.
  use(true);
  constexpr int rounds = 3;
  const auto expectNoMoreThan = [](std::map<std::string, int> before) {
    auto now = openDescriptors();
    constexpr auto event = "anon_inode:[eventfd]";
    EXPECT_LE(now[event], before[event] + rounds * 3);
    now.erase(event);
    before.erase(event);
    EXPECT_EQ(now, before);
  };
  const auto descriptors = openDescriptors();
  const auto threads = countOf("/proc/self/task");
  for (int i = 0; i < rounds; ++i) {
    use(true);
  }
  expectNoMoreThan(descriptors);
  EXPECT_EQ(countOf("/proc/self/task"), threads);
  server->killServer();
  for (int i = 0; i < rounds; ++i) {
    use(false);
  }
  expectNoMoreThan(descriptors);
  EXPECT_EQ(countOf("/proc/self/task"), threads);
}

TEST_F(SoundDevices, AreThereAgainWithTheServer) {
  start();
  EXPECT_TRUE(devices->isReachable());
  server->killServer();
  expectNothing(500ms);
  server->restartServer();
  const auto microphone = server->source({"microphone", "--name", "mic.a", "--description", "A"});
  EXPECT_TRUE(devices->isReachable());
  EXPECT_EQ(devices->devices(MediaKind::audio), (List{{"mic.a", "A", true}}));
}

} // namespace
} // namespace tessarin
