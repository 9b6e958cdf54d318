#include "modules/media/AudioSampleEntry.hpp"

#include "modules/media/CoderFailure.hpp"

#include <gtest/gtest.h>

namespace tessarin::media {
namespace {

Bytes bytes(std::initializer_list<int> values) {
  Bytes result;
  for (const int value : values)
    result.push_back(static_cast<std::byte>(value));
  return result;
}

TEST(AudioSampleEntry, tellsTheFormOfTheSoundAndItsDecoder) {
  const container::SampleDescription entry = makeAudioSampleEntry({}, bytes({0x11, 0x90}));
  EXPECT_EQ(entry.codec, "mp4a");
  EXPECT_EQ(entry.sampleRate, 48000);
  EXPECT_EQ(entry.channelCount, 2);
  EXPECT_EQ(entry.box,
            bytes({0, 0,  0,    75,   'm', 'p', '4', 'a', 0,  0,    0, 0, 0, 0,    0,    1, 0, 0, 0,
                   0, 0,  0,    0,    0,   0,   2,   0,   16, 0,    0, 0, 0, 0xBB, 0x80, 0, 0, // 48000 Hz
                   0, 0,  0,    39,   'e', 's', 'd', 's', 0,  0,    0, 0,                      // the box
                   3, 25, 0,    0,    0,                                                       // stream
                   4, 17, 0x40, 0x15, 0,   6,   0,   0,   2,  0xEE, 0, 0, 2, 0xEE, 0, // AAC, 192000 bit/s
                   5, 2,  0x11, 0x90,                                                 // configuration
                   6, 1,  2}));
}

TEST(AudioSampleEntry, yieldsTheConfigurationAgain) {
  const Bytes configuration = bytes({0x11, 0x90, 0x56, 0xE5, 0});
  EXPECT_EQ(audioConfiguration(makeAudioSampleEntry({}, configuration)), configuration);
}

TEST(AudioSampleEntry, readsLengthsOfMoreThanOneByte) {
  container::SampleDescription entry = makeAudioSampleEntry({}, bytes({0x11, 0x90}));
  // The stream's length as some writers have it, in four bytes.
  entry.box[49] = std::byte{0x80};
  const Bytes more = bytes({0x80, 0x80, 25});
  entry.box.insert(entry.box.begin() + 50, more.begin(), more.end());
  entry.box[39] = std::byte{42};
  EXPECT_EQ(audioConfiguration(entry), bytes({0x11, 0x90}));
}

TEST(AudioSampleEntry, refusesAConfigurationThatIsNone) {
  EXPECT_THROW(makeAudioSampleEntry({}, {}), CoderFailure);
  EXPECT_THROW(makeAudioSampleEntry({}, Bytes(65)), CoderFailure);
  EXPECT_NO_THROW(makeAudioSampleEntry({}, Bytes(64)));
}

TEST(AudioSampleEntry, refusesTornEntriesAndOtherSound) {
  const container::SampleDescription entry = makeAudioSampleEntry({}, bytes({0x11, 0x90}));
  for (std::size_t size = 0; size < entry.box.size(); ++size) {
    container::SampleDescription torn = entry;
    torn.box.resize(size);
    EXPECT_THROW(audioConfiguration(torn), CoderFailure) << size;
  }
  container::SampleDescription other = entry;
  other.codec = "alac";
  EXPECT_THROW(audioConfiguration(other), CoderFailure);
  other = entry;
  other.box[55] = std::byte{0x6B}; // MP3
  EXPECT_THROW(audioConfiguration(other), CoderFailure);
}

} // namespace
} // namespace tessarin::media
