#include "MediaWriterTesting.hpp"

#include "support/ScriptedMediaWriter.hpp"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>

namespace tessarin {
namespace {

// An implementation of the port under test, and the means to bring it into the states of the contract.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual std::unique_ptr<MediaFileWriter> makeWriter() = 0;
  // Until the input is not ready; the times used lie below `busyUntil`.
  virtual void makeBusy(VideoInput& input) = 0;
  // Returns when the input is ready again.
  virtual void makeReady(MediaFileWriter& writer, VideoInput& input) = 0;
  // An append after which the writer has failed.
  virtual bool appendThatFails(VideoInput& input, std::shared_ptr<const CodablePicture> picture) = 0;
  virtual std::unique_ptr<MediaFileWriter> makeWriterThatCannotStart() = 0;
};

constexpr std::int64_t busyUntil = 1000; // frames

class ScriptedSubject final : public Subject {
 public:
  std::unique_ptr<MediaFileWriter> makeWriter() override { return factory_.makeWriter({}); }
  void makeBusy(VideoInput&) override { factory_.files.back()->setReady(false); }
  void makeReady(MediaFileWriter&, VideoInput&) override { factory_.files.back()->setReady(true); }
  bool appendThatFails(VideoInput& input, std::shared_ptr<const CodablePicture> picture) override {
    factory_.files.back()->refusedAppend = factory_.files.back()->appended.size();
    return input.append(std::move(picture), MediaTime(busyUntil, 10));
  }
  std::unique_ptr<MediaFileWriter> makeWriterThatCannotStart() override {
    factory_.prepare = [](ScriptedMediaFile& file, std::size_t) { file.startsWriting = false; };
    return factory_.makeWriter({});
  }

 private:
  ScriptedMediaFileWriterFactory factory_;
};

class ModuleSubject final : public Subject {
 public:
  std::unique_ptr<MediaFileWriter> makeWriter() override {
    return rig_.makeWriter(std::to_string(++files_) + ".mp4");
  }
  void makeBusy(VideoInput& input) override {
    // Pictures are put in line in no time, and take the coder some.
    Painting painting(128, 96);
    std::int64_t time = 0;
    while (time < busyUntil && input.isReadyForMoreMediaData()) {
      std::vector<std::shared_ptr<const CodablePicture>> pictures;
      for (unsigned i = 0; i < 8; ++i) {
        painting.scatter(i);
        if (auto picture = input.render(painting.view()))
          pictures.push_back(std::move(picture));
      }
      for (const auto& picture : pictures)
        if (input.isReadyForMoreMediaData())
          input.append(picture, MediaTime(++time, 1000));
    }
  }
  void makeReady(MediaFileWriter& writer, VideoInput& input) override {
    Painting painting(128, 96);
    std::shared_ptr<const CodablePicture> picture;
    while (!picture)
      picture = input.render(painting.view());
    ASSERT_TRUE(appendPatiently(writer, input, picture, MediaTime(busyUntil, 10)));
  }
  bool appendThatFails(VideoInput& input, std::shared_ptr<const CodablePicture> picture) override {
    return input.append(std::move(picture), MediaTime(-1, 10));
  }
  std::unique_ptr<MediaFileWriter> makeWriterThatCannotStart() override {
    rig_.files.failAlways(FileOperation::open, EACCES);
    return makeWriter();
  }

 private:
  MediaModuleRig rig_;
  int files_ = 0;
};

struct Implementation {
  const char* name;
  std::function<std::unique_ptr<Subject>()> make;
};

class MediaWriterConformance : public testing::TestWithParam<Implementation> {
 protected:
  void SetUp() override {
    subject = GetParam().make();
    writer = subject->makeWriter();
  }
  void start() {
    ASSERT_TRUE(writer->canApply(smallVideo()));
    input = writer->addVideoInput(smallVideo());
    ASSERT_NE(input, nullptr);
    ASSERT_TRUE(writer->startWriting());
    writer->startSession(MediaTime::zero());
    picture = input->render(Painting(128, 96).view());
    ASSERT_NE(picture, nullptr);
  }

  std::unique_ptr<Subject> subject;
  std::unique_ptr<MediaFileWriter> writer;
  VideoInput* input = nullptr;
  std::shared_ptr<const CodablePicture> picture;
};

TEST_P(MediaWriterConformance, goesFromUnknownByWritingToCompleted) {
  EXPECT_EQ(writer->status(), MediaWriterStatus::unknown);
  start();
  EXPECT_EQ(writer->status(), MediaWriterStatus::writing);
  EXPECT_TRUE(input->isReadyForMoreMediaData());
  EXPECT_TRUE(input->append(picture, MediaTime(0, 10)));
  EXPECT_TRUE(input->append(picture, MediaTime(1, 10)));
  input->markAsFinished();
  finish(*writer);
  EXPECT_EQ(writer->status(), MediaWriterStatus::completed);
  EXPECT_FALSE(writer->error());
}

TEST_P(MediaWriterConformance, takesThePictureOfOneRenderingAnyNumberOfTimes) {
  start();
  for (int i = 0; i < 4; ++i)
    EXPECT_TRUE(appendPatiently(*writer, *input, picture, MediaTime(i, 10)));
  input->markAsFinished();
  finish(*writer);
  EXPECT_EQ(writer->status(), MediaWriterStatus::completed);
}

TEST_P(MediaWriterConformance, callsAnObserverAtOnceAndWhenTheInputGetsReady) {
  start();
  std::atomic<int> calls = 0;
  std::promise<void> calledAgain;
  auto observation = input->observeReadiness([&] {
    if (++calls == 2)
      calledAgain.set_value();
  });
  EXPECT_EQ(calls, 1);
  subject->makeBusy(*input);
  subject->makeReady(*writer, *input);
  calledAgain.get_future().wait();
  observation.reset();
  const int after = calls;
  subject->makeBusy(*input);
  writer->cancelWriting();
  EXPECT_EQ(calls, after) << "called after the observation had ended";
}

TEST_P(MediaWriterConformance, refusesPicturesAfterAFailure) {
  start();
  EXPECT_TRUE(input->append(picture, MediaTime(0, 10)));
  EXPECT_FALSE(subject->appendThatFails(*input, picture));
  EXPECT_EQ(writer->status(), MediaWriterStatus::failed);
  EXPECT_FALSE(input->append(picture, MediaTime(busyUntil + 1, 10)));
  EXPECT_EQ(writer->status(), MediaWriterStatus::failed);
}

TEST_P(MediaWriterConformance, failsToStartWithoutAFile) {
  writer = subject->makeWriterThatCannotStart();
  ASSERT_NE(writer->addVideoInput(smallVideo()), nullptr);
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->status(), MediaWriterStatus::failed);
}

TEST_P(MediaWriterConformance, mayBeCancelledBeforeTheStartAndAfterIt) {
  EXPECT_NE(writer->addVideoInput(smallVideo()), nullptr);
  writer->cancelWriting();
  EXPECT_EQ(writer->status(), MediaWriterStatus::cancelled);

  writer = subject->makeWriter();
  start();
  EXPECT_TRUE(input->append(picture, MediaTime(0, 10)));
  writer->cancelWriting();
  EXPECT_EQ(writer->status(), MediaWriterStatus::cancelled);
}

TEST_P(MediaWriterConformance, mayBeDestroyedAtAnyPoint) {
  writer = subject->makeWriter();
  EXPECT_NE(writer->addVideoInput(smallVideo()), nullptr);
  writer = subject->makeWriter();
  start();
  writer = subject->makeWriter();
  start();
  EXPECT_TRUE(input->append(picture, MediaTime(0, 10)));
  writer.reset();
}

INSTANTIATE_TEST_SUITE_P(
    Implementations, MediaWriterConformance,
    testing::Values(Implementation{"Scripted", [] { return std::make_unique<ScriptedSubject>(); }},
                    Implementation{"Module", [] { return std::make_unique<ModuleSubject>(); }}),
    [](const auto& each) { return each.param.name; });

} // namespace
} // namespace tessarin
