#include "modules/media/AudioSampleEntry.hpp"

#include "modules/media/BoxBytes.hpp"
#include "modules/media/CoderFailure.hpp"

#include <cerrno>

namespace tessarin::media {

namespace {

// Tags of ISO/IEC 14496-1, and what they say of the stream.
constexpr unsigned elementaryStreamTag = 3, decoderConfigurationTag = 4, decoderSpecificTag = 5,
                   synchronizationTag = 6;
constexpr unsigned mpeg4Audio = 0x40;
constexpr unsigned audioStream = 5 << 2 | 1;
// A descriptor's length is written in one byte.
constexpr std::size_t longestConfiguration = 64;
// Of the sample entry: its header, and what lies before its boxes.
constexpr std::size_t entryHead = 8 + 28;

void descriptor(BoxBytes& into, unsigned tag, const BoxBytes& content) {
  into.number(tag, 1);
  into.number(content.bytes().size(), 1);
  into.bytes(content.bytes());
}

BoxBytes elementaryStream(const AudioSettings& settings, std::span<const std::byte> configuration) {
  BoxBytes specific;
  specific.bytes(configuration);
  BoxBytes decoder;
  decoder.number(mpeg4Audio, 1);
  decoder.number(audioStream, 1);
  decoder.number(6144 * static_cast<std::uint64_t>(settings.channelCount) / 8, 3); // the largest packet
  decoder.number(static_cast<std::uint64_t>(settings.bitRate), 4);                 // at most
  decoder.number(static_cast<std::uint64_t>(settings.bitRate), 4);                 // on average
  descriptor(decoder, decoderSpecificTag, specific);
  BoxBytes synchronization;
  synchronization.number(2, 1); // as MP4 files have it
  BoxBytes stream;
  stream.number(0, 2); // the track tells which one it is
  stream.number(0, 1);
  descriptor(stream, decoderConfigurationTag, decoder);
  descriptor(stream, synchronizationTag, synchronization);
  BoxBytes content;
  content.number(0, 4); // version and flags
  descriptor(content, elementaryStreamTag, stream);
  return content;
}

// Bytes one after another.
class Reader {
 public:
  explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}

  std::span<const std::byte> take(std::size_t count) {
    if (count > bytes_.size())
      throw CoderFailure("POSIX", EINVAL);
    const auto taken = bytes_.first(count);
    bytes_ = bytes_.subspan(count);
    return taken;
  }
  std::size_t number(std::size_t bytes) {
    std::size_t value = 0;
    for (const std::byte byte : take(bytes))
      value = value << 8 | std::to_integer<std::size_t>(byte);
    return value;
  }
  // The content of the descriptor that comes next.
  Reader descriptor(unsigned tag) {
    if (number(1) != tag)
      throw CoderFailure("POSIX", EINVAL);
    std::size_t length = 0;
    for (int i = 0; i < 4; ++i) {
      const std::size_t part = number(1);
      length = length << 7 | (part & 127);
      if (part < 128)
        break;
    }
    return Reader(take(length));
  }
  std::span<const std::byte> rest() const { return bytes_; }

 private:
  std::span<const std::byte> bytes_;
};

// The content of the first box of the type.
Reader boxOf(Reader boxes, std::string_view type) {
  for (;;) {
    const std::size_t size = boxes.number(4);
    const auto name = boxes.take(4);
    if (size < 8)
      throw CoderFailure("POSIX", EINVAL);
    const Reader content(boxes.take(size - 8));
    if (std::equal(name.begin(), name.end(), std::as_bytes(std::span(type)).begin()))
      return content;
  }
}

} // namespace

container::SampleDescription makeAudioSampleEntry(const AudioSettings& settings,
                                                  std::span<const std::byte> configuration) {
  if (configuration.empty() || configuration.size() > longestConfiguration)
    throw CoderFailure("audio-configuration", static_cast<std::int64_t>(configuration.size()));
  BoxBytes entry;
  entry.zeros(6);
  entry.number(1, 2); // data reference
  entry.zeros(8);
  entry.number(static_cast<std::uint64_t>(settings.channelCount), 2);
  entry.number(16, 2); // bits of a decoded sample
  entry.zeros(4);
  entry.number(static_cast<std::uint64_t>(settings.sampleRate), 2);
  entry.zeros(2);
  entry.box("esds", elementaryStream(settings, configuration));

  container::SampleDescription description;
  description.codec = "mp4a";
  description.sampleRate = settings.sampleRate;
  description.channelCount = settings.channelCount;
  BoxBytes box;
  box.box(description.codec, entry);
  description.box = box.bytes();
  return description;
}

Bytes audioConfiguration(const container::SampleDescription& description) {
  Reader entry(description.box);
  entry.take(entryHead);
  if (description.codec != "mp4a")
    throw CoderFailure("POSIX", EINVAL);
  Reader box = boxOf(entry, "esds");
  box.take(4);
  Reader stream = box.descriptor(elementaryStreamTag);
  stream.take(3);
  Reader decoder = stream.descriptor(decoderConfigurationTag);
  if (decoder.number(1) != mpeg4Audio)
    throw CoderFailure("POSIX", EINVAL);
  decoder.take(12);
  const auto configuration = decoder.descriptor(decoderSpecificTag).rest();
  return {configuration.begin(), configuration.end()};
}

} // namespace tessarin::media
