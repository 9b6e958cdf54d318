#include "modules/media/AudioReencoding.hpp"

#include "base/SafeFile.hpp"
#include "container/FragmentedMovieWriter.hpp"
#include "modules/media/AudioDecoder.hpp"
#include "modules/media/AudioSequencer.hpp"
#include "modules/media/CoderFailure.hpp"

#include <algorithm>
#include <cerrno>

namespace tessarin::media {

namespace {

// The new file: a stream of frames from its beginning on.
class SoundFile {
 public:
  SoundFile(OpenFile& file, const AudioSettings& settings)
      : channels_(static_cast<std::size_t>(settings.channelCount)), coder_(makeAacCoder(settings)),
        sequencer_(*coder_, channels_), writer_(file,
                                                {{.kind = container::TrackKind::audio,
                                                  .timescale = settings.sampleRate,
                                                  .presentationStart = primingFrames}},
                                                "M4A ") {
    writer_.setDescription(0, coder_->description());
  }

  // What is beyond the end is left out.
  void append(std::span<const float> frames, std::int64_t end) {
    const auto count = std::min(static_cast<std::int64_t>(frames.size() / channels_), end - end_);
    if (count < 1)
      return;
    sequencer_.append(frames.first(static_cast<std::size_t>(count) * channels_));
    end_ += count;
    write();
  }
  void silenceTo(std::int64_t end) {
    while (end_ < end) {
      constexpr std::int64_t most = 48000;
      const std::int64_t step = std::min(end - end_, most);
      sequencer_.appendSilence(step);
      end_ += step;
      write();
    }
  }
  void finish() {
    sequencer_.finish();
    write();
    const std::int64_t end = end_ + primingFrames;
    writer_.finish(std::span(&end, 1));
  }

 private:
  void write() {
    const CodedSound sound = sequencer_.take();
    std::span<const std::byte> rest = sound.data;
    for (std::size_t i = 0; i < sound.sizes.size(); ++i) {
      const std::int64_t packet = sound.firstPacket + static_cast<std::int64_t>(i);
      writer_.append(0, rest.first(sound.sizes[i]), packet * static_cast<std::int64_t>(framesPerPacket), 0,
                     true);
      rest = rest.subspan(sound.sizes[i]);
    }
  }

  const std::size_t channels_;
  const std::unique_ptr<AacCoder> coder_;
  AudioSequencer sequencer_;
  container::FragmentedMovieWriter writer_;
  std::int64_t end_ = 0; // frames
};

void appendPiece(FileSystem& files, const AudioPiece& piece, const AudioSettings& settings, SoundFile& into) {
  const auto file = files.open(piece.path, OpenMode::read);
  const container::Movie movie = container::readMovie(*file);
  const auto tracks = movie.tracksOf(container::TrackKind::audio);
  if (piece.audioTrackIndex < 0 || piece.audioTrackIndex >= std::ssize(tracks))
    throw CoderFailure("POSIX", EINVAL);
  const container::Track& track = *tracks[static_cast<std::size_t>(piece.audioTrackIndex)];

  into.silenceTo(piece.start.convertedTo(settings.sampleRate).value());
  const std::int64_t end = (piece.start + piece.duration).convertedTo(settings.sampleRate).value();
  AudioDecoder decoder(track, piece.duration, settings,
                       [&](std::span<const float> frames) { into.append(frames, end); });
  Bytes data;
  for (const container::Sample& sample : track.samples) {
    if (!decoder.needs(sample))
      break;
    data.resize(sample.size);
    if (file->read(sample.offset, data) != data.size())
      throw CoderFailure("POSIX", EIO);
    decoder.decode(sample, data);
  }
  decoder.finish();
  into.silenceTo(end);
}

} // namespace

void LibraryAudioReencoder::reencode(const std::vector<AudioPiece>& pieces, const std::string& outputPath) {
  const AudioSettings settings;
  TemporaryFile temporary(files_, hiddenTemporaryName(outputPath));
  {
    const auto output = files_.open(temporary.path(), OpenMode::createExclusive);
    SoundFile sound(*output, settings);
    for (const AudioPiece& piece : pieces)
      appendPiece(files_, piece, settings, sound);
    sound.finish();
  }
  files_.renameExclusive(temporary.path(), outputPath);
  temporary.keep();
}

} // namespace tessarin::media
