#include "SoundTesting.hpp"

#include "container/MovieJoin.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

// Where the real module puts sound in time, and what its tracks are like in the file.
namespace tessarin {
namespace {

using container::TrackKind;
using testing::ElementsAre;

constexpr std::int64_t rate = 48000;
constexpr std::int64_t millisecond = 48; // frames
constexpr std::int64_t ahead = 2 * rate; // by which sound may come before the pictures

class MediaWriterSound : public testing::Test {
 protected:
  void recordPictures(SegmentRecording& recording, int count) {
    for (int i = 0; i < count; ++i)
      ASSERT_TRUE(recording.appendPicture());
  }
  const container::Track& track(std::size_t index = 1) {
    movie = rig.movie("a.mp4");
    return movie.tracks.at(index);
  }
  std::vector<float> sound(std::size_t lane = 0) { return decoded(rig.path("a.mp4"), lane); }
  // Of one lane for so many seconds of pictures.
  void record(int seconds, const std::function<void(SegmentRecording&)>& feed) {
    SegmentRecording recording(rig, "a.mp4", 1);
    recordPictures(recording, seconds * 10);
    feed(recording);
    recording.finish();
  }
  static AudioSample buffer(const SoundSource& source, std::int64_t first, MediaTime told) {
    return soundOf(source, first, 256, told);
  }

  MediaModuleRig rig;
  container::Movie movie;
};

TEST_F(MediaWriterSound, hasTracksInTheOrderOfAdding) {
  recordSegment(rig, "a.mp4", 10, {tone(440), tone(880)}, 2);
  movie = rig.movie("a.mp4");
  std::vector<std::string> codecs;
  for (const container::Track& each : movie.tracks)
    codecs.push_back(each.descriptions.at(0).codec);
  EXPECT_THAT(codecs, ElementsAre("avc1", "avc1", "mp4a", "mp4a"));
  EXPECT_EQ(track(2).kind, TrackKind::audio);
  EXPECT_EQ(track(2).descriptions[0].sampleRate, 48000);
  EXPECT_EQ(track(2).descriptions[0].channelCount, 2);
  EXPECT_EQ(outputOf("ffprobe -v error -show_entries stream=codec_name,profile,sample_rate,channels"
                     " -select_streams a -of csv=p=0 '" +
                     rig.path("a.mp4") + "'"),
            "aac,LC,48000,2\naac,LC,48000,2\n");
}

TEST_F(MediaWriterSound, mayBeAddedBeforeThePictures) {
  const auto writer = rig.makeWriter("a.mp4");
  AudioInput* sound = writer->addAudioInput({});
  VideoInput* video = writer->addVideoInput(smallVideo());
  ASSERT_TRUE(sound != nullptr && video != nullptr);
  ASSERT_TRUE(writer->startWriting());
  writer->startSession(MediaTime::zero());
  ASSERT_TRUE(video->append(video->render(Painting(128, 96).view()), MediaTime::zero()));
  ASSERT_TRUE(sound->append(buffer(tone(440), 0, MediaTime::zero())));
  finish(*writer);
  EXPECT_EQ(track(0).kind, TrackKind::audio);
  EXPECT_EQ(track(1).kind, TrackKind::video);
  EXPECT_EQ(track(0).duration, MediaTime(1, 10));
}

TEST_F(MediaWriterSound, isCodedAtItsTimeToTheFrame) {
  recordSegment(rig, "a.mp4", 25, {clicks({1, rate, 2 * rate + 777})});
  EXPECT_THAT(peaks(sound()), ElementsAre(1, rate, 2 * rate + 777));
  EXPECT_EQ(track().presentationStart, 1024);
  EXPECT_EQ(track().start, MediaTime::zero());
  for (std::size_t i = 0; i < track().samples.size(); ++i)
    EXPECT_EQ(track().samples[i].decodeTime, static_cast<std::int64_t>(i) * 1024);
}

TEST_F(MediaWriterSound, keepsItsLevel) {
  recordSegment(rig, "a.mp4", 20, {tone(1000, 0.5F)});
  double power = 0;
  const auto samples = sound();
  for (std::size_t i = rate / 2; i < rate; ++i)
    power += samples.at(i) * samples[i];
  EXPECT_NEAR(std::sqrt(power / (rate / 2)), 0.5 / std::sqrt(2.0), 0.015);
}

TEST_F(MediaWriterSound, endsExactlyWithThePictures) {
  for (const std::int64_t extra : {-rate, std::int64_t{0}, rate / 2}) {
    const std::string name = "extra" + std::to_string(extra) + ".mp4";
    SegmentRecording recording(rig, name, 1);
    recordPictures(recording, 23);
    ASSERT_TRUE(recording.appendSound(0, tone(440), 0, 23 * rate / 10 + extra));
    recording.finish();
    movie = rig.movie(name);
    EXPECT_EQ(movie.tracks.at(1).duration, MediaTime(23, 10)) << extra;
    EXPECT_EQ(movie.duration, MediaTime(23, 10)) << extra;
    EXPECT_EQ(outputOf("ffprobe -v error -show_entries stream=start_time,duration -of csv=p=0 '" +
                       rig.path(name) + "'"),
              "0.000000,2.300000\n0.000000,2.300000\n")
        << extra;
    EXPECT_LT(std::ssize(decoded(rig.path(name), 0)), 23 * rate / 10 + 1024) << extra;
  }
}

TEST_F(MediaWriterSound, isSilentWithoutASample) {
  record(3, [](SegmentRecording&) {});
  EXPECT_EQ(track().duration, MediaTime(3, 1));
  const auto samples = sound();
  EXPECT_GE(std::ssize(samples), 3 * rate);
  EXPECT_EQ(loudest(samples, 0, 4 * rate), 0);
}

TEST_F(MediaWriterSound, isSilentUntilALateStart) {
  record(2, [](SegmentRecording& recording) {
    ASSERT_TRUE(recording.appendSound(0, clicks({rate}), 7 * rate / 10 + 5, 2 * rate));
  });
  EXPECT_THAT(peaks(sound()), ElementsAre(rate));
}

TEST_F(MediaWriterSound, losesWhatLiesBeforeTheBeginning) {
  record(2, [](SegmentRecording& recording) {
    ASSERT_TRUE(recording.appendSound(0, clicks({-30, 60, rate}), -3 * millisecond, 2 * rate));
  });
  EXPECT_THAT(peaks(sound()), ElementsAre(60, rate));
}

TEST_F(MediaWriterSound, refersTimesToTheStartOfTheSession) {
  record(2, [](SegmentRecording& recording) {
    recording.writer().startSession(MediaTime(5, 1));
    const auto source = clicks({5 * rate + rate / 2});
    ASSERT_TRUE(recording.appendSound(0, source, 5 * rate, 6 * rate));
  });
  EXPECT_THAT(peaks(sound()), ElementsAre(rate / 2));
}

// How far the sound is from the tone at its best, by what the tone's own equation leaves over.
float roughness(const std::vector<float>& sound, double hertz, std::int64_t from, std::int64_t to) {
  const auto twice = static_cast<float>(2 * std::cos(2 * M_PI * hertz / rate));
  float most = 0;
  for (std::int64_t i = from; i < to; ++i) {
    const auto at = static_cast<std::size_t>(i);
    most = std::max(most, std::abs(sound.at(at + 1) - twice * sound.at(at) + sound.at(at - 1)));
  }
  return most;
}

TEST_F(MediaWriterSound, runsSmoothlyThroughJitterOfFiveMilliseconds) {
  record(3, [](SegmentRecording& recording) {
    const auto source = tone(440);
    for (std::int64_t i = 0; i * 256 < 3 * rate; ++i) {
      const std::int64_t jitter = i == 0 ? 0 : (i * 7 % 11 - 5) * millisecond;
      const AudioSample sample = buffer(source, i * 256, MediaTime(i * 256 + jitter, rate));
      ASSERT_TRUE(appendPatiently(recording.writer(), recording.lane(0), sample));
    }
  });
  EXPECT_LT(roughness(sound(), 440, 2048, 3 * rate - 2048), 0.02F);
}

TEST_F(MediaWriterSound, isSilentInAHole) {
  record(3, [](SegmentRecording& recording) {
    ASSERT_TRUE(recording.appendSound(0, tone(440), 0, rate));
    ASSERT_TRUE(recording.appendSound(0, clicks({2 * rate}), rate + 300 * millisecond, 3 * rate));
  });
  const auto samples = sound();
  EXPECT_GT(loudest(samples, rate - 10 * millisecond, rate), 0.4F);
  EXPECT_LT(loudest(samples, rate + 30 * millisecond, 2 * rate - 30 * millisecond), 0.01F);
  std::vector<float> behind = samples;
  std::fill_n(behind.begin(), 3 * rate / 2, 0.0F);
  EXPECT_THAT(peaks(behind), ElementsAre(2 * rate));
}

TEST_F(MediaWriterSound, codesAHoleOfHoursAtOnce) {
  constexpr std::int64_t hours = std::int64_t{3} * 3600;
  SegmentRecording recording(rig, "a.mp4", 1);
  recordPictures(recording, 10);
  ASSERT_TRUE(recording.appendSound(0, tone(440), 0, rate));
  ASSERT_TRUE(recording.appendSound(0, tone(440), hours * rate, hours * rate + 4800));
  recording.finish();
  EXPECT_EQ(track().duration, MediaTime(1, 1)) << "as long as the pictures";
}

TEST_F(MediaWriterSound, followsADeviceWhoseClockDrifts) {
  constexpr std::int64_t seconds = 60;
  std::vector<std::int64_t> times;
  for (std::int64_t second = 1; second < seconds; second += 3)
    times.push_back(second * rate);
  for (const std::int64_t millionths : {-200, 200}) {
    // The device's frame n is at n * (1 + drift), and so are its clicks.
    const auto frameOf = [&](std::int64_t time) { return time * 1'000'000 / (1'000'000 + millionths); };
    std::vector<std::int64_t> frames(times.size());
    std::transform(times.begin(), times.end(), frames.begin(), frameOf);
    const auto source = clicks(frames);
    const std::string name = std::to_string(millionths) + ".mp4";
    SegmentRecording recording(rig, name, 1);
    recordPictures(recording, seconds * 10);
    for (std::int64_t i = 0; i * 256 < seconds * rate; ++i) {
      const MediaTime told(i * 256 * (1'000'000 + millionths) / 1000, rate * 1000);
      ASSERT_TRUE(appendPatiently(recording.writer(), recording.lane(0), buffer(source, i * 256, told)));
    }
    recording.finish();
    const auto found = peaks(decoded(rig.path(name), 0));
    ASSERT_EQ(found.size(), times.size()) << millionths;
    for (std::size_t i = 0; i < times.size(); ++i)
      EXPECT_NEAR(static_cast<double>(found[i] - times[i]), 0, 5 * millisecond) << millionths << " at " << i;
  }
}

TEST_F(MediaWriterSound, refusesAnotherFormAndGoesOn) {
  const auto writer = rig.makeWriter("b.mp4");
  AudioSettings mono;
  mono.channelCount = 1;
  AudioSettings slow;
  slow.sampleRate = 44100;
  EXPECT_EQ(writer->addAudioInput(mono), nullptr);
  EXPECT_EQ(writer->addAudioInput(slow), nullptr);

  record(1, [](SegmentRecording& recording) {
    AudioSample sample = buffer(tone(440), 0, MediaTime::zero());
    sample.pcm.format = PcmFormat::int16;
    EXPECT_FALSE(recording.lane(0).append(sample));
    sample = buffer(tone(440), 0, MediaTime::zero());
    sample.sampleRate = 44100;
    EXPECT_FALSE(recording.lane(0).append(sample));
    EXPECT_EQ(recording.writer().status(), MediaWriterStatus::writing);
    ASSERT_TRUE(recording.appendSound(0, clicks({rate / 2}), 0, rate));
  });
  EXPECT_THAT(peaks(sound()), ElementsAre(rate / 2));
}

TEST_F(MediaWriterSound, needsPictures) {
  const auto writer = rig.makeWriter("a.mp4");
  ASSERT_NE(writer->addAudioInput({}), nullptr);
  EXPECT_FALSE(writer->startWriting());
  EXPECT_FALSE(rig.has("a.mp4"));
}

TEST_F(MediaWriterSound, holdsBackAndIsReadyAgain) {
  SegmentRecording recording(rig, "a.mp4", 1);
  ASSERT_TRUE(recording.appendPicture());
  // Half a second is appended in no time and coded in some.
  const AudioSample sample = soundOf(tone(440), 0, 24000, MediaTime::zero());
  std::int64_t appended = 0;
  while (recording.lane(0).isReadyForMoreMediaData()) {
    AudioSample next = sample;
    next.presentationTime = MediaTime(appended, 2);
    ASSERT_TRUE(recording.lane(0).append(next));
    ASSERT_LT(++appended, 10000);
  }
  AudioSample next = sample;
  next.presentationTime = MediaTime(appended, 2);
  ASSERT_TRUE(appendPatiently(recording.writer(), recording.lane(0), next)) << "waits until it is ready";
  recording.finish();
}

// The end of every track each time when the file is made durable.
TEST_F(MediaWriterSound, isDurableAsFarAsThePicturesAre) {
  struct Ends {
    double pictures, sound, other;
  };
  std::vector<Ends> ends;
  rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
    if (event.operation != FileOperation::sync)
      return;
    const container::Movie now = rig.movie("a.mp4");
    const auto end = [&](std::size_t index) {
      return (now.tracks.at(index).start + now.tracks[index].duration).seconds();
    };
    ends.push_back({end(0), end(1), end(2)});
  });
  // The sound is always there before the pictures are coded.
  SegmentRecording recording(rig, "a.mp4", 2);
  for (std::int64_t i = 0; i < 250; ++i) {
    ASSERT_TRUE(recording.appendSound(0, tone(440), i * 4800, (i + 1) * 4800));
    ASSERT_TRUE(recording.appendSound(1, tone(880), i * 4800, (i + 1) * 4800));
    if (i >= 20) {
      ASSERT_TRUE(recording.appendPicture());
    }
  }
  for (int i = 0; i < 20; ++i)
    ASSERT_TRUE(recording.appendPicture());
  recording.finish();
  ASSERT_GE(ends.size(), 3U);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(ends[i].pictures, 1 + 10 * static_cast<double>(i), 0.001);
    // Up to the packet before the one held back.
    EXPECT_NEAR(ends[i].sound, ends[i].pictures, 2 * 1024.0 / rate) << i;
    EXPECT_NEAR(ends[i].other, ends[i].pictures, 2 * 1024.0 / rate) << i;
    EXPECT_LE(ends[i].sound, ends[i].pictures) << i;
  }
}

TEST_F(MediaWriterSound, isKeptWithThePicturesWhenTheDiskIsFull) {
  rig.files.inject({FileOperation::write, "", 2, FaultyFileSystem::always, ENOSPC, 0});
  SegmentRecording recording(rig, "a.mp4", 1);
  // The sound is ahead, so that it is there before the pictures are coded.
  ASSERT_TRUE(recording.appendSound(0, tone(440), 0, ahead));
  std::int64_t i = 0;
  for (std::int64_t from = ahead; i < 200; ++i, from += 4800)
    if (!recording.appendSound(0, tone(440), from, from + 4800) || !recording.appendPicture())
      break;
  EXPECT_GE(i, 100) << "the second fragment";
  finish(recording.writer());
  EXPECT_EQ(recording.writer().status(), MediaWriterStatus::failed);
  EXPECT_FALSE(recording.lane(0).isReadyForMoreMediaData());
  EXPECT_NEAR(track(0).duration.seconds(), 1, 0.001);
  EXPECT_NEAR(track(1).duration.seconds(), 1, 2 * 1024.0 / rate);
  EXPECT_TRUE(movie.isFragmented);
}

TEST_F(MediaWriterSound, isKeptWhenTheWriterIsDestroyedWithoutAnEnd) {
  {
    SegmentRecording recording(rig, "a.mp4", 1);
    for (std::int64_t i = 0; i < 60; ++i) {
      ASSERT_TRUE(recording.appendSound(0, tone(440), i * 4800, (i + 1) * 4800));
      ASSERT_TRUE(recording.appendPicture());
    }
  }
  EXPECT_GT(track(0).duration.seconds(), 4);
  EXPECT_NEAR(track(1).duration.seconds(), track(0).duration.seconds(), 0.6) << "what waited is lost";
}

TEST_F(MediaWriterSound, canBeReadWithEveryTrackAfterAKill) {
  int durable[2];
  ASSERT_EQ(pipe(durable), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    rig.files.setObserver([&](const FaultyFileSystem::Event& event) {
      if (event.operation == FileOperation::sync && write(durable[1], "", 1) != 1)
        _exit(1);
    });
    SegmentRecording recording(rig, "a.mp4", 2, 2);
    recording.appendSound(0, clicks({rate / 2}), 0, ahead);
    recording.appendSound(1, tone(880), 0, ahead);
    for (std::int64_t from = ahead;; from += 4800) {
      recording.appendSound(0, clicks({rate / 2}), from, from + 4800);
      recording.appendSound(1, tone(880), from, from + 4800);
      recording.appendPicture();
    }
  }
  close(durable[1]);
  char byte = 0;
  EXPECT_EQ(read(durable[0], &byte, 1), 1) << "the first fragment";
  close(durable[0]);
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  movie = rig.movie("a.mp4");
  ASSERT_EQ(movie.tracks.size(), 4U);
  EXPECT_TRUE(movie.isFragmented);
  EXPECT_GE(movie.tracks[0].duration.seconds(), 1);
  EXPECT_GE(movie.tracks[1].duration.seconds(), 0.5) << "the other coder holds some pictures";
  EXPECT_GE(movie.tracks[2].duration.seconds(), 1 - 2 * 1024.0 / rate);
  EXPECT_GE(movie.tracks[3].duration.seconds(), 1 - 2 * 1024.0 / rate);

  // Joined anew, as a recovery does.
  const auto torn = machineFileSystem().open(rig.path("a.mp4"), OpenMode::read);
  const auto output = machineFileSystem().open(rig.path("joined.m4a"), OpenMode::createExclusive);
  const container::Track& lane = movie.tracks[2];
  container::writeJoinedMovie(*output, {{{{torn.get(), &lane, MediaTime::zero(), lane.duration}}}}, "M4A ");
  EXPECT_THAT(peaks(decoded(rig.path("joined.m4a"), 0)), ElementsAre(rate / 2));
}

} // namespace
} // namespace tessarin
