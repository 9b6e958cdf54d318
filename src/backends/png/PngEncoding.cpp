#include "backends/png/PngEncoding.hpp"

#include "backends/png/PngRows.hpp"
#include "backends/png/ZlibStream.hpp"

#include <libdeflate.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <new>
#include <string_view>

namespace tessarin::png {

namespace {

// sRGB with perceptual intent, and the same colour space by gamma and chromaticities (in 1/100000) for
// readers that do not know the tag.
constexpr std::uint8_t perceptualIntent = 0;
constexpr std::uint32_t gamma = 45455;
constexpr std::array<std::uint32_t, 8> chromaticities = {31270, 32900, 64000, 33000,
                                                         30000, 60000, 15000, 6000};

// Room for all of a file but the contents of its data chunk.
constexpr std::size_t frameSize = 256;

// Appends to memory that is large enough.
class Cursor {
 public:
  explicit Cursor(std::byte* start) : start_(start) {}

  std::byte* position() const { return start_ + size_; }
  std::size_t size() const { return size_; }
  void advance(std::size_t count) { size_ += count; }
  void advanceTo(const std::byte* position) { size_ = static_cast<std::size_t>(position - start_); }

  void bytes(std::initializer_list<std::uint8_t> values) {
    for (const std::uint8_t value : values)
      start_[size_++] = static_cast<std::byte>(value);
  }
  void text(std::string_view text) {
    std::memcpy(position(), text.data(), text.size());
    advance(text.size());
  }
  void number(std::uint32_t value) {
    for (const int shift : {24, 16, 8, 0})
      start_[size_++] = static_cast<std::byte>(value >> shift);
  }

  // A chunk whose contents the function appends.
  template<class Contents> void chunk(std::string_view type, Contents contents) {
    Cursor length(position());
    advance(4);
    const std::byte* const checked = position();
    text(type);
    const std::size_t before = size_;
    contents();
    length.number(static_cast<std::uint32_t>(size_ - before));
    number(libdeflate_crc32(0, checked, static_cast<std::size_t>(position() - checked)));
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

// Each row by a filter byte and its samples.
void appendRows(Cursor& out, const PictureView& picture, std::size_t rowSize) {
  ZlibStream stream(rowSize, reinterpret_cast<std::uint8_t*>(out.position()));
  for (std::ptrdiff_t y = 0; y < picture.height; ++y) {
    std::uint8_t* const row = stream.piece();
    row[0] = filterSub;
    filterRow(picture.data + y * picture.stride, picture.format, static_cast<std::size_t>(picture.width),
              row + 1);
    stream.append(rowSize);
  }
  out.advanceTo(reinterpret_cast<std::byte*>(stream.finish()));
}

} // namespace

EncodedPicture encode(const PictureView& picture) {
  const std::size_t rowSize = 1 + static_cast<std::size_t>(picture.width) * bytesPerPixel(picture.format);
  const std::size_t bound = ZlibStream::bound(rowSize * static_cast<std::size_t>(picture.height));
  if (bound > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()))
    throw std::bad_alloc();

  EncodedPicture encoded{std::make_unique_for_overwrite<std::byte[]>(frameSize + bound), 0};
  Cursor out(encoded.buffer.get());
  appendHeader(out, picture);
  out.chunk("IDAT", [&] { appendRows(out, picture, rowSize); });
  out.chunk("IEND", [] {});
  encoded.size = out.size();
  return encoded;
}

} // namespace tessarin::png
