#include "base/FileSystem.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "container/MovieJoin.hpp"
#include "support/TemporaryDirectory.hpp"

#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// What this program writes, seen by independent readers: files of real coded pictures and sound go through
// our reader, writer and joiner, and ffprobe and ffmpeg must find the same in them.
namespace tessarin::container {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

struct Output {
  std::vector<std::string> lines;
  int status = 0;
};

Output run(const std::string& command) {
  FILE* const stream = ::popen((command + " 2>&1").c_str(), "r");
  std::string text;
  char buffer[4096];
  for (std::size_t count = 0; (count = std::fread(buffer, 1, sizeof buffer, stream)) > 0;)
    text.append(buffer, count);
  Output output;
  output.status = ::pclose(stream);
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    output.lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return output;
}

// Times, sizes, flags and a checksum of each packet of a kind, in order.
std::vector<std::string> packets(const std::string& path, char kind) {
  return run(std::string("ffprobe -v error -show_packets -show_data_hash crc32 -select_streams ") + kind +
             " -show_entries packet=pts,dts,duration,size,flags,data_hash -of compact=p=0:nk=1 '" + path +
             "'")
      .lines;
}

std::vector<std::string> durations(const std::string& path) {
  return run("ffprobe -v error -show_entries format=duration -of compact=p=0:nk=1 '" + path + "'").lines;
}

// What a decoder complains about.
std::vector<std::string> complaints(const std::string& path) {
  return run("ffmpeg -v error -i '" + path + "' -f null -").lines;
}

// Checksums of the decoded pictures, in order.
std::vector<std::string> decodedPictures(const std::string& path) {
  std::vector<std::string> found;
  for (const std::string& line :
       run("ffmpeg -v error -i '" + path + "' -map 0:v -fps_mode passthrough -f framemd5 -").lines) {
    if (!line.starts_with('#'))
      found.push_back(line.substr(line.rfind(' ') + 1));
  }
  return found;
}

class ContainerFiles : public testing::Test {
 protected:
  // Three and a half seconds of pictures, and of sound when asked for.
  std::string encode(const std::string& name, bool hasSound, const std::string& options = "-bf 0",
                     const std::string& rate = "30") {
    const std::string path = directory_ / name;
    const std::string sound = hasSound ? " -f lavfi -i sine=r=48000:d=3.5 -c:a aac -ac 2" : "";
    const Output output =
        run("ffmpeg -v error -nostdin -f lavfi -i testsrc2=s=320x240:d=3.5:r=" + rate + sound +
            " -c:v libx264 -preset ultrafast -g 30 -pix_fmt yuv420p -colorspace bt709 " + options + " '" +
            path + "'");
    EXPECT_EQ(output.status, 0) << testing::PrintToString(output.lines);
    return path;
  }

  struct Opened {
    std::unique_ptr<OpenFile> file;
    Movie movie;
  };
  Opened open(const std::string& path) {
    Opened opened;
    opened.file = machineFileSystem().open(path, OpenMode::read);
    opened.movie = readMovie(*opened.file);
    return opened;
  }

  enum class Ending { finished, leftAlone };

  // Writes the samples of a file anew, as they would come: by time, a fragment a second.
  std::string rewrite(const std::string& source, const std::string& name, Ending ending) {
    const auto [input, movie] = open(source);
    const std::string path = directory_ / name;
    const auto output = machineFileSystem().open(path, OpenMode::createExclusive);
    std::vector<TrackSetup> setups;
    std::vector<std::int64_t> ends;
    for (const Track& track : movie.tracks) {
      const SampleDescription& entry = track.descriptions.front();
      setups.push_back({track.kind, track.timescale, entry.width, entry.height, track.presentationStart});
      ends.push_back(track.samples.back().decodeTime + track.samples.back().duration);
    }
    FragmentedMovieWriter writer(*output, setups);
    for (std::size_t i = 0; i < movie.tracks.size(); ++i)
      writer.setDescription(i, movie.tracks[i].descriptions.front());
    std::vector<std::size_t> next(movie.tracks.size(), 0);
    while (const Sample* sample = appendEarliest(writer, *input, movie, next)) {
      if (sample->isSync && sample != &movie.tracks[0].samples[0])
        writer.flushFragment();
    }
    if (ending == Ending::finished)
      writer.finish(ends);
    else
      writer.flushFragment();
    return path;
  }

  std::string join(const std::vector<std::string>& sources, const std::string& name) {
    std::vector<Opened> opened;
    for (const std::string& source : sources)
      opened.push_back(open(source));
    std::vector<JoinTrack> tracks(opened.front().movie.tracks.size());
    MediaTime start = MediaTime::zero();
    for (const Opened& each : opened) {
      for (std::size_t i = 0; i < tracks.size(); ++i) {
        const Track& track = each.movie.tracks.at(i);
        tracks[i].pieces.push_back({each.file.get(), &track, start, track.duration});
      }
      start = start + each.movie.duration;
    }
    const std::string path = directory_ / name;
    writeJoinedMovie(*machineFileSystem().open(path, OpenMode::createExclusive), tracks, "mp42");
    return path;
  }

  TemporaryDirectory directory_;

 private:
  // Yields what was appended if it was a picture, something that is no key frame for sound, null at the end.
  static const Sample* appendEarliest(FragmentedMovieWriter& writer, const OpenFile& input,
                                      const Movie& movie, std::vector<std::size_t>& next) {
    std::optional<std::size_t> earliest;
    MediaTime earliestTime;
    for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
      const Track& track = movie.tracks[i];
      if (next[i] == track.samples.size())
        continue;
      const MediaTime time(track.samples[next[i]].decodeTime - track.presentationStart, track.timescale);
      if (!earliest || time < earliestTime) {
        earliest = i;
        earliestTime = time;
      }
    }
    if (!earliest)
      return nullptr;
    const Sample& sample = movie.tracks[*earliest].samples[next[*earliest]++];
    std::vector<std::byte> data(sample.size);
    EXPECT_EQ(input.read(sample.offset, data), data.size());
    writer.append(*earliest, data, sample.decodeTime, sample.compositionOffset, sample.isSync);
    static const Sample sound{};
    return *earliest == 0 ? &sample : &sound;
  }
};

TEST_F(ContainerFiles, ShowTheSamePacketsAndExactDurationsWhenFinished) {
  const std::vector<std::pair<std::string, bool>> cases{
      {"-bf 0", false}, {"-bf 0", true}, {"-bf 2", true}, {"-bf 0 -video_track_timescale 90000", true}};
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].first);
    const std::string source = encode("source" + std::to_string(i) + ".mp4", cases[i].second, cases[i].first);
    const std::string written = rewrite(source, "written" + std::to_string(i) + ".mp4", Ending::finished);
    ASSERT_THAT(packets(source, 'v'), SizeIs(105));
    EXPECT_EQ(packets(written, 'v'), packets(source, 'v'));
    EXPECT_EQ(packets(written, 'a'), packets(source, 'a'));
    EXPECT_EQ(durations(written), std::vector<std::string>{"3.500000"});
    EXPECT_THAT(complaints(written), IsEmpty());
  }
}

TEST_F(ContainerFiles, AreReadByOthersUpToTheirLastFragmentWhileTheyGrow) {
  for (const bool hasSound : {false, true}) {
    const std::string name = hasSound ? "sound" : "silent";
    const std::string source = encode(name + "-source.mp4", hasSound);
    const std::string grown = rewrite(source, name + "-grown.mp4", Ending::leftAlone);
    std::vector<std::string> expected = packets(source, 'v');
    expected.pop_back(); // held back
    EXPECT_EQ(packets(grown, 'v'), expected);
    EXPECT_THAT(complaints(grown), IsEmpty());
  }
}

TEST_F(ContainerFiles, KeepTheirColourAndShape) {
  const std::string source = encode("source.mp4", false, "-bf 0 -color_primaries bt709 -color_trc bt709");
  const std::string written = rewrite(source, "written.mp4", Ending::finished);
  const auto shape = [](const std::string& path) {
    return run("ffprobe -v error -show_entries stream=codec_tag_string,width,height,pix_fmt,color_space,"
               "color_primaries,color_transfer,r_frame_rate,avg_frame_rate,nb_frames -of compact=p=0 '" +
               path + "'")
        .lines;
  };
  EXPECT_THAT(shape(written), SizeIs(1));
  EXPECT_EQ(shape(written), shape(source));
}

TEST_F(ContainerFiles, JoinIntoTheSamePicturesOneBehindAnother) {
  const std::string a = encode("a.mp4", true);
  const std::string b = rewrite(encode("b.mp4", true, "-bf 0 -crf 40"), "b2.mp4", Ending::finished);
  const std::string joined = join({a, b, a}, "joined.mp4");
  std::vector<std::string> expected;
  for (const std::string& each : {a, b, a}) {
    for (const std::string& picture : decodedPictures(each))
      expected.push_back(picture);
  }
  ASSERT_THAT(expected, SizeIs(315));
  EXPECT_EQ(decodedPictures(joined), expected);
  EXPECT_EQ(durations(joined), std::vector<std::string>{"10.500000"});
}

TEST_F(ContainerFiles, JoinAcrossTimescalesRatesAndTornEnds) {
  const std::string a = encode("a.mp4", false, "-bf 0 -video_track_timescale 90000");
  const std::string b = encode("b.mp4", false, "-bf 0", "30000/1001");
  const std::string c = rewrite(a, "c.mp4", Ending::leftAlone);
  const std::string joined = join({a, b, c}, "joined.mp4");
  EXPECT_THAT(complaints(joined), IsEmpty());
  std::vector<std::string> expected;
  for (const std::string& each : {a, b, c}) {
    for (const std::string& picture : decodedPictures(each))
      expected.push_back(picture);
  }
  EXPECT_EQ(decodedPictures(joined), expected);
  // 3.5 s, 105 frames of 1001/30000 s, and 3.5 s without the last frame.
  EXPECT_EQ(durations(joined), std::vector<std::string>{"10.470167"});
}

} // namespace
} // namespace tessarin::container
