#include "container/FragmentedMovieWriter.hpp"
#include "container/MovieSketch.hpp"
#include "support/TemporaryDirectory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

TEST(MovieReader, ReadsTheTablesOfAnOrdinaryTrack) {
  Sketch sketch;
  sketch.stss = Sketch::table("stss", {{1}, {3}});
  sketch.ctts = Sketch::table("ctts", {{1, 5}, {3, 0xffff'fffd}}, 1);
  const MemoryFile file = sketch.file();
  const Movie movie = readMovie(file);
  ASSERT_THAT(movie.tracks, SizeIs(1));
  const Track& track = movie.tracks[0];
  EXPECT_EQ(track.id, 7U);
  EXPECT_EQ(track.kind, TrackKind::video);
  EXPECT_EQ(track.timescale, 600);
  EXPECT_THAT(track.descriptions, ElementsAre(videoDescription(64, 48), videoDescription(32, 24)));
  EXPECT_THAT(track.samples,
              ElementsAre(Sample{100, 3, 20, 0, 5, true, 0}, Sample{103, 5, 20, 20, -3, false, 0},
                          Sample{108, 2, 20, 40, -3, true, 1}, Sample{110, 6, 30, 60, -3, false, 1}));
  EXPECT_EQ(track.presentationStart, 0);
  EXPECT_EQ(track.presentationDuration, 87);
  EXPECT_EQ(movie.duration, MediaTime(87, 600));
  EXPECT_FALSE(movie.isFragmented);
  EXPECT_EQ(movie.usableBytes, file.bytes.size());
}

TEST(MovieReader, TakesEverySampleForAKeyFrameWithoutATableOfThem) {
  const Movie movie = readMovie(Sketch().file());
  ASSERT_THAT(movie.tracks[0].samples, SizeIs(4));
  for (const Sample& sample : movie.tracks[0].samples)
    EXPECT_TRUE(sample.isSync);
}

TEST(MovieReader, ReadsEveryWidthOfSampleSizes) {
  const auto sized = [](std::uint32_t bits, std::vector<std::uint8_t> bytes) {
    return with([&](Sketch& sketch) {
             sketch.stsz = [=](BoxWriter& w) {
               w.fullBox(fourCC("stz2"), 0, 0, [&] {
                 w.u32(bits);
                 w.u32(4);
                 for (const std::uint8_t byte : bytes)
                   w.u8(byte);
               });
             };
           })
        .file();
  };
  for (const MemoryFile& file :
       {sized(4, {0x35, 0x26}), sized(8, {3, 5, 2, 6}), sized(16, {0, 3, 0, 5, 0, 2, 0, 6})})
    EXPECT_THAT(offsets(readMovie(file)), ElementsAre(100, 103, 108, 110));
  EXPECT_EQ(readingError(sized(4, {0x35})), ContainerError::damaged);
  EXPECT_EQ(readingError(sized(16, {0, 3, 0, 5, 0, 2, 0})), ContainerError::damaged);
  EXPECT_EQ(readingError(sized(5, {3, 5, 2, 6})), ContainerError::damaged);

  const Sketch same = with([](Sketch& sketch) {
    sketch.stsz = [](BoxWriter& w) {
      w.fullBox(fourCC("stsz"), 0, 0, [&] {
        w.u32(4);
        w.u32(4);
      });
    };
  });
  EXPECT_THAT(offsets(readMovie(same.file())), ElementsAre(100, 104, 108, 112));
}

TEST(MovieReader, ReadsWideChunkOffsetsAndWideHeaders) {
  Sketch sketch;
  sketch.chunks = Sketch::table("co64", {{0, 100}, {0, 108}});
  sketch.mvhd = [](BoxWriter& w) {
    w.fullBox(fourCC("mvhd"), 1, 0, [&] {
      w.zeros(16);
      w.u32(1000);
      w.zeros(88);
    });
  };
  sketch.mdhd = [](BoxWriter& w) {
    w.fullBox(fourCC("mdhd"), 1, 0, [&] {
      w.zeros(16);
      w.u32(601);
      w.zeros(12);
    });
  };
  sketch.tkhd = [](BoxWriter& w) {
    w.fullBox(fourCC("tkhd"), 1, 3, [&] {
      w.zeros(16);
      w.u32(9);
      w.zeros(28);
      for (std::uint32_t value = 1; value <= 9; ++value)
        w.u32(value);
      w.zeros(8);
    });
  };
  const Movie movie = readMovie(sketch.file());
  EXPECT_THAT(offsets(movie), ElementsAre(100, 103, 108, 110));
  EXPECT_EQ(movie.tracks[0].id, 9U);
  EXPECT_EQ(movie.tracks[0].timescale, 601);
  EXPECT_THAT(movie.tracks[0].matrix, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9));
}

TEST(MovieReader, FindsTheIndexWhereverItLies) {
  const auto file = [](bool isFirst, bool isWide, bool isOpen) {
    BoxWriter w;
    const auto index = [&](std::uint32_t shift) {
      Sketch sketch;
      sketch.chunks = Sketch::table("stco", {{100 + shift}, {108 + shift}});
      sketch.write(w);
    };
    const std::uint32_t indexSize = isFirst ? (index(0), static_cast<std::uint32_t>(w.size())) : 0;
    w = {};
    if (isFirst)
      index(indexSize);
    if (isWide) {
      w.u32(1);
      w.code(fourCC("mdat"));
      w.u64(200);
      w.zeros(184);
    } else {
      w.u32(isOpen ? 0 : 200);
      w.code(fourCC("mdat"));
      w.zeros(192);
    }
    if (!isFirst)
      index(0);
    return MemoryFile(w.bytes());
  };
  EXPECT_THAT(offsets(readMovie(file(false, false, false))), ElementsAre(100, 103, 108, 110));
  EXPECT_THAT(offsets(readMovie(file(false, true, false))), ElementsAre(100, 103, 108, 110));
  for (const bool isOpen : {false, true})
    EXPECT_EQ(readMovie(file(true, false, isOpen)).duration, MediaTime(90, 600));
  EXPECT_EQ(readingError(file(false, false, true)), ContainerError::notAMovie) << "swallowed by the media";
}

TEST(MovieReader, ReadsSoundAndOtherTracks) {
  Sketch sketch;
  sketch.stsd = [](BoxWriter& w) {
    w.fullBox(fourCC("stsd"), 0, 0, [&] {
      w.u32(2);
      w.append(audioDescription(44100, 1).box);
      w.append(audioDescription(48000, 2).box);
    });
  };
  sketch.handler = fourCC("soun");
  Movie movie = readMovie(sketch.file());
  EXPECT_EQ(movie.tracks[0].kind, TrackKind::audio);
  EXPECT_THAT(movie.tracks[0].descriptions,
              ElementsAre(audioDescription(44100, 1), audioDescription(48000, 2)));
  sketch.handler = fourCC("text");
  movie = readMovie(sketch.file());
  EXPECT_EQ(movie.tracks[0].kind, TrackKind::other);
  EXPECT_EQ(movie.tracks[0].descriptions[0].codec, "mp4a");
  EXPECT_THAT(movie.tracksOf(TrackKind::audio), SizeIs(0));
  EXPECT_THAT(movie.tracksOf(TrackKind::other), ElementsAre(&movie.tracks[0]));
}

struct EditCase {
  const char* name;
  std::vector<std::vector<std::uint32_t>> entries; // duration in ms, media time at 600, rate
  std::int64_t presentationStart;
  MediaTime start;
  MediaTime duration;
};

TEST(MovieReader, PlacesTracksByTheirEdits) {
  constexpr std::uint32_t rate = 0x10000, empty = 0xffff'ffff;
  const std::vector<EditCase> cases{
      {"no entry", {}, 0, {0, 1}, {90, 600}},
      {"all", {{150, 0, rate}}, 0, {0, 1}, {90, 600}},
      {"open end", {{0, 30, rate}}, 30, {0, 1}, {60, 600}},
      {"primed", {{100, 30, rate}}, 30, {0, 1}, {60, 600}},
      {"within a unit of the end", {{99, 30, rate}}, 30, {0, 1}, {60, 600}},
      {"cut", {{50, 30, rate}}, 30, {0, 1}, {30, 600}},
      {"longer than the media", {{9000, 30, rate}}, 30, {0, 1}, {60, 600}},
      {"beyond the media", {{100, 95, rate}}, 95, {0, 1}, {0, 600}},
      {"paused", {{250, empty, rate}, {150, 0, rate}}, 0, {1, 4}, {90, 600}},
      {"paused twice", {{250, empty, rate}, {250, empty, rate}, {100, 30, rate}}, 30, {1, 2}, {60, 600}},
  };
  for (const EditCase& test : cases) {
    SCOPED_TRACE(test.name);
    Sketch sketch;
    sketch.edts = [&](BoxWriter& w) {
      w.box(fourCC("edts"), [&] { Sketch::table("elst", test.entries)(w); });
    };
    const Movie movie = readMovie(sketch.file());
    EXPECT_EQ(movie.tracks[0].presentationStart, test.presentationStart);
    EXPECT_EQ(movie.tracks[0].start, test.start);
    EXPECT_EQ(movie.tracks[0].duration, test.duration);
    EXPECT_EQ(movie.tracks[0].duration, MediaTime(movie.tracks[0].presentationDuration, 600));
    EXPECT_EQ(movie.duration, test.start + test.duration);
  }
}

TEST(MovieReader, ReadsWideEdits) {
  Sketch sketch;
  sketch.edts = [&](BoxWriter& w) {
    w.box(fourCC("edts"), [&] { Sketch::table("elst", {{0, 100, 0, 30, 0x10000}}, 1)(w); });
  };
  EXPECT_EQ(readMovie(sketch.file()).tracks[0].presentationStart, 30);
}

TEST(MovieReader, ReadsTheIndexOfALongRecordingInFewReads) {
  for (const bool isFinished : {false, true}) {
    MemoryFile file;
    FragmentedMovieWriter writer(file, {{TrackKind::video, 90000, 64, 48, 0}});
    writer.setDescription(0, videoDescription(64, 48));
    const Bytes picture = randomBytes(300, 1);
    for (std::int64_t i = 0; i < 36'001; ++i) {
      writer.append(0, picture, i * 1500, 0, i % 60 == 0);
      if (i > 0 && i % 600 == 0)
        writer.flushFragment();
    }
    if (isFinished)
      writer.finish(std::vector<std::int64_t>{36'001 * 1500});
    file.reads = 0;
    file.bytesRead = 0;
    EXPECT_THAT(readMovie(file).tracks[0].samples, SizeIs(isFinished ? 36'001 : 36'000));
    EXPECT_LE(file.reads, isFinished ? 4U : 62U) << "about one for each fragment";
    EXPECT_LE(file.bytesRead, isFinished ? 400'000U : 62U * 16'384);
  }
}

TEST(MovieReader, ReadsAFileOfMoreThan4GiB) {
  TemporaryDirectory directory;
  const auto file = machineFileSystem().open(directory / "large.mp4", OpenMode::createExclusive);
  constexpr std::uint64_t mediaEnd = (std::uint64_t{5} << 30) + 3;
  BoxWriter media;
  media.u32(1);
  media.code(fourCC("mdat"));
  media.u64(mediaEnd);
  file->write(0, media.bytes());
  Sketch sketch;
  sketch.chunks = Sketch::table("co64", {{1, 100}, {1, 0x4000'0003 - 8}});
  BoxWriter index;
  sketch.write(index);
  file->write(mediaEnd, index.bytes());
  const Movie movie = readMovie(*file);
  constexpr std::uint64_t high = std::uint64_t{1} << 32;
  EXPECT_THAT(offsets(movie), ElementsAre(high + 100, high + 103, mediaEnd - 8, mediaEnd - 6));
  EXPECT_EQ(movie.usableBytes, mediaEnd + index.size());
}

} // namespace
} // namespace tessarin::container
