#include "container/FragmentedMovieWriter.hpp"

#include "container/GrowingMovieTesting.hpp"

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::SizeIs;

void expectSame(const OpenFile& file, const Track& track, const std::vector<Appended>& expected,
                std::int64_t timeShift = 0) {
  ASSERT_EQ(track.samples.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const Sample& sample = track.samples[i];
    EXPECT_EQ(bytesAt(file, sample), expected[i].data) << i;
    EXPECT_EQ(sample.decodeTime, expected[i].decodeTime - timeShift) << i;
    EXPECT_EQ(sample.compositionOffset, expected[i].compositionOffset) << i;
    EXPECT_EQ(sample.isSync, expected[i].isSync) << i;
    if (i > 0) {
      EXPECT_EQ(track.samples[i - 1].duration, expected[i].decodeTime - expected[i - 1].decodeTime) << i;
    }
  }
}

TEST(FragmentedMovieWriter, FinishesAsAnOrdinaryFileWithWhatWasAppended) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  std::vector<Appended> samples = pictures(200, 1500, 60);
  samples[100].decodeTime += 7; // an uneven grid
  appendAll(*writer, samples);
  finish(*writer, {200 * 1500 + 11});

  const Movie movie = readMovie(file);
  EXPECT_FALSE(movie.isFragmented);
  EXPECT_EQ(movie.usableBytes, file.bytes.size());
  ASSERT_THAT(movie.tracks, SizeIs(1));
  const Track& track = movie.tracks[0];
  EXPECT_EQ(track.id, 1U);
  EXPECT_EQ(track.kind, TrackKind::video);
  EXPECT_EQ(track.timescale, videoScale);
  EXPECT_EQ(track.descriptions, std::vector{videoDescription(64, 48)});
  EXPECT_EQ(track.matrix, Track{}.matrix);
  expectSame(file, track, samples);
  EXPECT_EQ(track.samples.back().duration, 1511U);
  EXPECT_EQ(track.start, MediaTime::zero());
  EXPECT_EQ(track.duration, MediaTime(300011, videoScale));
  EXPECT_EQ(movie.duration, MediaTime(300011, videoScale));
}

TEST(FragmentedMovieWriter, LeavesAnUnfinishedFileReadableToItsLastFragment) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  const std::vector<Appended> samples = pictures(150, 1500, 60);
  appendAll(*writer, samples);

  const Movie movie = readMovie(file);
  EXPECT_TRUE(movie.isFragmented);
  EXPECT_EQ(movie.usableBytes, file.bytes.size());
  ASSERT_THAT(movie.tracks, SizeIs(1));
  expectSame(file, movie.tracks[0], {samples.begin(), samples.begin() + 120});
  EXPECT_EQ(movie.duration, MediaTime(120 * 1500, videoScale));
}

TEST(FragmentedMovieWriter, BeginsFragmentsWithTheKeyFrameAppendedBeforeTheFlush) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  const std::vector<Appended> samples = pictures(61, 1500, 60);
  appendAll(*writer, samples);
  EXPECT_THAT(readMovie(file).tracks[0].samples, SizeIs(60));
  finish(*writer, {61 * 1500});
  EXPECT_THAT(readMovie(file).tracks[0].samples, SizeIs(61));
}

TEST(FragmentedMovieWriter, WritesEachFragmentAtOnceAndMakesItDurable) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  const std::vector<Appended> samples = pictures(8, 1500, 3);
  writer->flushFragment();
  append(*writer, 0, samples[0]);
  writer->flushFragment();
  EXPECT_THAT(file.changes, SizeIs(0)) << "the only sample is held back";

  append(*writer, 0, samples[1]);
  writer->flushFragment();
  ASSERT_THAT(file.changes, SizeIs(3)) << "head, fragment, sync";
  EXPECT_TRUE(file.changes[2].isSync);

  append(*writer, 0, samples[2]);
  append(*writer, 0, samples[3]);
  EXPECT_THAT(file.changes, SizeIs(3));
  writer->flushFragment();
  ASSERT_THAT(file.changes, SizeIs(5)) << "fragment, sync";
  EXPECT_TRUE(file.changes[4].isSync);
  writer->flushFragment();
  EXPECT_THAT(file.changes, SizeIs(5)) << "nothing new";

  finish(*writer, {7000});
  ASSERT_THAT(file.changes, SizeIs(10)) << "fragment, index, sync, header, sync";
  EXPECT_TRUE(file.changes[7].isSync);
  EXPECT_THAT(file.changes[8].bytes, SizeIs(16));
  EXPECT_TRUE(file.changes[9].isSync);
}

TEST(FragmentedMovieWriter, SaysItsBrand) {
  for (const char* brand : {"isom", "M4A "}) {
    MemoryFile file;
    FragmentedMovieWriter writer(file, {{TrackKind::audio, 48000, 0, 0, 0}}, brand);
    writer.setDescription(0, audioDescription());
    writer.append(0, randomBytes(5, 1), 0, 0, true);
    const std::vector<std::int64_t> ends{1024};
    writer.finish(ends);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(file.bytes.data()) + 8, 4), brand);
  }
  MemoryFile file;
  EXPECT_EQ(containerError([&] {
              FragmentedMovieWriter(file, {{TrackKind::audio, 48000, 0, 0, 0}}, "long one");
            }),
            ContainerError::unsupported);
}

TEST(FragmentedMovieWriter, KeepsAudioWithItsPrimingBesideTheVideo) {
  MemoryFile file;
  FragmentedMovieWriter writer(file, {videoTrack(), audioTrack()});
  writer.setDescription(0, videoDescription(64, 48));
  writer.setDescription(1, audioDescription());
  const std::vector<Appended> video = pictures(180, 1500, 60);
  std::vector<Appended> audio = pictures(142, 1024, 1, 20);
  std::size_t heard = 0;
  for (const Appended& picture : video) {
    append(writer, 0, picture);
    for (; heard < audio.size() && audio[heard].decodeTime * 90 <= picture.decodeTime * 48; ++heard)
      append(writer, 1, audio[heard]);
    if (picture.isSync && picture.decodeTime > 0)
      writer.flushFragment();
  }
  const Movie growing = readMovie(file);
  EXPECT_TRUE(growing.isFragmented);
  EXPECT_EQ(growing.tracks[1].presentationStart, 1024);
  EXPECT_EQ(growing.tracks[1].start, MediaTime::zero());

  finish(writer, {180 * 1500, 1024 + 3 * 48000});
  const Movie movie = readMovie(file);
  ASSERT_THAT(movie.tracks, SizeIs(2));
  expectSame(file, movie.tracks[0], video);
  expectSame(file, movie.tracks[1], {audio.begin(), audio.begin() + static_cast<std::ptrdiff_t>(heard)});
  const Track& sound = movie.tracks[1];
  EXPECT_EQ(sound.kind, TrackKind::audio);
  EXPECT_EQ(sound.descriptions[0].sampleRate, 48000);
  EXPECT_EQ(sound.descriptions[0].channelCount, 2);
  EXPECT_EQ(sound.presentationStart, 1024);
  EXPECT_EQ(sound.start, MediaTime::zero());
  EXPECT_EQ(sound.duration, MediaTime(3, 1));
  EXPECT_EQ(movie.duration, MediaTime(3, 1));
}

TEST(FragmentedMovieWriter, TellsALateTrackByAPauseBeforeAndAfterTheFinish) {
  MemoryFile file;
  FragmentedMovieWriter writer(file, {videoTrack(), audioTrack()});
  writer.setDescription(0, videoDescription(64, 48));
  writer.setDescription(1, audioDescription());
  append(writer, 0, {randomBytes(9, 1), 0, 0, true});
  append(writer, 0, {randomBytes(9, 2), 90000, 0, false});
  append(writer, 1, {randomBytes(9, 3), 1024 + 4800, 0, true});
  append(writer, 1, {randomBytes(9, 4), 1024 + 4800 + 1024, 0, true});
  writer.flushFragment();
  const Movie growing = readMovie(file);
  EXPECT_EQ(growing.tracks[1].start, MediaTime(1, 10));
  EXPECT_EQ(growing.tracks[1].duration, MediaTime(1024, 48000));

  finish(writer, {180000, 1024 + 4800 + 2048});
  const Movie movie = readMovie(file);
  EXPECT_EQ(movie.tracks[1].start, MediaTime(1, 10));
  EXPECT_EQ(movie.tracks[1].duration, MediaTime(2048, 48000));
  EXPECT_EQ(movie.tracks[1].presentationStart, 0);
}

TEST(FragmentedMovieWriter, PresentsReorderedPicturesToTheEndOfTheLastOne) {
  MemoryFile file;
  FragmentedMovieWriter writer(file, {{TrackKind::video, 30, 64, 48, 1}});
  writer.setDescription(0, videoDescription(64, 48));
  const std::vector<Appended> samples{
      {randomBytes(5, 1), 0, 1, true}, {randomBytes(5, 2), 1, 2, false}, {randomBytes(5, 3), 2, 0, false}};
  for (const Appended& sample : samples)
    append(writer, 0, sample);
  finish(writer, {3});
  const Movie movie = readMovie(file);
  expectSame(file, movie.tracks[0], samples);
  EXPECT_EQ(movie.tracks[0].presentationStart, 1);
  EXPECT_EQ(movie.duration, MediaTime(3, 30));
}

TEST(FragmentedMovieWriter, KeepsNegativeCompositionOffsets) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  const std::vector<Appended> samples{
      {randomBytes(5, 1), 0, 0, true}, {randomBytes(5, 2), 10, 5, false}, {randomBytes(5, 3), 20, -5, false}};
  for (const Appended& sample : samples)
    append(*writer, 0, sample);
  writer->flushFragment();
  expectSame(file, readMovie(file).tracks[0], {samples.begin(), samples.begin() + 2});
  finish(*writer, {30});
  expectSame(file, readMovie(file).tracks[0], samples);
}

TEST(FragmentedMovieWriter, GivesTheLastSampleAtLeastOneUnit) {
  for (const std::int64_t end : {1499, 1500, 1501, 1502}) {
    MemoryFile file;
    const auto writer = videoWriter(file);
    append(*writer, 0, {randomBytes(3, 1), 0, 0, true});
    append(*writer, 0, {randomBytes(3, 2), 1500, 0, false});
    finish(*writer, {end});
    EXPECT_EQ(readMovie(file).tracks[0].samples[1].duration, end == 1502 ? 2U : 1U) << end;
  }
}

TEST(FragmentedMovieWriter, KeepsDurationsExactWhereTimescalesDoNotDivide) {
  MemoryFile file;
  FragmentedMovieWriter writer(file, {{TrackKind::video, 30000, 64, 48, 0}, audioTrack()});
  writer.setDescription(0, videoDescription(64, 48));
  writer.setDescription(1, audioDescription());
  append(writer, 0, {randomBytes(3, 1), 0, 0, true});
  append(writer, 1, {randomBytes(3, 2), 0, 0, true});
  append(writer, 1, {randomBytes(3, 2), 1024, 0, true});
  finish(writer, {1001, 1024 + 1601});
  const Movie movie = readMovie(file);
  EXPECT_EQ(movie.tracks[0].duration, MediaTime(1001, 30000));
  EXPECT_EQ(movie.tracks[1].duration, MediaTime(1601, 48000));
}

TEST(FragmentedMovieWriter, HoldsTimesThatNeed64Bits) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  constexpr std::int64_t step = 0xffff'ffff;
  for (std::int64_t i = 0; i < 3; ++i)
    append(*writer, 0, {randomBytes(3, 1), i * step, 0, true});
  finish(*writer, {3 * step});
  const Movie movie = readMovie(file);
  EXPECT_EQ(movie.duration, MediaTime(3 * step, videoScale));
  EXPECT_EQ(movie.tracks[0].samples[2].duration, 0xffff'ffffU);
}

TEST(FragmentedMovieWriter, FinishesWithoutAnySample) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  finish(*writer, {0});
  const Movie movie = readMovie(file);
  ASSERT_THAT(movie.tracks, SizeIs(1));
  EXPECT_THAT(movie.tracks[0].samples, SizeIs(0));
  EXPECT_EQ(movie.duration, MediaTime::zero());
}

TEST(FragmentedMovieWriter, RefusesTracksThatItCannotTell) {
  MemoryFile file;
  const auto refused = [&](std::vector<TrackSetup> tracks) {
    return containerError([&] { FragmentedMovieWriter(file, std::move(tracks)); });
  };
  EXPECT_EQ(refused({}), ContainerError::unsupported);
  EXPECT_EQ(refused({{TrackKind::other, 1, 0, 0, 0}}), ContainerError::unsupported);
  EXPECT_EQ(refused({{TrackKind::video, 0, 0, 0, 0}}), ContainerError::unsupported);
  EXPECT_EQ(refused({{TrackKind::video, 1, 0, 0, -1}}), ContainerError::unsupported);
  EXPECT_EQ(refused({{TrackKind::video, 1, 0, 0, 0}}), std::nullopt);
}

TEST(FragmentedMovieWriter, RefusesTimesThatDoNotIncreaseAndGoesOn) {
  MemoryFile file;
  const auto writer = videoWriter(file);
  const Bytes data = randomBytes(4, 1);
  const auto appended = [&](std::int64_t time) {
    return containerError([&] { writer->append(0, data, time, 0, true); });
  };
  EXPECT_EQ(appended(-1), ContainerError::damaged);
  EXPECT_EQ(appended(0), std::nullopt);
  EXPECT_EQ(appended(0), ContainerError::damaged);
  EXPECT_EQ(appended(std::int64_t{1} << 32), ContainerError::tooLarge);
  EXPECT_EQ(appended((std::int64_t{1} << 32) - 1), std::nullopt);
  EXPECT_EQ(appended(std::int64_t{1} << 56), ContainerError::damaged);
  EXPECT_EQ(containerError([&] { finish(*writer, {std::int64_t{1} << 33}); }), ContainerError::tooLarge);
  finish(*writer, {std::int64_t{1} << 32});
  EXPECT_THAT(readMovie(file).tracks[0].samples, SizeIs(2));
}

TEST(FragmentedMovieWriter, RefusesCallsOutOfPlace) {
  MemoryFile file;
  FragmentedMovieWriter writer(file, {videoTrack()});
  const Bytes data = randomBytes(4, 1);
  writer.append(0, data, 0, 0, true);
  writer.append(0, data, 1, 0, true);
  const auto refuses = [](auto call) { return containerError(call) == ContainerError::unsupported; };
  EXPECT_TRUE(refuses([&] { writer.append(1, data, 0, 0, true); })) << "no such track";
  EXPECT_TRUE(refuses([&] { writer.flushFragment(); })) << "no description";
  EXPECT_TRUE(refuses([&] { finish(writer, {5}); })) << "no description";
  EXPECT_TRUE(refuses([&] { writer.setDescription(0, {}); })) << "no box";
  writer.setDescription(0, videoDescription(64, 48));
  writer.flushFragment();
  EXPECT_TRUE(refuses([&] { writer.setDescription(0, videoDescription(64, 48)); })) << "too late";
  EXPECT_TRUE(refuses([&] { finish(writer, {}); })) << "an end for each track";
  finish(writer, {5});
  EXPECT_TRUE(refuses([&] { writer.append(0, data, 9, 0, true); })) << "finished";
  EXPECT_TRUE(refuses([&] { writer.flushFragment(); })) << "finished";
  EXPECT_TRUE(refuses([&] { finish(writer, {5}); })) << "finished";
  EXPECT_THAT(readMovie(file).tracks[0].samples, SizeIs(2));
}

TEST(FragmentedMovieWriter, BoundsAFragment) {
  constexpr std::size_t largest = std::size_t{128} << 20;
  const std::unique_ptr<void, void (*)(void*)> memory(std::calloc(largest + 1, 1), std::free);
  const std::span<const std::byte> zeros(static_cast<const std::byte*>(memory.get()), largest + 1);
  SparseFile file;
  const auto writer = videoWriter(file);
  EXPECT_EQ(containerError([&] { writer->append(0, zeros, 0, 0, true); }), ContainerError::tooLarge);
  for (std::int64_t second = 0; second < 5; ++second)
    writer->append(0, zeros.first(largest / 4), second * videoScale, 0, true);
  EXPECT_EQ(file.info().sizeBytes, 0) << "four samples fill it exactly, the fifth is held back";
  writer->append(0, zeros.first(1), std::int64_t{5} * videoScale, 0, true);
  EXPECT_GT(file.info().sizeBytes, static_cast<std::int64_t>(largest) * 5 / 4);
}

} // namespace
} // namespace tessarin::container
