#include "support/CameraJpeg.hpp"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <jpeglib.h>

namespace tessarin::camera {

// The library ends the process when it fails, which a test may.
std::vector<std::uint8_t> jpegOf(const RawPicture& picture, JpegSampling sampling) {
  if (picture.format != RawFormat::rgb) {
    throw std::runtime_error("not an rgb picture");
  }
  jpeg_compress_struct coder{};
  jpeg_error_mgr errors{};
  coder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&coder);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&coder, &bytes, &size);
  coder.image_width = static_cast<JDIMENSION>(picture.width);
  coder.image_height = static_cast<JDIMENSION>(picture.height);
  coder.input_components = 3;
  coder.in_color_space = JCS_RGB;
  jpeg_set_defaults(&coder);
  jpeg_set_quality(&coder, 95, TRUE);
  if (sampling == JpegSampling::gray) {
    jpeg_set_colorspace(&coder, JCS_GRAYSCALE);
  } else {
    coder.comp_info[0].h_samp_factor = sampling == JpegSampling::s444 ? 1 : 2;
    coder.comp_info[0].v_samp_factor = sampling == JpegSampling::s420 ? 2 : 1;
  }
  jpeg_start_compress(&coder, TRUE);
  while (coder.next_scanline < coder.image_height) {
    auto* row = const_cast<JSAMPROW>(picture.bytes.data() +
                                     static_cast<std::size_t>(coder.next_scanline) * picture.stride);
    jpeg_write_scanlines(&coder, &row, 1);
  }
  jpeg_finish_compress(&coder);
  jpeg_destroy_compress(&coder);
  std::vector<std::uint8_t> result(bytes, bytes + size);
  std::free(bytes);
  return result;
}

} // namespace tessarin::camera
