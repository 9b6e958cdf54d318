#include "modules/media/PictureLine.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tessarin::media {
namespace {

using ::testing::ElementsAre;

class PictureLineTest : public ::testing::Test {
 protected:
  // Appends the picture of that letter, `time` counting up.
  void push(PictureLine& line, char letter) {
    auto& picture = pictures_[static_cast<unsigned char>(letter)];
    if (!picture)
      picture = std::make_shared<I420Picture>(2, 2);
    line.push(picture, time_++);
  }

  // What waits, by letter and time, taken out.
  std::vector<std::string> drained(PictureLine& line) {
    std::vector<std::string> texts;
    bool freedRoom = false;
    while (const auto place = line.pop(freedRoom)) {
      for (int letter = 0; letter < 256; ++letter)
        if (pictures_[letter] && pictures_[letter] == place->picture)
          texts.push_back(static_cast<char>(letter) + std::to_string(place->time));
    }
    return texts;
  }

 private:
  std::shared_ptr<const I420Picture> pictures_[256];
  std::int64_t time_ = 0;
};

TEST_F(PictureLineTest, KeepsOrderAndTimes) {
  PictureLine line(3, 8);
  for (const char letter : {'a', 'b', 'b', 'c'})
    push(line, letter);
  EXPECT_THAT(drained(line), ElementsAre("a0", "b1", "b2", "c3"));
}

TEST_F(PictureLineTest, GivesUpTheNewestThatWaitsForOneMoreThanMayWait) {
  PictureLine line(3, 8);
  for (const char letter : {'a', 'b', 'c', 'd'})
    push(line, letter);
  EXPECT_THAT(drained(line), ElementsAre("a0", "b1", "b2", "d3"));
}

TEST_F(PictureLineTest, GivesUpARepeatedPictureInAllItsPlaces) {
  PictureLine line(2, 8);
  for (const char letter : {'a', 'b', 'b', 'c', 'd'})
    push(line, letter);
  EXPECT_THAT(drained(line), ElementsAre("a0", "a1", "a2", "a3", "d4"));
}

TEST_F(PictureLineTest, ARepetitionTakesAPlaceAndNoPicture) {
  PictureLine line(2, 8);
  for (const char letter : {'a', 'b', 'b', 'b'})
    push(line, letter);
  EXPECT_THAT(drained(line), ElementsAre("a0", "b1", "b2", "b3"));
}

TEST_F(PictureLineTest, HasRoomUpToItsPlacesAndTellsWhenSomeIsFreed) {
  PictureLine line(2, 3);
  bool freedRoom = false;
  EXPECT_FALSE(line.pop(freedRoom).has_value());
  EXPECT_FALSE(freedRoom);
  push(line, 'a');
  push(line, 'a');
  EXPECT_TRUE(line.hasRoom());
  push(line, 'a');
  EXPECT_FALSE(line.hasRoom());
  EXPECT_TRUE(line.pop(freedRoom).has_value());
  EXPECT_TRUE(freedRoom);
  EXPECT_TRUE(line.hasRoom());
  EXPECT_TRUE(line.pop(freedRoom).has_value());
  EXPECT_FALSE(freedRoom);
}

TEST_F(PictureLineTest, WithAsManyPlacesAsPicturesNothingIsGivenUp) {
  PictureLine line(4, 4);
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    EXPECT_TRUE(line.hasRoom());
    push(line, letter);
  }
  EXPECT_FALSE(line.hasRoom());
  EXPECT_THAT(drained(line), ElementsAre("a0", "b1", "c2", "d3"));
}

} // namespace
} // namespace tessarin::media
