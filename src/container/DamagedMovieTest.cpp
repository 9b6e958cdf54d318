#include "container/FragmentedMovieWriter.hpp"
#include "container/MovieSketch.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessarin::container {
namespace {

using testing::SizeIs;

struct DamageCase {
  const char* name;
  std::function<void(Sketch&)> change;
  ContainerError error = ContainerError::damaged;
};

void expectErrors(const std::vector<DamageCase>& cases) {
  for (const DamageCase& test : cases)
    EXPECT_EQ(readingError(with(test.change).file()), test.error) << test.name;
}

Write edits(std::vector<std::vector<std::uint32_t>> entries, std::uint8_t version = 0) {
  return [=](BoxWriter& w) { w.box(fourCC("edts"), [&] { Sketch::table("elst", entries, version)(w); }); };
}

TEST(DamagedMovie, RefusesTablesThatContradictEachOther) {
  using S = Sketch;
  expectErrors({
      {"too few times",
       [](S& s) {
         s.stts = S::table("stts", {{3, 20}});
       }},
      {"too many times",
       [](S& s) {
         s.stts = S::table("stts", {{5, 20}});
       }},
      {"times beyond all bounds",
       [](S& s) {
         s.stts = S::table("stts", {{0xffff'ffff, 20}});
       }},
      {"too few offsets",
       [](S& s) {
         s.ctts = S::table("ctts", {{3, 20}});
       }},
      {"too many offsets",
       [](S& s) {
         s.ctts = S::table("ctts", {{2, 0}, {3, 20}});
       }},
      {"offset beyond 31 bits",
       [](S& s) {
         s.ctts = S::table("ctts", {{4, 0x8000'0000}});
       }},
      {"key frame zero", [](S& s) { s.stss = S::table("stss", {{0}}); }},
      {"key frame five of four", [](S& s) { s.stss = S::table("stss", {{5}}); }},
      {"key frames out of order",
       [](S& s) {
         s.stss = S::table("stss", {{3}, {1}});
       }},
      {"key frame twice",
       [](S& s) {
         s.stss = S::table("stss", {{3}, {3}});
       }},
      {"chunk runs that begin late",
       [](S& s) {
         s.stsc = S::table("stsc", {{2, 2, 1}});
       }},
      {"chunk runs out of order",
       [](S& s) {
         s.stsc = S::table("stsc", {{1, 2, 1}, {1, 2, 1}});
       }},
      {"a run behind the last chunk",
       [](S& s) {
         s.stsc = S::table("stsc", {{1, 2, 1}, {4, 2, 1}});
       }},
      {"chunks without runs", [](S& s) { s.stsc = S::table("stsc", {}); }},
      {"too many in the chunks",
       [](S& s) {
         s.stsc = S::table("stsc", {{1, 3, 1}});
       }},
      {"too few in the chunks",
       [](S& s) {
         s.stsc = S::table("stsc", {{1, 2, 1}, {2, 1, 1}});
       }},
      {"description zero",
       [](S& s) {
         s.stsc = S::table("stsc", {{1, 2, 0}});
       }},
      {"description three of two",
       [](S& s) {
         s.stsc = S::table("stsc", {{1, 2, 3}});
       }},
      {"too few chunks", [](S& s) { s.chunks = S::table("stco", {{100}}); }},
      {"too many chunks",
       [](S& s) {
         s.chunks = S::table("stco", {{100}, {108}, {120}});
       }},
      {"a chunk outside the file",
       [](S& s) {
         s.chunks = S::table("stco", {{100}, {0x7fff'ffff}});
       }},
      {"a chunk beyond 62 bits",
       [](S& s) {
         s.chunks = S::table("co64", {{0, 100}, {0xffff'ffff, 0xffff'ffff}});
       }},
      {"two tables of chunks",
       [](S& s) {
         s.chunks = [](BoxWriter& w) {
           S::table("stco", {{100}, {108}})(w);
           S::table("stco", {{100}, {108}})(w);
         };
       }},
  });
}

TEST(DamagedMovie, RefusesCountsThatTheFileDoesNotHold) {
  using S = Sketch;
  const auto counted = [](const char(&type)[5], std::uint32_t count) {
    return [=, code = fourCC(type)](BoxWriter& w) { w.fullBox(code, 0, 0, [&] { w.u32(count); }); };
  };
  const auto sizes = [](std::uint32_t size, std::uint32_t count) {
    return [=](BoxWriter& w) {
      w.fullBox(fourCC("stsz"), 0, 0, [&] {
        w.u32(size);
        w.u32(count);
      });
    };
  };
  expectErrors({
      {"times", [&](S& s) { s.stts = counted("stts", 0xffff'ffff); }},
      {"offsets", [&](S& s) { s.ctts = counted("ctts", 0xffff'ffff); }},
      {"key frames", [&](S& s) { s.stss = counted("stss", 0xffff'ffff); }},
      {"chunk runs", [&](S& s) { s.stsc = counted("stsc", 0xffff'ffff); }},
      {"chunks", [&](S& s) { s.chunks = counted("stco", 0xffff'ffff); }},
      {"wide chunks", [&](S& s) { s.chunks = counted("co64", 0xffff'ffff); }},
      {"edits",
       [&](S& s) {
         s.edts = [&](BoxWriter& w) { w.box(fourCC("edts"), [&] { counted("elst", 0xffff'ffff)(w); }); };
       }},
      {"sizes", [&](S& s) { s.stsz = sizes(0, 20'000'000); }},
      {"sizes beyond the bound", [&](S& s) { s.stsz = sizes(0, 20'000'001); }, ContainerError::tooLarge},
      {"equal sizes", [&](S& s) { s.stsz = sizes(1, 20'000'000); }},
      {"equal sizes beyond the bound", [&](S& s) { s.stsz = sizes(1, 20'000'001); },
       ContainerError::tooLarge},
      {"descriptions", [&](S& s) { s.stsd = counted("stsd", 1024); }},
      {"descriptions beyond the bound", [&](S& s) { s.stsd = counted("stsd", 1025); },
       ContainerError::tooLarge},
      {"no description", [&](S& s) { s.stsd = counted("stsd", 0); }},
      {"more bytes than the file",
       [](S& s) {
         s.stsz = [](BoxWriter& w) {
           w.fullBox(fourCC("stsz"), 0, 0, [&] {
             for (const std::uint32_t value : {0U, 4U, 3U, 5U, 2U, 0xffff'ffffU})
               w.u32(value);
           });
         };
       }},
  });
}

TEST(DamagedMovie, RefusesHeadersThatCannotBe) {
  using S = Sketch;
  const auto header = [](const char(&type)[5], std::uint8_t version, std::uint32_t timescale) {
    return [=, code = fourCC(type)](BoxWriter& w) {
      w.fullBox(code, version, 0, [&] {
        w.zeros(8);
        w.u32(timescale);
        w.zeros(8);
      });
    };
  };
  const auto unsupported = ContainerError::unsupported;
  expectErrors({
      {"no movie header", [](S& s) { s.mvhd = nullptr; }},
      {"no track header", [](S& s) { s.tkhd = nullptr; }},
      {"no media header", [](S& s) { s.mdhd = nullptr; }},
      {"no descriptions", [](S& s) { s.stsd = nullptr; }},
      {"no times", [](S& s) { s.stts = nullptr; }},
      {"no sizes", [](S& s) { s.stsz = nullptr; }},
      {"no chunk runs", [](S& s) { s.stsc = nullptr; }},
      {"no chunks", [](S& s) { s.chunks = nullptr; }},
      {"timescale zero", [&](S& s) { s.mdhd = header("mdhd", 0, 0); }},
      {"timescale beyond 31 bits", [&](S& s) { s.mdhd = header("mdhd", 0, 0x8000'0000); }},
      {"movie timescale zero", [&](S& s) { s.mvhd = header("mvhd", 0, 0); }},
      {"media header of the future", [&](S& s) { s.mdhd = header("mdhd", 2, 600); }, unsupported},
      {"movie header of the future", [&](S& s) { s.mvhd = header("mvhd", 2, 600); }, unsupported},
      {"times of the future",
       [](S& s) {
         s.stts = S::table("stts", {{4, 20}}, 1);
       },
       unsupported},
      {"track header cut off",
       [](S& s) { s.tkhd = [](BoxWriter& w) { w.fullBox(fourCC("tkhd"), 0, 3, [&] { w.zeros(60); }); }; }},
      {"sample entry cut off",
       [](S& s) {
         s.stsd = [](BoxWriter& w) {
           w.fullBox(fourCC("stsd"), 0, 0, [&] {
             w.u32(1);
             w.box(fourCC("avc1"), [&] { w.zeros(70); });
           });
         };
       }},
      {"two edits",
       [](S& s) {
         s.edts = edits({{10, 0, 0x10000}, {10, 20, 0x10000}});
       },
       unsupported},
      {"an edit of another rate",
       [](S& s) {
         s.edts = edits({{10, 0, 0x20000}});
       },
       unsupported},
      {"only a pause",
       [](S& s) {
         s.edts = edits({{10, 0xffff'ffff, 0x10000}});
       },
       unsupported},
      {"an edit before the media",
       [](S& s) {
         s.edts = edits({{10, 0xffff'fffe, 0x10000}});
       }},
      {"an edit beyond 56 bits",
       [](S& s) {
         s.edts = edits({{0x0100'0000, 0, 0, 0, 0x10000}}, 1);
       }},
      {"pauses beyond 56 bits",
       [](S& s) {
         s.edts = edits({{0x00ff'ffff, 0, 0xffff'ffff, 0xffff'ffff, 0x10000},
                         {0x00ff'ffff, 0, 0xffff'ffff, 0xffff'ffff, 0x10000}},
                        1);
       }},
  });
}

TEST(DamagedMovie, RefusesBrokenBoxes) {
  const auto movieOf = [](const Write& content) {
    BoxWriter w;
    w.box(fourCC("moov"), [&] { content(w); });
    return MemoryFile(w.bytes());
  };
  const auto box = [](std::uint32_t size, FourCC type) {
    return [=](BoxWriter& w) {
      w.u32(size);
      w.code(type);
    };
  };
  EXPECT_EQ(readingError(MemoryFile()), ContainerError::notAMovie);
  EXPECT_EQ(readingError(MemoryFile(randomBytes(5000, 3))), ContainerError::notAMovie);
  EXPECT_EQ(readingError(MemoryFile(Bytes(5000))), ContainerError::notAMovie);
  EXPECT_EQ(readingError(movieOf([](BoxWriter&) {})), ContainerError::damaged);
  EXPECT_EQ(readingError(movieOf(Sketch().mvhd)), ContainerError::notAMovie) << "no track";
  EXPECT_EQ(readingError(movieOf(box(0, fourCC("mvhd")))), ContainerError::damaged) << "open end inside";
  EXPECT_EQ(readingError(movieOf(box(7, fourCC("mvhd")))), ContainerError::damaged) << "below its header";
  EXPECT_EQ(readingError(movieOf(box(9, fourCC("mvhd")))), ContainerError::damaged) << "beyond its parent";
  EXPECT_EQ(readingError(movieOf(box(1, fourCC("mvhd")))), ContainerError::damaged) << "wide, cut off";
  EXPECT_EQ(readingError(movieOf(box(8, 0x6d760000))), ContainerError::damaged) << "not a name";
  EXPECT_EQ(readingError(movieOf([](BoxWriter& w) { w.zeros(3); })), ContainerError::damaged);
  for (const std::uint64_t size : {std::uint64_t{0}, std::uint64_t{15}, ~std::uint64_t{0}}) {
    EXPECT_EQ(readingError(movieOf([&](BoxWriter& w) {
                w.u32(1);
                w.code(fourCC("mvhd"));
                w.u64(size);
              })),
              ContainerError::damaged)
        << size;
  }
  EXPECT_EQ(readingError(movieOf([](BoxWriter& w) {
              for (int i = 0; i < 4097; ++i)
                w.box(fourCC("free"), [] {});
            })),
            ContainerError::tooLarge);
}

TEST(DamagedMovie, RefusesTwoTracksOfOneIdAndTooManyTracks) {
  const auto movieWith = [](std::uint32_t count, bool isOneId) {
    BoxWriter w;
    w.box(fourCC("moov"), [&] {
      Sketch sketch = Sketch::fragmented();
      sketch.mvhd(w);
      for (std::uint32_t id = 1; id <= count; ++id) {
        w.box(fourCC("trak"), [&] {
          BoxWriter header;
          sketch.tkhd(header);
          header.setU32(20, isOneId ? 1 : id);
          w.append(header.bytes());
          w.box(fourCC("mdia"), [&] {
            sketch.mdhd(w);
            w.fullBox(fourCC("hdlr"), 0, 0, [&] { w.zeros(21); });
            w.box(fourCC("minf"), [&] { sketch.writeTable(w); });
          });
        });
      }
    });
    return MemoryFile(w.bytes());
  };
  EXPECT_THAT(readMovie(movieWith(64, false)).tracks, SizeIs(64));
  EXPECT_EQ(readingError(movieWith(65, false)), ContainerError::tooLarge);
  EXPECT_EQ(readingError(movieWith(2, true)), ContainerError::damaged);
}

// A small file of two tracks, grown or finished.
MemoryFile smallMovie(bool isFinished) {
  MemoryFile file;
  FragmentedMovieWriter writer(file,
                               {{TrackKind::video, 600, 64, 48, 0}, {TrackKind::audio, 48000, 0, 0, 1024}});
  writer.setDescription(0, videoDescription(64, 48));
  writer.setDescription(1, audioDescription());
  for (int i = 0; i < 6; ++i) {
    writer.append(0, randomBytes(6, 1), i * 20, i % 2, i % 2 == 0);
    writer.append(1, randomBytes(5, 2), i * 1024, 0, true);
    if (i % 2 == 0)
      writer.flushFragment();
  }
  if (isFinished)
    writer.finish(std::vector<std::int64_t>{120, 6 * 1024});
  return file;
}

TEST(DamagedMovie, ZerosBehindAMovieAreNoPartOfIt) {
  for (const bool isFinished : {true, false}) {
    MemoryFile file = smallMovie(isFinished);
    const std::uint64_t whole = file.bytes.size();
    file.bytes.resize(file.bytes.size() + 5000);
    const Movie movie = readMovie(file);
    EXPECT_EQ(movie.usableBytes, whole) << isFinished;
    EXPECT_THAT(movie.tracks, SizeIs(2));
    EXPECT_THAT(movie.tracks[0].samples, SizeIs(isFinished ? 6 : 4)) << isFinished;
  }
}

// A hostile file is read or refused, and what is read lies in the file.
void expectSafe(const MemoryFile& file) {
  try {
    const Movie movie = readMovie(file);
    EXPECT_LE(movie.usableBytes, file.bytes.size());
    for (const Track& track : movie.tracks) {
      EXPECT_FALSE(track.descriptions.empty());
      EXPECT_TRUE(track.start.isNumeric());
      std::int64_t last = 0;
      for (const Sample& sample : track.samples) {
        EXPECT_LE(sample.offset + sample.size, movie.usableBytes);
        EXPECT_LT(sample.description, track.descriptions.size());
        EXPECT_GE(sample.decodeTime, last);
        last = sample.decodeTime;
      }
    }
  } catch (const ContainerFailure&) {
  }
}

TEST(DamagedMovie, SurvivesEveryByteChangedAndEveryTear) {
  for (const bool isFinished : {false, true}) {
    MemoryFile file = smallMovie(isFinished);
    for (std::size_t i = 0; i < file.bytes.size(); ++i) {
      const std::byte kept = file.bytes[i];
      for (const int value : {0x00, 0x01, 0x7f, 0x80, 0xff, static_cast<int>(kept) ^ 0x20}) {
        file.bytes[i] = static_cast<std::byte>(value);
        expectSafe(file);
      }
      file.bytes[i] = kept;
    }
    for (std::size_t size = 0; size < file.bytes.size(); ++size)
      expectSafe(
          MemoryFile(Bytes(file.bytes.begin(), file.bytes.begin() + static_cast<std::ptrdiff_t>(size))));
  }
}

TEST(DamagedMovie, RefusesATornOrdinaryFile) {
  const MemoryFile file = smallMovie(true);
  for (std::size_t size = 0; size < file.bytes.size(); ++size) {
    const MemoryFile torn(Bytes(file.bytes.begin(), file.bytes.begin() + static_cast<std::ptrdiff_t>(size)));
    EXPECT_EQ(readingError(torn), ContainerError::notAMovie) << size;
  }
}

TEST(DamagedMovie, RefusesAnIndexFirstWhoseMediaIsTorn) {
  BoxWriter w;
  Sketch sketch;
  sketch.chunks = Sketch::table("stco", {{1000}, {1008}});
  sketch.write(w);
  const std::size_t indexSize = w.size();
  w.box(fourCC("mdat"), [&] { w.zeros(2000 - indexSize); });
  EXPECT_EQ(readingError(MemoryFile(w.bytes())), std::nullopt);
  Bytes torn = w.bytes();
  torn.pop_back();
  EXPECT_EQ(readingError(MemoryFile(torn)), ContainerError::damaged);
}

TEST(DamagedMovie, BoundsTheNumberOfBoxes) {
  BoxWriter w;
  for (int i = 0; i < 1'000'000; ++i)
    w.box(fourCC("free"), [] {});
  EXPECT_EQ(readingError(MemoryFile(w.bytes())), ContainerError::notAMovie);
  w.box(fourCC("free"), [] {});
  EXPECT_EQ(readingError(MemoryFile(w.bytes())), ContainerError::tooLarge);
}

TEST(DamagedMovie, BoundsTheSizeOfTheIndex) {
  SparseFile file(std::uint64_t{1} << 40);
  BoxWriter w;
  w.u32((256U << 20) + 9);
  w.code(fourCC("moov"));
  file.write(0, w.bytes());
  EXPECT_EQ(readingError(file), ContainerError::tooLarge);
}

TEST(DamagedMovie, PassesOnFailuresOfTheFile) {
  TemporaryDirectory directory;
  const MemoryFile movie = smallMovie(true);
  FaultyFileSystem files(machineFileSystem());
  const auto file = files.open(directory / "movie.mp4", OpenMode::createExclusive);
  file->write(0, movie.bytes);
  files.failNth(FileOperation::read, 1, EIO);
  try {
    readMovie(*file);
    ADD_FAILURE();
  } catch (const FileFailure& failure) {
    EXPECT_EQ(failure.errorNumber(), EIO);
  }
  files.clearFaults();
  EXPECT_THAT(readMovie(*file).tracks, SizeIs(2));
  files.inject({FileOperation::read, "", 0, FaultyFileSystem::always, 0, 40});
  EXPECT_EQ(readingError(*file), ContainerError::damaged) << "shorter than it said";
}

} // namespace
} // namespace tessarin::container
