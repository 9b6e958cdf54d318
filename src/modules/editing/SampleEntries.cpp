#include "modules/editing/SampleEntries.hpp"

#include "container/Boxes.hpp"
#include "modules/media/LibraryCoder.hpp"
#include "ports/MovieEditing.hpp"

extern "C" {
#include <libavutil/mem.h>
}

#include <algorithm>
#include <array>
#include <string_view>

namespace tessarin::editing {

namespace {

using container::ByteCursor;
using container::fourCC;

// Of the entries, without their headers: what lies before their boxes.
constexpr std::size_t pictureEntryHead = 78;
constexpr std::size_t soundEntryHead = 28;

struct PictureForm {
  std::string_view code;
  const char* decoder;
  container::FourCC configuration; // the box; 0 without one
};
constexpr std::array pictureForms{
    PictureForm{"avc1", "h264", fourCC("avcC")},     PictureForm{"avc3", "h264", fourCC("avcC")},
    PictureForm{"hvc1", "hevc", fourCC("hvcC")},     PictureForm{"hev1", "hevc", fourCC("hvcC")},
    PictureForm{"av01", "libdav1d", fourCC("av1C")}, PictureForm{"vp09", "vp9", 0},
};

void readPictureEntry(const container::BoxList& boxes, SampleEntry& entry) {
  const auto* const form =
      std::find_if(pictureForms.begin(), pictureForms.end(),
                   [&](const PictureForm& known) { return known.code == entry.subtype; });
  if (form == pictureForms.end())
    return;
  if (const container::Box* aspect = boxes.find(fourCC("pasp"))) {
    ByteCursor cursor(aspect->content);
    const double horizontal = cursor.u32();
    const double vertical = cursor.u32();
    if (horizontal > 0 && vertical > 0)
      entry.pixelAspect = horizontal / vertical;
  }
  if (form->configuration != 0) {
    const auto content = boxes.require(form->configuration).content;
    entry.configuration.assign(content.begin(), content.end());
  }
  entry.decoder = form->decoder;
}

// The content of the descriptor (ISO/IEC 14496-1) that comes next.
ByteCursor descriptor(ByteCursor& cursor, unsigned tag) {
  if (cursor.u8() != tag)
    container::failDamaged();
  std::size_t length = 0;
  for (int i = 0; i < 4; ++i) {
    const std::uint8_t part = cursor.u8();
    length = length << 7U | (part & 127U);
    if (part < 128)
      break;
  }
  return ByteCursor(cursor.take(std::min(length, cursor.remaining())));
}

// Which kind of AAC an AudioSpecificConfig (ISO/IEC 14496-3) tells.
std::string aacSubtype(std::span<const std::byte> configuration) {
  constexpr unsigned bandReplication = 5;
  constexpr unsigned parametricStereo = 29;
  ByteCursor cursor(configuration);
  const unsigned type = cursor.u8() >> 3U;
  if (type == bandReplication)
    return "aach";
  if (type == parametricStereo)
    return "aacp";
  // Told behind the plain configuration, so that plain decoders need not know: 11 bits 0x2b7, 5 bits of the
  // extension's type, one that says that it is there. Plain configurations of two bytes end on a byte.
  cursor.skip(1);
  if (type == 2 && cursor.remaining() >= 3) {
    const unsigned sync = cursor.u16();
    if (sync >> 5U == 0x2b7 && (sync & 31U) == bandReplication && cursor.u8() >> 7U == 1)
      return "aach";
  }
  return "aac ";
}

void readSoundEntry(const container::BoxList& boxes, SampleEntry& entry) {
  constexpr unsigned streamTag = 3, configurationTag = 4, specificTag = 5;
  constexpr unsigned mpeg4Audio = 0x40;
  if (entry.subtype != "mp4a")
    return;
  ByteCursor cursor = boxes.requireContent(fourCC("esds"));
  cursor.skip(4);
  ByteCursor stream = descriptor(cursor, streamTag);
  stream.skip(2);
  const unsigned flags = stream.u8();
  if ((flags & 0x80U) != 0)
    stream.skip(2);
  if ((flags & 0x40U) != 0)
    stream.skip(stream.u8());
  if ((flags & 0x20U) != 0)
    stream.skip(2);
  ByteCursor decoder = descriptor(stream, configurationTag);
  if (decoder.u8() != mpeg4Audio)
    return;
  decoder.skip(12);
  ByteCursor specific = descriptor(decoder, specificTag);
  const auto configuration = specific.take(specific.remaining());
  entry.subtype = aacSubtype(configuration);
  entry.configuration.assign(configuration.begin(), configuration.end());
  entry.decoder = "aac";
}

} // namespace

SampleEntry readSampleEntry(const container::SampleDescription& description, container::TrackKind kind) {
  SampleEntry entry;
  entry.subtype = description.codec;
  try {
    ByteCursor cursor(description.box);
    cursor.skip(8);
    cursor.skip(kind == container::TrackKind::video ? pictureEntryHead : soundEntryHead);
    const container::BoxList boxes(cursor.take(cursor.remaining()));
    if (kind == container::TrackKind::video)
      readPictureEntry(boxes, entry);
    else
      readSoundEntry(boxes, entry);
  } catch (const container::ContainerFailure&) {
    entry.decoder.clear();
  }
  return entry;
}

bool isDecodable(const container::Track& track) {
  return std::all_of(track.descriptions.begin(), track.descriptions.end(), [&](const auto& description) {
    const SampleEntry entry = readSampleEntry(description, track.kind);
    return !entry.decoder.empty() && avcodec_find_decoder_by_name(entry.decoder.c_str()) != nullptr;
  });
}

bool isWholeRefresh(const SampleEntry& entry, std::span<const std::byte> sample) {
  constexpr unsigned sliceType = 1;
  constexpr std::size_t lengthByte = 4; // of the configuration
  if (entry.decoder != "h264" || entry.configuration.size() <= lengthByte)
    return true;
  const std::size_t lengthSize = (std::to_integer<std::size_t>(entry.configuration[lengthByte]) & 3U) + 1;
  while (sample.size() > lengthSize) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < lengthSize; ++i)
      length = length << 8U | std::to_integer<std::size_t>(sample[i]);
    sample = sample.subspan(lengthSize);
    if (length == 0 || length > sample.size())
      return true; // torn, which the decoder finds out
    if ((std::to_integer<unsigned>(sample[0]) & 31U) == sliceType)
      return false;
    sample = sample.subspan(length);
  }
  return true;
}

std::unique_ptr<AVCodecContext, media::FreeContext>
openDecoder(const SampleEntry& entry, std::int32_t timescale, int threads, Strictness strictness) {
  av_log_set_level(AV_LOG_QUIET); // what a library prints is no protocol of this program
  const AVCodec* const codec =
      entry.decoder.empty() ? nullptr : avcodec_find_decoder_by_name(entry.decoder.c_str());
  if (codec == nullptr)
    throw MovieEditingFailure(MovieEditingError::notComposable);
  std::unique_ptr<AVCodecContext, media::FreeContext> context(avcodec_alloc_context3(codec));
  if (!context)
    throw MovieEditingFailure(MovieEditingError::unreadable);
  context->pkt_timebase = {1, timescale};
  context->thread_count = threads;
  context->max_pixels = std::int64_t{16384} * 16384;
  // Damage is a failure; nothing is made up in its place.
  if (strictness == Strictness::full)
    context->err_recognition = AV_EF_CRCCHECK | AV_EF_BITSTREAM | AV_EF_BUFFER | AV_EF_EXPLODE;
  context->error_concealment = 0;
  // Without a word of the stream about reordering, wait for as many pictures as there may be ahead.
  context->strict_std_compliance = FF_COMPLIANCE_STRICT;
  if (!entry.configuration.empty()) {
    context->extradata =
        static_cast<std::uint8_t*>(av_mallocz(entry.configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (context->extradata == nullptr)
      throw MovieEditingFailure(MovieEditingError::unreadable);
    context->extradata_size = static_cast<int>(entry.configuration.size());
    std::copy(entry.configuration.begin(), entry.configuration.end(),
              std::as_writable_bytes(std::span(context->extradata, entry.configuration.size())).begin());
  }
  if (avcodec_open2(context.get(), codec, nullptr) < 0)
    throw MovieEditingFailure(MovieEditingError::unreadable);
  return context;
}

} // namespace tessarin::editing
