#include "backends/posix/EncoderProbe.hpp"

#include "support/TemporaryDirectory.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace tessarin {
namespace {

using namespace std::chrono_literals;

bool hasChild() {
  return waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

// A shell script in the place of the program, in a directory of its own.
class FakeProgram {
 public:
  explicit FakeProgram(const std::string& body) {
    const std::string path = directory_ / "tessarin-encoder-probe";
    directory_.write("tessarin-encoder-probe", "#!/bin/sh\n" + body + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }
  std::string directory() const { return directory_.path(); }
  std::string path(const std::string& name) const { return directory_ / name; }
  // How many lines the script has written to a file beside it.
  std::size_t lines(const std::string& name) const {
    std::ifstream file(directory_ / name);
    std::size_t count = 0;
    for (std::string line; std::getline(file, line);)
      ++count;
    return count;
  }

 private:
  TemporaryDirectory directory_;
};

bool works(const std::string& directory, const std::string& name, std::chrono::milliseconds limit = 60s) {
  return EncoderProbe({.directories = {directory}, .timeLimit = limit}).works(name);
}

TEST(EncoderProbe, believesTheRealProgram) {
  EXPECT_TRUE(works(TESSARIN_MODULE_DIRECTORY, "libx264"));
  EXPECT_FALSE(works(TESSARIN_MODULE_DIRECTORY, "no-such"));
  EXPECT_FALSE(works(TESSARIN_MODULE_DIRECTORY, ""));
  EXPECT_FALSE(hasChild());
}

// A device that is none: the real program finds that out, and ends.
// The program holds back the signals that ask it to end while it records; what it starts takes them.
TEST(EncoderProbe, lendsItsProgramNothingOfItsSignalMask) {
  const FakeProgram program(R"(grep -q '^SigBlk:\s*0*$' /proc/self/status)");
  sigset_t held;
  sigset_t before;
  sigemptyset(&held);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    sigaddset(&held, signal);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &held, &before), 0);
  EXPECT_TRUE(works(program.directory(), "libx264"));
  ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &before, nullptr), 0);
}

TEST(EncoderProbe, refusesHardwareThatOnlySeemsToBeThere) {
  const TemporaryDirectory devices;
  std::filesystem::create_directory(devices / "dri");
  devices.write("dri/renderD128", "");
  EncoderProbe probe(
      {.directories = {TESSARIN_MODULE_DIRECTORY}, .timeLimit = 60s, .deviceDirectory = devices.path()});
  const bool mayHaveHardware = std::filesystem::exists("/dev/dri");
  EXPECT_TRUE(!probe.works("h264_vaapi") || mayHaveHardware);
  EXPECT_FALSE(hasChild());
}

TEST(EncoderProbe, startsNothingWithoutTheDevice) {
  const FakeProgram program("echo started >> \"${0%/*}/log\"; exit 0");
  const auto ask = [&](const std::string& devices, const std::string& name) {
    return EncoderProbe({.directories = {program.directory()}, .timeLimit = 60s, .deviceDirectory = devices})
        .works(name);
  };
  const TemporaryDirectory none;
  for (const char* name : {"h264_vaapi", "hevc_vaapi", "h264_nvenc", "hevc_nvenc"})
    EXPECT_FALSE(ask(none.path(), name)) << name;
  EXPECT_EQ(program.lines("log"), 0U);

  const TemporaryDirectory render;
  std::filesystem::create_directory(render / "dri");
  EXPECT_FALSE(ask(render.path(), "h264_vaapi"));
  render.write("dri/card0", "");
  EXPECT_FALSE(ask(render.path(), "h264_vaapi"));
  render.write("dri/renderD129", "");
  EXPECT_TRUE(ask(render.path(), "h264_vaapi"));
  EXPECT_FALSE(ask(render.path(), "h264_nvenc"));

  for (const char* node : {"nvidia0", "nvidiactl"}) {
    const TemporaryDirectory other;
    other.write(node, "");
    EXPECT_TRUE(ask(other.path(), "hevc_nvenc")) << node;
    EXPECT_FALSE(ask(other.path(), "hevc_vaapi")) << node;
  }
}

TEST(EncoderProbe, callsEveryEndButSuccessANo) {
  EXPECT_TRUE(works(FakeProgram("exit 0").directory(), "libx264"));
  EXPECT_FALSE(works(FakeProgram("exit 1").directory(), "libx264"));
  EXPECT_FALSE(works(FakeProgram("exit 2").directory(), "libx264"));
  EXPECT_FALSE(works(FakeProgram("kill -SEGV $$").directory(), "libx264"));
  EXPECT_FALSE(works(FakeProgram("kill -ABRT $$").directory(), "libx264"));
  EXPECT_FALSE(hasChild());
}

TEST(EncoderProbe, endsAProgramThatHangs) {
  const FakeProgram program("echo $$ > \"${0%/*}/pid\"; trap '' TERM INT HUP; exec sleep 600");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(works(program.directory(), "libx264", 300ms));
  const auto taken = std::chrono::steady_clock::now() - start;
  EXPECT_GE(taken, 300ms);
  EXPECT_LT(taken, 30s);
  EXPECT_FALSE(hasChild());
  std::ifstream file(program.path("pid"));
  pid_t child = 0;
  if (file >> child) { // unless the time was up before the script began
    EXPECT_EQ(kill(child, 0), -1);
  }
}

TEST(EncoderProbe, asksOnceForEachEncoder) {
  const FakeProgram program("echo \"$1\" >> \"${0%/*}/log\"; test \"$1\" = good");
  EncoderProbe probe({.directories = {program.directory()}, .timeLimit = 60s});
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(probe.works("good"));
    EXPECT_FALSE(probe.works("bad"));
  }
  EXPECT_EQ(program.lines("log"), 2U);
}

TEST(EncoderProbe, answersManyThreadsAlike) {
  const FakeProgram program("echo \"$1\" >> \"${0%/*}/log\"");
  EncoderProbe probe({.directories = {program.directory()}, .timeLimit = 60s});
  std::atomic<int> working = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      if (probe.works("good"))
        ++working;
    });
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(working, 8);
  EXPECT_EQ(program.lines("log"), 1U);
}

// It gets no input, its output goes nowhere, and it has no descriptor of this process.
TEST(EncoderProbe, keepsTheProgramToItself) {
  const TemporaryDirectory directory;
  directory.write("of-the-parent", "");
  const int descriptor = open((directory / "of-the-parent").c_str(), O_RDONLY); // without close-on-exec
  ASSERT_GE(descriptor, 0);
  const FakeProgram program("echo noise; echo noise >&2\n"
                            "test -z \"$(cat)\" || exit 1\n"
                            "ls -l /proc/$$/fd > \"${0%/*}/descriptors\"\n"
                            "! grep -q of-the-parent \"${0%/*}/descriptors\"");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const bool answer = works(program.directory(), "libx264");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  close(descriptor);
  EXPECT_TRUE(answer);
  EXPECT_GT(program.lines("descriptors"), 3U);
}

TEST(EncoderProbe, looksForTheProgramInOrderAndDoesWithoutIt) {
  const TemporaryDirectory empty;
  EXPECT_FALSE(works(empty.path(), "libx264"));
  empty.write("tessarin-encoder-probe", "not to be run");
  EXPECT_FALSE(works(empty.path(), "libx264"));
  const FakeProgram good("exit 0");
  const FakeProgram bad("exit 1");
  const auto ask = [](std::vector<std::string> directories) {
    return EncoderProbe({.directories = std::move(directories), .timeLimit = 60s}).works("libx264");
  };
  EXPECT_TRUE(ask({empty.path(), good.directory(), bad.directory()}));
  EXPECT_FALSE(ask({empty.path(), bad.directory(), good.directory()}));
  EXPECT_FALSE(EncoderProbe(EncoderProbe::Options{}).works("libx264"));
}

} // namespace
} // namespace tessarin
