#include "modules/media/PictureSequencer.hpp"

#include "modules/media/CoderFailure.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

namespace tessarin::media {
namespace {

// What a coded picture of the scripted coder says: which of the coder's pictures it is, what it shows, and
// that a decoder must have decoded the coder's picture before it, unless it is a key.
struct Content {
  int coded = 0; // counted from 1
  const I420Picture* shows = nullptr;
  bool isRepeated = false;
  bool isKey = false;
};

CodedPicture packed(const Content& content) {
  CodedPicture picture;
  picture.sample.resize(sizeof(content));
  std::memcpy(picture.sample.data(), &content, sizeof(content));
  picture.isKey = content.isKey;
  return picture;
}

Content unpacked(const CodedPicture& picture) {
  Content content;
  std::memcpy(&content, picture.sample.data(), sizeof(content));
  return content;
}

class ScriptedCoder final : public PictureCoder {
 public:
  explicit ScriptedCoder(std::int64_t delay) : delay_(delay) {}

  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>& picture, std::int64_t time,
                                   bool asKey) override {
    EXPECT_GT(time, lastTime) << "the coder's time must increase";
    lastTime = time;
    held_.push_back({++count, picture.get(), false, asKey});
    if (static_cast<std::int64_t>(held_.size()) <= delay_)
      return {};
    return {take()};
  }
  std::vector<CodedPicture> finish() override {
    std::vector<CodedPicture> rest;
    while (!held_.empty())
      rest.push_back(take());
    return rest;
  }
  std::int64_t delay() const override { return delay_; }

  int count = 0;
  std::int64_t lastTime = -1;

 private:
  CodedPicture take() {
    const Content content = held_.front();
    held_.pop_front();
    return packed(content);
  }

  const std::int64_t delay_;
  std::deque<Content> held_;
};

class ScriptedRepeater final : public PictureRepeater {
 public:
  void fitIn(CodedPicture& picture) override {
    if (picture.isKey)
      key_ = unpacked(picture);
  }
  CodedPicture repeated() override { return packed({0, nullptr, true, false}); }
  CodedPicture repeatedKey() override {
    Content key = key_;
    key.isRepeated = true;
    return packed(key);
  }

 private:
  Content key_;
};

struct Bench {
  Bench(std::int64_t delay, KeyInterval interval, bool repeats = true)
      : coder(delay),
        sequencer(coder, repeats ? std::make_unique<ScriptedRepeater>() : nullptr, interval,
                  [this](CodedPicture coded, std::int64_t time) { decode(unpacked(coded), time); }) {}

  // A decoder: it follows only what it can follow, and shows one picture at each time.
  void decode(const Content& content, std::int64_t time) {
    if (content.isKey) {
      EXPECT_FALSE(content.isRepeated && lastWasKey) << "two keys of one identity behind each other";
      state = content.coded;
      picture = content.shows;
      keys.push_back(shown.size());
    } else if (!content.isRepeated) {
      EXPECT_EQ(content.coded, state + 1) << "predicted from another picture";
      state = content.coded;
      picture = content.shows;
    }
    lastWasKey = content.isKey;
    shown.push_back(picture);
    times.push_back(time);
    text += content.isKey ? (content.isRepeated ? 'k' : 'K') : (content.isRepeated ? '.' : 'P');
  }

  std::shared_ptr<const I420Picture> makePicture() const { return std::make_shared<I420Picture>(2, 2); }

  // By value: the picture may be one of those that were appended, which move.
  void append(std::shared_ptr<const I420Picture> next) {
    appended.push_back(next);
    sequencer.append(next, 10 * static_cast<std::int64_t>(appended.size()));
    waiting = std::max(waiting, appended.size() - shown.size());
  }
  void append(std::shared_ptr<const I420Picture> next, int count) {
    for (int i = 0; i < count; ++i)
      append(next);
  }

  void finishAndCheck(std::int64_t longestKeyDistance) {
    sequencer.finish();
    ASSERT_EQ(shown.size(), appended.size());
    for (std::size_t i = 0; i < shown.size(); ++i) {
      ASSERT_EQ(shown[i], appended[i].get()) << "at " << i << " of " << text;
      ASSERT_EQ(times[i], 10 * static_cast<std::int64_t>(i + 1));
    }
    ASSERT_FALSE(keys.empty());
    EXPECT_EQ(keys.front(), 0U);
    keys.push_back(shown.size());
    for (std::size_t i = 1; i < keys.size(); ++i)
      EXPECT_LE(keys[i] - keys[i - 1], static_cast<std::size_t>(longestKeyDistance)) << text;
  }

  ScriptedCoder coder;
  PictureSequencer sequencer;
  std::vector<std::shared_ptr<const I420Picture>> appended;
  std::vector<const I420Picture*> shown;
  std::vector<std::int64_t> times;
  std::vector<std::size_t> keys;
  std::string text;
  std::size_t waiting = 0;
  int state = 0;
  const I420Picture* picture = nullptr;
  bool lastWasKey = false;
};

constexpr std::int64_t noTime = 1'000'000'000;

TEST(PictureSequencer, codesEveryNewPictureWithKeysInTheInterval) {
  Bench bench(0, {4, noTime});
  for (int i = 0; i < 10; ++i)
    bench.append(bench.makePicture());
  bench.finishAndCheck(4);
  EXPECT_EQ(bench.text, "KPPPKPPPKP");
}

TEST(PictureSequencer, codesEveryRepetitionWithoutARepeater) {
  Bench bench(3, {4, noTime}, false);
  bench.append(bench.makePicture(), 10);
  bench.finishAndCheck(4);
  EXPECT_EQ(bench.text, "KPPPKPPPKP");
  EXPECT_EQ(bench.coder.count, 10);
}

TEST(PictureSequencer, repeatsAStillPictureAndItsKeysWithoutTheCoder) {
  Bench bench(0, {4, noTime});
  bench.append(bench.makePicture(), 10);
  bench.finishAndCheck(4);
  EXPECT_EQ(bench.text, "K...k...k.");
  EXPECT_EQ(bench.coder.count, 1);
}

TEST(PictureSequencer, codesAKeyOnceWhenTheStillPictureWasPredicted) {
  Bench bench(0, {4, noTime});
  bench.append(bench.makePicture(), 2);
  bench.append(bench.makePicture(), 12);
  bench.finishAndCheck(4);
  EXPECT_EQ(bench.text, "K.P.K...k...k.");
  EXPECT_EQ(bench.coder.count, 3);
}

TEST(PictureSequencer, pushesAChangeOutOfADelayedCoderAndThenLetsItRest) {
  Bench bench(3, {20, noTime});
  bench.append(bench.makePicture());
  bench.append(bench.makePicture(), 11);
  EXPECT_EQ(bench.coder.count, 2) << "another change may follow";
  bench.append(bench.appended.back(), 5);
  EXPECT_EQ(bench.coder.count, 2 + 3) << "as many repetitions as the coder holds back";
  EXPECT_EQ(bench.shown.size(), 17U - 3) << "the last slots stay open for what the coder holds";
  EXPECT_LE(bench.waiting, 10U + 3 + 2);
  bench.finishAndCheck(20);
}

// As on a machine that is too slow: between the changes there are more repetitions than the coder holds back
// pictures, and none of them is coded but as a key that is due.
TEST(PictureSequencer, codesHardlyARepetitionBetweenChangesThatComeFarApart) {
  for (const int distance : {5, 7, 13}) {
    Bench bench(4, {60, noTime});
    for (int i = 0; i < 600 / distance; ++i)
      bench.append(bench.makePicture(), distance);
    EXPECT_LE(bench.coder.count, 600 / distance + 10) << distance << ": the changes and the keys";
    bench.finishAndCheck(60);
  }
}

TEST(PictureSequencer, boundsWhatWaitsWhereChangesComeFarApart) {
  Bench bench(12, {60, noTime});
  for (int i = 0; i < 60; ++i)
    bench.append(bench.makePicture(), 20);
  EXPECT_LE(bench.waiting, 60U + 12 + 2);
  bench.finishAndCheck(60);
}

TEST(PictureSequencer, putsCopiesOfAKeyWhereTheyAreDueBehindADelayedCoder) {
  Bench bench(3, {20, noTime});
  bench.append(bench.makePicture(), 100);
  bench.finishAndCheck(20);
  EXPECT_THAT(bench.keys, testing::ElementsAre(0, 20, 40, 60, 80, 100));
  EXPECT_EQ(bench.coder.count, 1 + 3);
}

TEST(PictureSequencer, putsTheCopyInFrontOfTheOpenSlotsWhenThePictureChangesThen) {
  for (int still = 20; still < 30; ++still) {
    Bench bench(3, {20, noTime});
    bench.append(bench.makePicture(), still);
    for (int i = 0; i < 40; ++i)
      bench.append(bench.makePicture());
    bench.finishAndCheck(20);
  }
}

TEST(PictureSequencer, putsAKeyWhenTheTimeIsUpEvenWithFewPictures) {
  Bench bench(0, {30, 100});
  for (int i = 0; i < 25; ++i)
    bench.append(bench.makePicture());
  bench.finishAndCheck(10);
  Bench still(2, {12, 100});
  still.append(still.makePicture(), 60);
  still.finishAndCheck(10);
  EXPECT_EQ(still.coder.count, 1 + 2);
}

TEST(PictureSequencer, limitsTheTimeOfTheCoderAfterAPause) {
  Bench bench(0, {1000, noTime});
  bench.append(bench.makePicture());
  const auto still = bench.makePicture();
  bench.append(still);
  EXPECT_EQ(bench.coder.lastTime, 1);
  bench.append(still, 500);
  bench.append(bench.makePicture());
  EXPECT_EQ(bench.coder.lastTime, 1 + 4);
}

// Yields one picture too many, or none at all.
class MiscountingCoder final : public PictureCoder {
 public:
  explicit MiscountingCoder(int surplus) : surplus_(surplus) {}

  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>&, std::int64_t, bool) override {
    return std::vector<CodedPicture>(static_cast<std::size_t>(1 + surplus_));
  }
  std::vector<CodedPicture> finish() override { return {}; }
  std::int64_t delay() const override { return 1; }

 private:
  const int surplus_;
};

TEST(PictureSequencer, refusesACoderThatYieldsMoreThanItWasGiven) {
  MiscountingCoder coder(1);
  PictureSequencer sequencer(coder, nullptr, {10, 10}, [](CodedPicture, std::int64_t) {});
  EXPECT_THROW(sequencer.append(std::make_shared<I420Picture>(2, 2), 0), CoderFailure);
}

TEST(PictureSequencer, refusesACoderThatLosesPictures) {
  MiscountingCoder coder(-1);
  PictureSequencer sequencer(coder, nullptr, {10, 10}, [](CodedPicture, std::int64_t) {});
  sequencer.append(std::make_shared<I420Picture>(2, 2), 0);
  EXPECT_THROW(sequencer.finish(), CoderFailure);
}

TEST(PictureSequencer, finishesWithoutPictures) {
  Bench bench(3, {4, noTime});
  bench.sequencer.finish();
  EXPECT_TRUE(bench.shown.empty());
}

TEST(PictureSequencer, staysDecodableForAnyPatternDelayAndInterval) {
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    std::minstd_rand random(seed);
    const auto delay = static_cast<std::int64_t>(random() % 13);
    const auto interval = static_cast<std::int64_t>(delay + 3 + random() % 40);
    const std::int64_t time = random() % 2 == 0 ? noTime : static_cast<std::int64_t>(20 + random() % 400);
    Bench bench(delay, {interval, time});
    while (bench.appended.size() < 300)
      bench.append(bench.makePicture(),
                   static_cast<int>(random() % 3 == 0 ? 1 + random() % 70 : 1 + random() % 3));
    bench.finishAndCheck(interval);
    EXPECT_LE(bench.waiting, static_cast<std::size_t>(interval + delay + 2)) << seed;
    if (testing::Test::HasFailure())
      FAIL() << "seed " << seed << " delay " << delay << " interval " << interval << " time " << time;
  }
}

} // namespace
} // namespace tessarin::media
