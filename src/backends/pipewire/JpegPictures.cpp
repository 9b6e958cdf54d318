#include "backends/pipewire/JpegPictures.hpp"

#include <csetjmp>
#include <cstddef>
#include <cstdio>

#include <jpeglib.h>

#include <jerror.h>

namespace tessarin::pipewire {

// The library reports a failure by a call that must not return. Its way out is a jump back into the method
// that called it, so that no method here has anything to destroy while the library is at work.
struct JpegReader::Decoder {
  jpeg_decompress_struct info{};
  jpeg_error_mgr errors{};
  std::jmp_buf wayOut{};
  bool isDamaged = false;

  static Decoder& of(j_common_ptr common) { return *static_cast<Decoder*>(common->client_data); }

  Decoder() {
    info.err = jpeg_std_error(&errors);
    errors.error_exit = [](j_common_ptr common) { std::longjmp(of(common).wayOut, 1); };
    errors.output_message = [](j_common_ptr) {};
    errors.emit_message = [](j_common_ptr common, int level) {
      // Cameras pad their pictures, which harms nothing.
      if (level < 0 && common->err->msg_code != JWRN_EXTRANEOUS_DATA) {
        of(common).isDamaged = true;
      }
    };
    info.client_data = this;
    if (setjmp(wayOut) == 0) {
      jpeg_create_decompress(&info);
      info.client_data = this;
    }
  }
  ~Decoder() { jpeg_destroy_decompress(&info); }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Reads what precedes the pixels, after which the size is known.
  bool open(const std::uint8_t* bytes, std::size_t size) {
    isDamaged = false;
    if (setjmp(wayOut) != 0) {
      return false;
    }
    jpeg_mem_src(&info, bytes, static_cast<unsigned long>(size));
    if (jpeg_read_header(&info, TRUE) != JPEG_HEADER_OK) {
      return false;
    }
    info.out_color_space = JCS_EXT_BGRX;
    info.dct_method = JDCT_ISLOW;
    info.do_fancy_upsampling = FALSE;
    jpeg_calc_output_dimensions(&info);
    return info.output_width > 0 && info.output_height > 0 &&
           info.output_width <= static_cast<JDIMENSION>(largestCameraSide) &&
           info.output_height <= static_cast<JDIMENSION>(largestCameraSide);
  }

  bool decode(std::uint8_t* target, std::ptrdiff_t stride) {
    if (setjmp(wayOut) != 0) {
      return false;
    }
    jpeg_start_decompress(&info);
    while (info.output_scanline < info.output_height) {
      JSAMPROW row = target + static_cast<std::ptrdiff_t>(info.output_scanline) * stride;
      jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    return !isDamaged;
  }

  void abandon() { jpeg_abort_decompress(&info); }
};

JpegReader::JpegReader() : decoder_(std::make_unique<Decoder>()) {}

JpegReader::~JpegReader() = default;

std::optional<Picture> JpegReader::read(std::span<const std::uint8_t> bytes, PicturePool& pool) {
  if (!decoder_->open(bytes.data(), bytes.size())) {
    decoder_->abandon();
    return std::nullopt;
  }
  const auto width = static_cast<std::int32_t>(decoder_->info.output_width);
  const auto height = static_cast<std::int32_t>(decoder_->info.output_height);
  const auto stride = static_cast<std::ptrdiff_t>(width) * 4;
  auto memory = pool.memory(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height));
  if (!decoder_->decode(memory.get(), stride)) {
    decoder_->abandon();
    return std::nullopt;
  }
  return Picture{{memory.get(), width, height, stride, PixelFormat::bgrx8}, memory};
}

} // namespace tessarin::pipewire
