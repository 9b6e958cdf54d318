#include "modules/media/AudioSequencer.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <numeric>
#include <vector>

namespace tessarin::media {
namespace {

// Yields a packet with every block after the first, and one more; keeps what it was handed.
class ScriptedCoder final : public AudioCoder {
 public:
  std::vector<Bytes> encode(const SoundBlock& block) override {
    blocks.push_back(block);
    return blocks.size() > 1 ? next(1) : next(0);
  }
  std::vector<Bytes> finish() override { return next(blocks.empty() ? 0 : 2); }

  std::vector<SoundBlock> blocks;

 private:
  std::vector<Bytes> next(std::size_t count) {
    std::vector<Bytes> packets;
    for (std::size_t i = 0; i < count; ++i, ++packets_)
      packets.emplace_back(1 + packets_ % 7, static_cast<std::byte>(packets_));
    return packets;
  }
  std::size_t packets_ = 0;
};

class AudioSequencerTest : public testing::Test {
 protected:
  // Frame n holds n / 10000 on the left and its negative on the right.
  static std::vector<float> ramp(std::size_t first, std::size_t count) {
    std::vector<float> frames;
    for (std::size_t i = first; i < first + count; ++i) {
      frames.push_back(static_cast<float>(i) / 10000);
      frames.push_back(-static_cast<float>(i) / 10000);
    }
    return frames;
  }
  float left(std::size_t block, std::size_t frame) const { return coder.blocks.at(block).channels[0][frame]; }

  ScriptedCoder coder;
  AudioSequencer sequencer{coder, 2};
};

TEST_F(AudioSequencerTest, cutsTheStreamIntoBlocksBehindTheFirstOneBackwards) {
  sequencer.append(ramp(1, 1000));
  EXPECT_TRUE(coder.blocks.empty());
  sequencer.append(ramp(1001, 1500));
  ASSERT_EQ(coder.blocks.size(), 3U);
  EXPECT_EQ(left(0, 0), 0.1024F);
  EXPECT_EQ(left(0, 1023), 0.0001F);
  EXPECT_EQ(left(1, 0), 0.0001F);
  EXPECT_EQ(left(1, 1023), 0.1024F);
  EXPECT_EQ(left(2, 0), 0.1025F);
  EXPECT_EQ(coder.blocks[2].channels[1][0], -0.1025F);
}

TEST_F(AudioSequencerTest, yieldsOnePacketMoreThanBlocksWithoutThatOfTheLeadIn) {
  sequencer.append(ramp(1, 2048));
  const CodedSound first = sequencer.take();
  EXPECT_EQ(first.firstPacket, 0);
  EXPECT_EQ(first.sizes, (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(first.data, Bytes(2, std::byte{1})) << "the coder's second packet";
  sequencer.finish();
  const CodedSound rest = sequencer.take();
  EXPECT_EQ(rest.firstPacket, 1);
  EXPECT_EQ(rest.sizes, (std::vector<std::uint32_t>{3, 4}));
  EXPECT_EQ(rest.data.size(), 7U);
  EXPECT_TRUE(sequencer.take().sizes.empty());
}

TEST_F(AudioSequencerTest, leadsOutOfALastBlockThatIsNotFull) {
  sequencer.append(ramp(1, 1024 + 100));
  sequencer.finish();
  ASSERT_EQ(coder.blocks.size(), 3U);
  EXPECT_EQ(left(2, 99), 0.1124F);
  EXPECT_EQ(left(2, 100), 0.1124F) << "turns round";
  EXPECT_FLOAT_EQ(left(2, 101), 0.1123F * 255 / 256) << "and fades";
  EXPECT_FLOAT_EQ(left(2, 200), 0.1024F * 156 / 256) << "on into the block before";
  EXPECT_EQ(left(2, 356), 0);
  EXPECT_EQ(left(2, 1023), 0);
  EXPECT_EQ(sequencer.take().sizes.size(), 3U);
}

TEST_F(AudioSequencerTest, codesAStreamShorterThanABlock) {
  sequencer.append(ramp(1, 1));
  sequencer.finish();
  ASSERT_EQ(coder.blocks.size(), 2U);
  EXPECT_EQ(left(1, 0), 0.0001F);
  EXPECT_EQ(sequencer.take().sizes.size(), 2U);
}

TEST_F(AudioSequencerTest, codesNothingFromNothing) {
  sequencer.finish();
  EXPECT_TRUE(coder.blocks.empty());
  EXPECT_TRUE(sequencer.take().sizes.empty());
}

TEST_F(AudioSequencerTest, codesLastingSilenceOnce) {
  sequencer.append(ramp(1, 1024));
  sequencer.appendSilence(100 * 1024);
  EXPECT_EQ(coder.blocks.size(), 2U + 3U);
  const CodedSound silent = sequencer.take();
  ASSERT_EQ(silent.sizes.size(), 100U);
  EXPECT_EQ(silent.sizes[3], silent.sizes[2]) << "repeated";
  EXPECT_EQ(silent.sizes[99], silent.sizes[2]);
  EXPECT_EQ(silent.data.size(), std::accumulate(silent.sizes.begin(), silent.sizes.end(), std::size_t{0}));
  sequencer.append(ramp(1, 1024));
  EXPECT_EQ(coder.blocks.size(), 2U + 3U + 1U);
  sequencer.finish();
  EXPECT_EQ(sequencer.take().sizes.size(), 3U);
}

TEST_F(AudioSequencerTest, countsEveryPacketHoweverSilenceLies) {
  std::size_t packets = 0;
  std::int64_t frames = 0;
  for (const std::int64_t part : {5, 3000, 1, 1023, 100000, 7}) {
    sequencer.append(ramp(1, static_cast<std::size_t>(part)));
    sequencer.appendSilence(part * 3);
    frames += part * 4;
    const CodedSound sound = sequencer.take();
    EXPECT_EQ(sound.firstPacket, static_cast<std::int64_t>(packets));
    packets += sound.sizes.size();
  }
  sequencer.finish();
  packets += sequencer.take().sizes.size();
  EXPECT_EQ(packets, static_cast<std::size_t>((frames + 1023) / 1024 + 1));
}

TEST_F(AudioSequencerTest, keepsWithinFullScale) {
  std::vector<float> frames(2048, 0.5F);
  frames[0] = 1.5F;
  frames[1] = -1.5F;
  frames[2] = std::numeric_limits<float>::quiet_NaN();
  frames[3] = std::numeric_limits<float>::infinity();
  sequencer.append(frames);
  EXPECT_EQ(coder.blocks.at(1).channels[0][0], 1.0F);
  EXPECT_EQ(coder.blocks.at(1).channels[1][0], -1.0F);
  EXPECT_EQ(coder.blocks.at(1).channels[0][1], 0.0F);
  EXPECT_EQ(coder.blocks.at(1).channels[1][1], 0.0F);
  EXPECT_EQ(coder.blocks.at(1).channels[0][2], 0.5F);
}

} // namespace
} // namespace tessarin::media
