#include "support/CameraCompositeRig.hpp"

#include <atomic>
#include <thread>

namespace tessarin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

// A recorder on queues with threads of their own.
class CameraCompositeThreadsTest : public CameraCompositeTest {
 protected:
  void SetUp() override { makeQueue = makeSourceQueue = makeThreadQueue; }
};

// Delivers sound as fast as it is taken, until it has gone on for a while behind a sign.
class Player {
 public:
  Player(ScriptedDevice& device, MediaTime start)
      : thread_([this, &device, start] {
          int behind = 0;
          for (std::int64_t i = 0; behind < 100; ++i) {
            device.deliver(steadySample(0, 480, start + MediaTime::milliseconds(10 * i)));
            ++delivered_;
            behind += isLast_ ? 1 : 0;
          }
        }) {}
  ~Player() { thread_.join(); }

  void waitFor(int samples) const {
    while (delivered_ < samples)
      std::this_thread::yield();
  }
  void comeToAnEnd() { isLast_ = true; }

 private:
  std::atomic<int> delivered_ = 0;
  std::atomic<bool> isLast_ = false;
  std::thread thread_;
};

TEST_F(CameraCompositeThreadsTest, WithSourcesThatPlayOnNothingArrivesBehindTheDetachment) {
  useSystemAudio();
  useMicrophone();
  makeAttached();
  deliver(1, 0s);
  recorder->waitUntilStarted(5s);
  std::size_t played = 0;
  std::size_t spoken = 0;
  {
    Player system(*devices.systemAudios.at(0), hostTime(0s));
    Player voice(*devices.microphones.at(0), hostTime(0s));
    system.waitFor(100);
    voice.waitFor(100);
    recorder->detach(*stream);
    played = file().track(1).appended.size();
    spoken = file().track(2).appended.size();
    system.comeToAnEnd();
    voice.comeToAnEnd();
  }
  recorder->finish();
  EXPECT_GE(played, 100u);
  EXPECT_GE(spoken, 100u);
  EXPECT_EQ(file().track(1).appended.size(), played);
  EXPECT_EQ(file().track(2).appended.size(), spoken);
  EXPECT_EQ(failuresTold, 0);
  EXPECT_THAT(lines, ElementsAre(testing::HasSubstr("recording-summary")));
}

} // namespace
} // namespace tessarin
