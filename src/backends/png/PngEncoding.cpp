#include "backends/png/PngEncoding.hpp"

#include "backends/png/PngRows.hpp"
#include "backends/png/PngStrips.hpp"

#include <libdeflate.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <new>
#include <string_view>
#include <system_error>
#include <thread>

namespace tessarin::png {

namespace {

// sRGB with perceptual intent, and the same colour space by gamma and chromaticities (in 1/100000) for
// readers that do not know the tag.
constexpr std::uint8_t perceptualIntent = 0;
constexpr std::uint32_t gamma = 45455;
constexpr std::array<std::uint32_t, 8> chromaticities = {31270, 32900, 64000, 33000,
                                                         30000, 60000, 15000, 6000};

// Room for all of a file before its first data chunk, and for its end.
constexpr std::size_t headerSize = 256;
constexpr std::size_t endSize = 12;

// The stream of the data chunks: deflate with its largest window, made fast, and a checksum at its end.
constexpr std::array<std::uint8_t, 2> streamHeader = {0x78, 0x01};
constexpr std::size_t checksumSize = 4;

// A chunk's length and type before its contents, and its own checksum behind them.
constexpr std::size_t chunkHeadSize = 8;
constexpr std::size_t chunkSumSize = 4;

constexpr std::size_t chunkBound(std::size_t contents) {
  return chunkHeadSize + streamHeader.size() + contents + checksumSize + chunkSumSize;
}

// Appends to memory that is large enough.
class Cursor {
 public:
  explicit Cursor(std::byte* start) : start_(start) {}

  std::byte* position() const { return start_ + size_; }
  std::span<const std::byte> written() const { return {start_, size_}; }
  void skip(std::size_t count) { size_ += count; }
  void skipTo(const std::uint8_t* position) {
    size_ = static_cast<std::size_t>(position - reinterpret_cast<const std::uint8_t*>(start_));
  }

  template<class Bytes> void bytes(const Bytes& values) {
    for (const std::uint8_t value : values)
      start_[size_++] = static_cast<std::byte>(value);
  }
  void bytes(std::initializer_list<std::uint8_t> values) { bytes<>(values); }
  void text(std::string_view text) {
    std::memcpy(position(), text.data(), text.size());
    skip(text.size());
  }
  void number(std::uint32_t value) {
    for (const int shift : {24, 16, 8, 0})
      start_[size_++] = static_cast<std::byte>(value >> shift);
  }

  // A chunk whose contents the function appends.
  template<class Contents> void chunk(std::string_view type, Contents contents) {
    Cursor length(position());
    skip(4);
    const std::byte* const checked = position();
    text(type);
    contents();
    const auto checkedSize = static_cast<std::size_t>(position() - checked);
    length.number(static_cast<std::uint32_t>(checkedSize - type.size()));
    number(libdeflate_crc32(0, checked, checkedSize));
  }

 private:
  std::byte* start_;
  std::size_t size_ = 0;
};

void appendHeader(Cursor& out, const PictureView& picture) {
  constexpr std::uint8_t trueColour = 2;
  constexpr std::uint8_t trueColourWithAlpha = 6;
  out.bytes({0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'});
  out.chunk("IHDR", [&] {
    out.number(static_cast<std::uint32_t>(picture.width));
    out.number(static_cast<std::uint32_t>(picture.height));
    out.bytes({8, picture.format == PixelFormat::bgrx8 ? trueColour : trueColourWithAlpha, 0, 0, 0});
  });
  out.chunk("sRGB", [&] { out.bytes({perceptualIntent}); });
  out.chunk("gAMA", [&] { out.number(gamma); });
  out.chunk("cHRM", [&] {
    for (const std::uint32_t value : chromaticities)
      out.number(value);
  });
}

// The strips of a picture, coded by several threads into a data chunk each.
class StripChunks {
 public:
  StripChunks(const PictureView& picture, const StripLayout& layout, std::byte* out)
      : picture_(picture), layout_(layout), chunks_(layout.count) {
    for (std::size_t strip = 0; strip < layout.count; ++strip) {
      chunks_[strip].start = out;
      out += chunkBound(DeflateStream::bound(layout.byteCount(strip)));
    }
  }

  // In so many threads, of which one is the caller's, or in fewer where the system has no more, or no memory
  // for them.
  void code(std::size_t threads) {
    StripCoder coder(picture_, layout_);
    {
      const std::size_t used = std::min(threads, layout_.count);
      std::vector<std::jthread> helpers; // joined here whatever happens
      helpers.reserve(used);
      try {
        while (helpers.size() + 1 < used)
          helpers.emplace_back([this] { help(); });
      } catch (const std::system_error&) {
      } catch (const std::bad_alloc&) {
      }
      codeNextStrips(coder);
    }
    // With the memory that the helpers had.
    for (std::size_t strip = 0; strip < layout_.count; ++strip)
      if (chunks_[strip].coded.end == nullptr)
        codeStrip(coder, strip);
  }

  // Only after code.
  void appendParts(std::vector<std::span<const std::byte>>& parts) {
    std::uint32_t checksum = 1;
    for (std::size_t strip = 0; strip < layout_.count; ++strip)
      checksum = joinedChecksum(checksum, chunks_[strip].coded.checksum, layout_.byteCount(strip));
    finish(chunks_.back(), [checksum](Cursor& out) { out.number(checksum); });
    for (const Chunk& chunk : chunks_)
      parts.push_back(chunk.whole);
  }

 private:
  struct Chunk {
    std::byte* start = nullptr;
    StripCoder::Coded coded;
    std::span<const std::byte> whole;
  };

  void help() noexcept {
    try {
      StripCoder coder(picture_, layout_);
      codeNextStrips(coder);
    } catch (const std::bad_alloc&) { // the others do it
    }
  }

  // Each thread takes the next strip when it has ended one. One that there is no memory for is left as it is.
  void codeNextStrips(StripCoder& coder) noexcept {
    try {
      for (std::size_t strip = next_++; strip < layout_.count; strip = next_++)
        codeStrip(coder, strip);
    } catch (const std::bad_alloc&) {
    }
  }

  void codeStrip(StripCoder& coder, std::size_t strip) {
    Chunk& chunk = chunks_[strip];
    Cursor out(chunk.start);
    out.skip(chunkHeadSize);
    if (strip == 0)
      out.bytes(streamHeader);
    chunk.coded = coder.code(strip, reinterpret_cast<std::uint8_t*>(out.position()));
    if (strip + 1 < layout_.count)
      finish(chunk, [](Cursor&) {});
  }

  // Puts a chunk around what was coded and what the function adds.
  template<class Addition> static void finish(Chunk& chunk, Addition add) {
    Cursor out(chunk.start);
    out.chunk("IDAT", [&] {
      out.skipTo(chunk.coded.end);
      add(out);
    });
    chunk.whole = out.written();
  }

  const PictureView& picture_;
  const StripLayout& layout_;
  std::vector<Chunk> chunks_; // each for the thread that has taken it, until all have ended
  std::atomic<std::size_t> next_ = 0;
};

} // namespace

std::size_t encodingThreads() {
  return std::max(std::thread::hardware_concurrency(), 1U);
}

EncodedPicture encode(const PictureView& picture, std::size_t threads) {
  const std::size_t rowSize = 1 + static_cast<std::size_t>(picture.width) * bytesPerPixel(picture.format);
  constexpr auto limit = static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max());
  if (rowSize * static_cast<std::size_t>(picture.height) > limit)
    throw std::bad_alloc();
  const StripLayout layout(picture);
  std::size_t bound = headerSize + endSize;
  for (std::size_t strip = 0; strip < layout.count; ++strip)
    bound += chunkBound(DeflateStream::bound(layout.byteCount(strip)));
  if (bound > limit)
    throw std::bad_alloc();

  EncodedPicture encoded;
  encoded.buffer = std::make_unique_for_overwrite<std::byte[]>(bound);
  encoded.parts.reserve(layout.count + 2);
  Cursor header(encoded.buffer.get());
  appendHeader(header, picture);
  encoded.parts.push_back(header.written());

  StripChunks chunks(picture, layout, encoded.buffer.get() + headerSize);
  chunks.code(threads);
  chunks.appendParts(encoded.parts);

  Cursor end(encoded.buffer.get() + bound - endSize);
  end.chunk("IEND", [] {});
  encoded.parts.push_back(end.written());
  return encoded;
}

} // namespace tessarin::png
