#include "container/IndexFirstWriter.hpp"

#include "container/GrowingMovieTesting.hpp"

#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

IndexedTrack pictureTrack() {
  IndexedTrack track;
  track.presentationStart = 3000;
  track.width = 64;
  track.height = 48;
  track.descriptions = {videoDescription(64, 48)};
  return track;
}

// Two tracks, one of pictures that are shown in another order, one of sound that is primed, piece by piece.
Movie written(MemoryFile& file, std::uint64_t indexBytes, std::vector<Appended>& samples) {
  IndexedTrack sound;
  sound.kind = TrackKind::audio;
  sound.timescale = 48000;
  sound.presentationStart = 1024;
  sound.descriptions = {audioDescription(48000, 2)};
  IndexFirstWriter writer(file, {pictureTrack(), sound}, indexBytes);
  samples = pictures(100, 3000, 30);
  const std::vector<Appended> packets = pictures(160, 1024, 1, 20);
  std::size_t packet = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    samples[i].compositionOffset = i % 3 == 1 ? 9000 : 3000;
    writer.append(0, samples[i].data, 3000, samples[i].compositionOffset, samples[i].isSync);
    for (; i % 15 == 14 && packet < packets.size() && packet < (i + 1) * 160 / 100; ++packet)
      writer.append(1, packets[packet].data, 1024, 0, true);
  }
  for (; packet < packets.size(); ++packet)
    writer.append(1, packets[packet].data, 1024, 0, true);
  const std::array<std::int64_t, 2> durations{300000, 160000};
  writer.finish(durations);
  return readMovie(file);
}

FourCC typeAt(const MemoryFile& file, std::uint64_t offset) {
  return readBoxHeader(std::span(file.bytes).subspan(static_cast<std::size_t>(offset)))->type;
}

void expectWhole(const MemoryFile& file, const Movie& movie, const std::vector<Appended>& samples) {
  ASSERT_EQ(movie.tracks.size(), 2U);
  EXPECT_EQ(movie.usableBytes, file.bytes.size());
  const Track& pictures = movie.tracks[0];
  ASSERT_EQ(pictures.samples.size(), samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    EXPECT_EQ(bytesAt(file, pictures.samples[i]), samples[i].data) << i;
    EXPECT_EQ(pictures.samples[i].compositionOffset, samples[i].compositionOffset) << i;
    EXPECT_EQ(pictures.samples[i].isSync, samples[i].isSync) << i;
  }
  EXPECT_EQ(pictures.duration, MediaTime(300000, 90000));
  const Track& sound = movie.tracks[1];
  EXPECT_EQ(sound.samples.size(), 160U);
  EXPECT_EQ(sound.presentationStart, 1024);
  EXPECT_EQ(sound.duration, MediaTime(160000, 48000));
  EXPECT_EQ(sound.start, MediaTime::zero());
}

TEST(IndexFirstWriter, PutsTheIndexAheadOfTheMedia) {
  MemoryFile file;
  std::vector<Appended> samples;
  const Movie movie = written(file, 10'000, samples);
  expectWhole(file, movie, samples);
  const auto head = readBoxHeader(file.bytes);
  EXPECT_EQ(head->type, fourCC("ftyp"));
  const auto index = readBoxHeader(std::span(file.bytes).subspan(head->size));
  EXPECT_EQ(index->type, fourCC("moov"));
  EXPECT_EQ(typeAt(file, head->size + index->size), fourCC("free"));
  EXPECT_EQ(movie.tracks[0].samples[0].offset, head->size + 10'000 + 8 + 16);
}

TEST(IndexFirstWriter, MovesTheMediaWhenTheIndexNeedsMoreRoom) {
  for (const std::uint64_t indexBytes :
       {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{1000}, std::uint64_t{2000}}) {
    MemoryFile file;
    std::vector<Appended> samples;
    expectWhole(file, written(file, indexBytes, samples), samples);
  }
}

TEST(IndexFirstWriter, FillsTheRoomToTheLastByte) {
  MemoryFile roomy;
  std::vector<Appended> samples;
  written(roomy, 10'000, samples);
  const auto head = readBoxHeader(roomy.bytes);
  const std::uint64_t needed = readBoxHeader(std::span(roomy.bytes).subspan(head->size))->size;
  for (const std::uint64_t indexBytes : {needed - 1, needed, needed + 1}) {
    MemoryFile file;
    const Movie movie = written(file, indexBytes, samples);
    expectWhole(file, movie, samples);
    EXPECT_EQ(movie.tracks[0].samples[0].offset == head->size + indexBytes + 24, indexBytes >= needed);
  }
}

TEST(IndexFirstWriter, RefusesWhatItCannotTell) {
  MemoryFile file;
  const auto refused = [&](auto call) {
    try {
      call();
      return false;
    } catch (const ContainerFailure& failure) {
      return failure.error() == ContainerError::unsupported;
    }
  };
  EXPECT_TRUE(refused([&] { IndexFirstWriter(file, {}, 0); }));
  EXPECT_TRUE(refused([&] { IndexFirstWriter(file, {IndexedTrack()}, 0); }));
  EXPECT_TRUE(refused([&] { IndexFirstWriter(file, {pictureTrack()}, 0, "mp4"); }));
  IndexFirstWriter writer(file, {pictureTrack()}, 0);
  const Bytes data(10);
  EXPECT_TRUE(refused([&] { writer.append(1, data, 1, 0, true); }));
  EXPECT_TRUE(refused([&] { writer.append(0, data, 1, 0, true, 1); }));
  EXPECT_TRUE(refused([&] { writer.finish({}); }));
}

} // namespace
} // namespace tessarin::container
