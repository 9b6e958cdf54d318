#include "modules/media/SteppingCoder.hpp"

#include "modules/media/CoderFailure.hpp"
#include "modules/media/TestDecoder.hpp"
#include "modules/media/VideoCoders.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <optional>
#include <string>

namespace tessarin::media {
namespace {

using testing::ElementsAre;

// Says with each coded picture at what effort it was made and which picture in all it is.
class ScriptedCoder final : public VideoCoder {
 public:
  ScriptedCoder(CodingEffort effort, int& count, const char* name) : effort_(effort), count_(count) {
    description_.codec = name;
  }

  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>&, std::int64_t,
                                   bool asKey) override {
    held_.push_back({{static_cast<std::byte>(effort_), static_cast<std::byte>(count_++)}, asKey});
    if (held_.size() <= 2)
      return {};
    return take(1);
  }
  std::vector<CodedPicture> finish() override { return take(held_.size()); }
  std::int64_t delay() const override { return 2; }
  const container::SampleDescription& description() const override { return description_; }
  std::unique_ptr<PictureRepeater> makeRepeater() const override { return nullptr; }

 private:
  std::vector<CodedPicture> take(std::size_t number) {
    std::vector<CodedPicture> pictures;
    for (; number > 0; --number) {
      pictures.push_back(held_.front());
      held_.pop_front();
    }
    return pictures;
  }

  const CodingEffort effort_;
  int& count_;
  container::SampleDescription description_;
  std::deque<CodedPicture> held_;
};

class SteppingCoderTest : public testing::Test {
 protected:
  std::unique_ptr<VideoCoder> make(CodingEffort made) {
    efforts.push_back(made);
    if (isRefusing)
      throw CoderFailure("libav", -1);
    return std::make_unique<ScriptedCoder>(made, count, name);
  }
  void encode(bool asKey = false) {
    for (const CodedPicture& picture : coder.encode(nullptr, 0, asKey))
      put(picture);
  }
  void put(const CodedPicture& picture) {
    numbers.push_back(std::to_integer<int>(picture.sample[1]));
    effortsOut.push_back(static_cast<CodingEffort>(picture.sample[0]));
  }

  bool isRefusing = false;
  const char* name = "avc1";
  int count = 0;
  std::vector<CodingEffort> efforts;    // of the coders made
  std::vector<CodingEffort> effortsOut; // of the pictures that came out
  std::vector<int> numbers;
  SharedEffort effort;
  SteppingCoder coder{[this](CodingEffort made) { return make(made); }, effort};
};

TEST_F(SteppingCoderTest, changesAtTheNextKeyAndLosesNothingOfTheCoderBefore) {
  encode(true);
  encode();
  effort.stepDown(CodingEffort::full);
  encode();
  EXPECT_THAT(efforts, ElementsAre(CodingEffort::full));
  encode(true);
  encode();
  EXPECT_THAT(efforts, ElementsAre(CodingEffort::full, CodingEffort::reduced));
  for (const CodedPicture& picture : coder.finish())
    put(picture);
  EXPECT_THAT(numbers, ElementsAre(0, 1, 2, 3, 4));
  EXPECT_THAT(effortsOut, ElementsAre(CodingEffort::full, CodingEffort::full, CodingEffort::full,
                                      CodingEffort::reduced, CodingEffort::reduced));
}

TEST_F(SteppingCoderTest, makesNoNewCoderWhileTheEffortStays) {
  for (int i = 0; i < 10; ++i)
    encode(i % 3 == 0);
  EXPECT_THAT(efforts, ElementsAre(CodingEffort::full));
}

TEST_F(SteppingCoderTest, letsNoKeyOfANewCoderFollowOneOfTheOldDirectly) {
  encode(true);
  effort.stepDown(CodingEffort::full);
  encode(true);
  EXPECT_THAT(efforts, ElementsAre(CodingEffort::full));
  encode();
  encode(true);
  EXPECT_THAT(efforts, ElementsAre(CodingEffort::full, CodingEffort::reduced));
}

TEST_F(SteppingCoderTest, goesOnWithTheOldCoderWhenTheNewOneCannotBeHadOrTellsItsStreamOtherwise) {
  encode(true);
  encode();
  effort.stepDown(CodingEffort::full);
  isRefusing = true;
  encode(true);
  encode();
  encode(true);
  EXPECT_THAT(efforts, ElementsAre(CodingEffort::full, CodingEffort::reduced)) << "tried once";
  encode();
  effort.stepDown(CodingEffort::reduced);
  isRefusing = false;
  name = "other";
  encode(true);
  for (const CodedPicture& picture : coder.finish())
    put(picture);
  EXPECT_THAT(numbers, ElementsAre(0, 1, 2, 3, 4, 5, 6));
  EXPECT_THAT(effortsOut, testing::Each(CodingEffort::full));
}

TEST(SteppingCoder, failsWhenTheFirstCoderCannotBeHad) {
  const SharedEffort effort;
  const auto refuse = [](CodingEffort) -> std::unique_ptr<VideoCoder> { throw CoderFailure("libav", -1); };
  EXPECT_THROW(SteppingCoder(refuse, effort), CoderFailure);
}

// The parameter sets of an H.264 description, as a byte stream.
Bytes parameterSets(const container::SampleDescription& description) {
  const Bytes marker{std::byte{'a'}, std::byte{'v'}, std::byte{'c'}, std::byte{'C'}};
  auto at = std::search(description.box.begin(), description.box.end(), marker.begin(), marker.end()) + 4 + 5;
  Bytes stream;
  for (int set = 0; set < 2; ++set) {
    ++at; // how many
    const auto size = std::to_integer<std::ptrdiff_t>(at[0]) << 8 | std::to_integer<std::ptrdiff_t>(at[1]);
    at += 2;
    stream.insert(stream.end(), {std::byte{0}, std::byte{0}, std::byte{1}});
    stream.insert(stream.end(), at, at + size);
    at += size;
  }
  return stream;
}

double meanDifference(const DecodedPicture& decoded, const I420Picture& painted) {
  const pixels::I420Planes planes = painted.planes();
  double sum = 0;
  for (int y = 0; y < painted.height(); ++y)
    for (int x = 0; x < painted.width(); ++x)
      sum += std::abs(decoded[static_cast<std::size_t>(y * painted.width() + x)] -
                      planes.y[y * planes.yStride + x]);
  return sum / (painted.width() * painted.height());
}

std::optional<std::string> searchToldBy(const Bytes& sample) {
  const std::string text(reinterpret_cast<const char*>(sample.data()), sample.size());
  const std::size_t at = text.find(" subme=");
  return at == std::string::npos ? std::nullopt : std::optional(text.substr(at + 1, 7));
}

// The real coders of all efforts in one stream, with repeated pictures, decoded as one stream. Every
// picture shows what was painted for its place.
TEST(SteppingCoder, makesOneStreamOfAllEfforts) {
  constexpr int width = 320;
  constexpr int height = 176;
  constexpr int keyInterval = 20;
  constexpr int count = 160;
  VideoCoders coders(libraryEncoders(nullptr));
  const auto named = coders.make({.width = width,
                                  .height = height,
                                  .averageBitRate = 4'000'000,
                                  .expectedFrameRate = 20,
                                  .maximumKeyFrameInterval = keyInterval});
  ASSERT_EQ(named.encoderName, "libx264");
  auto repeater = named.coder->makeRepeater();
  ASSERT_NE(repeater, nullptr);
  TestDecoder decoder(AV_CODEC_ID_H264, parameterSets(named.coder->description()));
  std::vector<std::int64_t> times;
  std::vector<std::string> searches; // of the coders, which tell it with their first picture
  int keys = 0;
  PictureSequencer sequencer(*named.coder, std::move(repeater), {keyInterval, 1'000'000},
                             [&](const CodedPicture& picture, std::int64_t time) {
                               times.push_back(time);
                               keys += picture.isKey ? 1 : 0;
                               if (const auto search = searchToldBy(picture.sample))
                                 searches.push_back(*search);
                               decoder.decodeSample(picture.sample);
                             });
  std::vector<std::shared_ptr<const I420Picture>> painted;
  for (int i = 0; i < count; ++i) {
    if (i == 50)
      coders.effort().stepDown(CodingEffort::full);
    if (i == 100)
      coders.effort().stepDown(CodingEffort::reduced);
    const bool isRepetition = i % 7 == 3 || (i > 70 && i < 85);
    painted.push_back(isRepetition ? painted.back() : paintedPicture(width, height, i));
    sequencer.append(painted.back(), i);
  }
  sequencer.finish();
  const auto& pictures = decoder.finish();
  ASSERT_EQ(pictures.size(), static_cast<std::size_t>(count));
  ASSERT_EQ(times.size(), static_cast<std::size_t>(count));
  EXPECT_GE(keys, count / keyInterval);
  EXPECT_THAT(searches, ElementsAre("subme=2", "subme=1", "subme=0"));
  for (std::size_t i = 0; i < pictures.size(); ++i)
    EXPECT_LT(meanDifference(pictures[i], *painted[i]), 12) << i;
}

} // namespace
} // namespace tessarin::media
