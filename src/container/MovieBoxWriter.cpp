#include "container/MovieBoxWriter.hpp"

#include <algorithm>
#include <limits>
#include <numeric>

namespace tessarin::container {

namespace {

constexpr std::int32_t fallbackTimescale = 90000;
constexpr std::uint16_t undeterminedLanguage = 0x55c4; // "und", packed

void writeText(BoxWriter& writer, const std::string& text) {
  writer.append(std::as_bytes(std::span(text)));
}

// A track with its times on the movie's time line.
class TrackBoxWriter {
 public:
  TrackBoxWriter(BoxWriter& writer, MovieForm form, const TrackToWrite& track, std::uint32_t id,
                 std::int32_t movieTimescale)
      : writer_(writer), form_(form), track_(track), id_(id), movieTimescale_(movieTimescale) {}

  std::uint64_t end() const { return inMovie(track_.start) + duration(); }
  void write();

 private:
  bool isVideo() const { return track_.kind == TrackKind::video; }
  std::uint64_t inMovie(std::int64_t time) const;
  std::uint64_t duration() const;
  void writeHeader();
  void writeEdits();
  void writeMedia();
  void writeInformation();
  void writeTable();

  BoxWriter& writer_;
  MovieForm form_;
  const TrackToWrite& track_;
  std::uint32_t id_;
  std::int32_t movieTimescale_;
};

std::uint64_t TrackBoxWriter::inMovie(std::int64_t time) const {
  const MediaTime converted = MediaTime(time, track_.timescale).convertedTo(movieTimescale_);
  if (!converted.isNumeric() || converted.value() < 0)
    throw ContainerFailure(ContainerError::tooLarge);
  return static_cast<std::uint64_t>(converted.value());
}

std::uint64_t TrackBoxWriter::duration() const {
  return form_ == MovieForm::fragmented ? 0 : inMovie(track_.presentationDuration);
}

// Creation and modification time, 32 or 64 bits wide, left at zero.
void writeTimes(BoxWriter& writer, std::uint8_t version) {
  writer.zeros(version == 1 ? 16 : 8);
}

void writeDuration(BoxWriter& writer, std::uint8_t version, std::uint64_t duration) {
  if (version == 1)
    writer.u64(duration);
  else
    writer.u32(static_cast<std::uint32_t>(duration));
}

std::uint8_t versionFor(std::uint64_t duration) {
  return duration > std::numeric_limits<std::uint32_t>::max() ? 1 : 0;
}

void TrackBoxWriter::writeHeader() {
  constexpr std::uint32_t enabledInMovie = 3;
  const std::uint8_t version = versionFor(end());
  writer_.fullBox(fourCC("tkhd"), version, enabledInMovie, [&] {
    writeTimes(writer_, version);
    writer_.u32(id_);
    writer_.zeros(4);
    writeDuration(writer_, version, form_ == MovieForm::fragmented ? 0 : end());
    writer_.zeros(12); // reserved, layer, alternate group
    writer_.u16(isVideo() ? 0 : 0x0100);
    writer_.zeros(2);
    for (const std::int32_t value : track_.matrix)
      writer_.i32(value);
    writer_.u32(static_cast<std::uint32_t>(isVideo() ? track_.width : 0) << 16);
    writer_.u32(static_cast<std::uint32_t>(isVideo() ? track_.height : 0) << 16);
  });
}

void TrackBoxWriter::writeEdits() {
  const std::uint64_t pause = inMovie(track_.start);
  const bool isWhole = form_ == MovieForm::fragmented ||
                       static_cast<std::uint64_t>(track_.presentationDuration) == track_.samples->duration();
  if (pause == 0 && track_.presentationStart == 0 && isWhole)
    return;
  const bool isWide = versionFor(std::max(pause, duration())) == 1 ||
                      track_.presentationStart > std::numeric_limits<std::int32_t>::max();
  const auto writeEdit = [&](std::uint64_t length, std::int64_t mediaTime) {
    if (isWide) {
      writer_.u64(length);
      writer_.u64(static_cast<std::uint64_t>(mediaTime));
    } else {
      writer_.u32(static_cast<std::uint32_t>(length));
      writer_.i32(static_cast<std::int32_t>(mediaTime));
    }
    writer_.u32(0x00010000);
  };
  writer_.box(fourCC("edts"), [&] {
    writer_.fullBox(fourCC("elst"), isWide ? 1 : 0, 0, [&] {
      writer_.u32(pause > 0 ? 2 : 1);
      if (pause > 0)
        writeEdit(pause, -1);
      writeEdit(duration(), track_.presentationStart);
    });
  });
}

void TrackBoxWriter::writeTable() {
  writer_.box(fourCC("stbl"), [&] {
    writer_.fullBox(fourCC("stsd"), 0, 0, [&] {
      writer_.u32(static_cast<std::uint32_t>(track_.descriptions.size()));
      for (const SampleDescription* description : track_.descriptions)
        writer_.append(description->box);
    });
    if (form_ == MovieForm::fragmented)
      SampleTable().write(writer_);
    else
      track_.samples->write(writer_);
  });
}

void TrackBoxWriter::writeInformation() {
  writer_.box(fourCC("minf"), [&] {
    if (isVideo())
      writer_.fullBox(fourCC("vmhd"), 0, 1, [&] { writer_.zeros(8); });
    else
      writer_.fullBox(fourCC("smhd"), 0, 0, [&] { writer_.zeros(4); });
    writer_.box(fourCC("dinf"), [&] {
      writer_.fullBox(fourCC("dref"), 0, 0, [&] {
        constexpr std::uint32_t inThisFile = 1;
        writer_.u32(1);
        writer_.fullBox(fourCC("url "), 0, inThisFile, [] {});
      });
    });
    writeTable();
  });
}

void TrackBoxWriter::writeMedia() {
  writer_.box(fourCC("mdia"), [&] {
    const std::uint64_t length = form_ == MovieForm::fragmented ? 0 : track_.samples->duration();
    const std::uint8_t version = versionFor(length);
    writer_.fullBox(fourCC("mdhd"), version, 0, [&] {
      writeTimes(writer_, version);
      writer_.u32(static_cast<std::uint32_t>(track_.timescale));
      writeDuration(writer_, version, length);
      writer_.u16(undeterminedLanguage);
      writer_.zeros(2);
    });
    writer_.fullBox(fourCC("hdlr"), 0, 0, [&] {
      writer_.zeros(4);
      writer_.code(isVideo() ? fourCC("vide") : fourCC("soun"));
      writer_.zeros(12);
      writeText(writer_, isVideo() ? "Video" : "Sound");
      writer_.u8(0);
    });
    writeInformation();
  });
}

void TrackBoxWriter::write() {
  writer_.box(fourCC("trak"), [&] {
    writeHeader();
    writeEdits();
    writeMedia();
  });
}

void writeMovieHeader(BoxWriter& writer, std::int32_t timescale, std::uint64_t duration,
                      std::size_t trackCount) {
  const std::uint8_t version = versionFor(duration);
  writer.fullBox(fourCC("mvhd"), version, 0, [&] {
    writeTimes(writer, version);
    writer.u32(static_cast<std::uint32_t>(timescale));
    writeDuration(writer, version, duration);
    writer.u32(0x00010000); // rate
    writer.u16(0x0100);     // volume
    writer.zeros(10);
    for (const std::int32_t value : Track{}.matrix)
      writer.i32(value);
    writer.zeros(24);
    writer.u32(static_cast<std::uint32_t>(trackCount + 1)); // the next track id
  });
}

} // namespace

std::optional<std::int32_t> commonTimescale(std::int32_t a, std::int32_t b, std::int32_t limit) {
  const std::int64_t common = std::lcm(std::int64_t{a}, std::int64_t{b});
  if (common > limit)
    return std::nullopt;
  return static_cast<std::int32_t>(common);
}

void writeFileType(BoxWriter& writer, const std::string& brand) {
  writer.box(fourCC("ftyp"), [&] {
    writeText(writer, brand);
    writer.u32(0x200);
    for (const char* compatible : {"isom", "iso5", "iso6", "mp41", "mp42", "avc1"}) {
      if (compatible != brand)
        writeText(writer, compatible);
    }
    writeText(writer, brand);
  });
}

void writeWideMediaHeader(BoxWriter& writer, std::uint64_t contentSize) {
  writer.u32(1);
  writer.code(fourCC("mdat"));
  writer.u64(16 + contentSize);
}

void writeMovieBox(BoxWriter& writer, MovieForm form, const std::vector<TrackToWrite>& tracks) {
  std::optional<std::int32_t> timescale = 1;
  for (const TrackToWrite& track : tracks) {
    if (timescale)
      timescale = commonTimescale(*timescale, track.timescale, std::numeric_limits<std::int32_t>::max());
  }
  const std::int32_t movieTimescale = timescale.value_or(fallbackTimescale);

  std::vector<TrackBoxWriter> writers;
  std::uint64_t end = 0;
  for (const TrackToWrite& track : tracks) {
    writers.emplace_back(writer, form, track, static_cast<std::uint32_t>(writers.size() + 1), movieTimescale);
    end = std::max(end, writers.back().end());
  }
  writer.box(fourCC("moov"), [&] {
    writeMovieHeader(writer, movieTimescale, form == MovieForm::fragmented ? 0 : end, tracks.size());
    for (TrackBoxWriter& track : writers)
      track.write();
    if (form != MovieForm::fragmented)
      return;
    writer.box(fourCC("mvex"), [&] {
      for (std::uint32_t id = 1; id <= tracks.size(); ++id) {
        writer.fullBox(fourCC("trex"), 0, 0, [&] {
          writer.u32(id);
          writer.u32(1); // description
          writer.zeros(12);
        });
      }
    });
  });
}

} // namespace tessarin::container
