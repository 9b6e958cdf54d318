#include "modules/media/H264Repeater.hpp"
#include "modules/media/TestDecoder.hpp"
#include "modules/media/VideoCoders.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace tessarin::media {
namespace {

// The parameter sets out of the "avcC" of a sample entry.
std::vector<Bytes> parameterSetsOf(const container::SampleDescription& description) {
  const Bytes& box = description.box;
  const Bytes name{std::byte{'a'}, std::byte{'v'}, std::byte{'c'}, std::byte{'C'}};
  auto at = std::search(box.begin(), box.end(), name.begin(), name.end()) + 4 + 5;
  std::vector<Bytes> units;
  for (int set = 0; set < 2; ++set) {
    ++at; // number of sets
    const auto size = std::to_integer<std::ptrdiff_t>(at[0]) * 256 + std::to_integer<std::ptrdiff_t>(at[1]);
    units.emplace_back(at + 2, at + 2 + size);
    at += 2 + size;
  }
  return units;
}

struct Stream {
  h264::ParameterSets parameters;
  Bytes parameterSets; // as a byte stream
  std::vector<CodedPicture> pictures;
};

Stream codedStream(int width, int height, int count, int keyInterval) {
  const VideoSettings settings{.width = width,
                               .height = height,
                               .averageBitRate = 400'000,
                               .expectedFrameRate = 30,
                               .maximumKeyFrameInterval = keyInterval};
  const auto coder = libraryEncoders(nullptr).make(*encoderNamed("libx264"), settings, CodingEffort::full);
  Stream stream;
  const auto keep = [&](std::vector<CodedPicture> pictures) {
    for (CodedPicture& picture : pictures)
      stream.pictures.push_back(std::move(picture));
  };
  for (int i = 0; i < count; ++i)
    keep(coder->encode(paintedPicture(width, height, i), i, i % keyInterval == 0));
  keep(coder->finish());
  const auto units = parameterSetsOf(coder->description());
  stream.parameters = h264::parseParameterSets(units[0], units[1]).value();
  for (const Bytes& unit : units) {
    stream.parameterSets.insert(stream.parameterSets.end(), {std::byte{0}, std::byte{0}, std::byte{1}});
    stream.parameterSets.insert(stream.parameterSets.end(), unit.begin(), unit.end());
  }
  return stream;
}

std::vector<DecodedPicture> decoded(const Stream& stream, const std::vector<CodedPicture>& pictures) {
  TestDecoder decoder(AV_CODEC_ID_H264, stream.parameterSets);
  for (const CodedPicture& picture : pictures)
    decoder.decodeSample(picture.sample);
  return decoder.finish();
}

TEST(H264Repeater, codesOnePictureForEachOneInOrder) {
  const Stream stream = codedStream(176, 144, 40, 20);
  ASSERT_EQ(stream.pictures.size(), 40U);
  for (std::size_t i = 0; i < 40; ++i)
    EXPECT_EQ(stream.pictures[i].isKey, i % 20 == 0);
}

TEST(H264Repeater, leavesAStreamWithoutRepetitionsUntouched) {
  const Stream stream = codedStream(176, 144, 40, 20);
  H264Repeater repeater(stream.parameters);
  for (CodedPicture picture : stream.pictures) {
    const Bytes before = picture.sample;
    repeater.fitIn(picture);
    EXPECT_EQ(picture.sample, before);
  }
}

TEST(H264Repeater, repeatsPicturesBitExactlyAnywhereAndChangesNoOther) {
  const Stream stream = codedStream(176, 144, 60, 20);
  const std::vector<DecodedPicture> plain = decoded(stream, stream.pictures);
  ASSERT_EQ(plain.size(), stream.pictures.size());
  for (unsigned seed = 1; seed <= 10; ++seed) {
    std::minstd_rand random(seed);
    H264Repeater repeater(stream.parameters);
    std::vector<CodedPicture> pictures;
    std::vector<std::size_t> shown;
    for (std::size_t i = 0; i < stream.pictures.size(); ++i) {
      CodedPicture picture = stream.pictures[i];
      repeater.fitIn(picture);
      pictures.push_back(std::move(picture));
      shown.push_back(i);
      // Often more than frame_num counts to.
      const auto repetitions = random() % 3 == 0 ? random() % 40 : 0;
      for (unsigned repetition = 0; repetition < repetitions; ++repetition) {
        const bool copiesKey = stream.pictures[i].isKey && repetition % 7 == 3;
        pictures.push_back(copiesKey ? repeater.repeatedKey() : repeater.repeated());
        shown.push_back(i);
      }
    }
    const std::vector<DecodedPicture> result = decoded(stream, pictures);
    ASSERT_EQ(result.size(), shown.size());
    for (std::size_t i = 0; i < shown.size(); ++i)
      ASSERT_TRUE(result[i] == plain[shown[i]]) << "picture " << i << ", seed " << seed;
  }
}

TEST(H264Repeater, repeatsPicturesOfEverySize) {
  const struct {
    int width, height;
  } sizes[] = {{2, 2}, {16, 16}, {18, 34}, {640, 360}, {1366, 768}, {1920, 1080}, {3840, 2160}};
  for (const auto& size : sizes) {
    const Stream stream = codedStream(size.width, size.height, 2, 20);
    H264Repeater repeater(stream.parameters);
    std::vector<CodedPicture> pictures;
    for (CodedPicture picture : stream.pictures) {
      repeater.fitIn(picture);
      pictures.push_back(picture);
      pictures.push_back(repeater.repeated());
    }
    EXPECT_FALSE(pictures.back().isKey);
    EXPECT_LT(pictures.back().sample.size(), 300U);
    const std::vector<DecodedPicture> result = decoded(stream, pictures);
    ASSERT_EQ(result.size(), 4U);
    EXPECT_TRUE(result[0] == result[1]) << size.width << "x" << size.height;
    EXPECT_TRUE(result[2] == result[3]) << size.width << "x" << size.height;
    EXPECT_FALSE(result[1] == result[2]);
  }
}

TEST(H264Repeater, copiesKeysWithoutWhatIsNoPicture) {
  const Stream stream = codedStream(176, 144, 2, 20);
  H264Repeater repeater(stream.parameters);
  CodedPicture key = stream.pictures[0];
  repeater.fitIn(key);
  repeater.repeated();
  const CodedPicture copy = repeater.repeatedKey();
  EXPECT_TRUE(copy.isKey);
  for (const auto unit : splitSample(copy.sample))
    EXPECT_EQ(h264::typeOf(unit), h264::UnitType::idrSlice);
  EXPECT_FALSE(copy.sample.empty());
}

TEST(H264Syntax, numbersPicturesAnew) {
  const Stream stream = codedStream(176, 144, 20, 100);
  for (std::size_t i = 1; i < 20; ++i) {
    const auto unit = splitSample(stream.pictures[i].sample).back();
    EXPECT_EQ(h264::frameNumberOf(unit, stream.parameters), i % 16);
    for (std::uint32_t number = 0; number < 16; ++number) {
      const auto numbered = h264::withFrameNumber(unit, stream.parameters, number);
      ASSERT_TRUE(numbered);
      EXPECT_EQ(h264::frameNumberOf(*numbered, stream.parameters), number);
      EXPECT_TRUE(std::ranges::equal(*h264::withFrameNumber(*numbered, stream.parameters, i % 16), unit));
    }
  }
}

TEST(H264Syntax, refusesTornUnits) {
  const Stream stream = codedStream(176, 144, 1, 20);
  EXPECT_FALSE(h264::frameNumberOf(std::vector<std::byte>(2), stream.parameters));
  EXPECT_FALSE(h264::withFrameNumber(std::vector<std::byte>(2), stream.parameters, 1));
  const auto units = splitByteStream(stream.parameterSets);
  ASSERT_EQ(units.size(), 2U);
  EXPECT_TRUE(h264::parseParameterSets(units[0], units[1]));
  EXPECT_FALSE(h264::parseParameterSets(units[1], units[0]));
  EXPECT_FALSE(h264::parseParameterSets({}, {}));
  EXPECT_FALSE(h264::parseParameterSets(units[0].first(6), units[1]));
  EXPECT_FALSE(h264::parseParameterSets(units[0], units[1].first(2)));
}

TEST(H264Syntax, readsTheParameterSetsOfTheCoder) {
  const h264::ParameterSets parameters = codedStream(1920, 1080, 1, 20).parameters;
  EXPECT_EQ(parameters.pictureParameterSetId, 0U);
  EXPECT_EQ(parameters.frameNumberBits, 4);
  EXPECT_EQ(parameters.macroblocks, 120U * 68);
  EXPECT_TRUE(parameters.hasDeblockingControl);
}

} // namespace
} // namespace tessarin::media
