#include "backends/pipewire/CameraPictures.hpp"

#include "backends/pipewire/LimitedRange.hpp"

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>

namespace tessarin::pipewire {

namespace {

// Enough for a picture that is shown, one that is written and one that comes, without holding what nobody
// needs.
constexpr std::size_t mostKept = 3;

// One plane of a frame, and where it begins.
struct Plane {
  const std::uint8_t* data = nullptr;
  int stride = 0;
};
using Planes = std::array<Plane, 3>;

struct PlaneShape {
  std::int64_t rowBytes = 0;
  std::int64_t rows = 0;
};
struct FrameShape {
  std::array<PlaneShape, 3> planes;
  std::size_t planeCount = 1;
};

FrameShape shapeOf(const CameraFormat& format) {
  const std::int64_t width = format.width;
  const std::int64_t height = format.height;
  const auto halfWidth = (width + 1) / 2;
  const auto halfHeight = (height + 1) / 2;
  switch (format.coding) {
  case CameraCoding::yuy2:
  case CameraCoding::uyvy:
    return {{{{halfWidth * 4, height}}}, 1};
  case CameraCoding::nv12:
    return {{{{width, height}, {halfWidth * 2, halfHeight}}}, 2};
  case CameraCoding::i420:
    return {{{{width, height}, {halfWidth, halfHeight}, {halfWidth, halfHeight}}}, 3};
  case CameraCoding::bgr:
  case CameraCoding::rgb:
    return {{{{width * 3, height}}}, 1};
  case CameraCoding::gray8:
    return {{{{width, height}}}, 1};
  case CameraCoding::bgrx:
  case CameraCoding::rgbx:
  case CameraCoding::jpeg:
    break;
  }
  return {{{{width * 4, height}}}, 1};
}

// The plane in these bytes, when they hold all its rows.
std::optional<Plane> planeIn(std::span<const std::uint8_t> bytes, std::int64_t stride, PlaneShape shape) {
  const auto needed = stride * (shape.rows - 1) + shape.rowBytes;
  if (stride < shape.rowBytes || needed > static_cast<std::int64_t>(bytes.size())) {
    return std::nullopt;
  }
  return Plane{bytes.data(), static_cast<int>(stride)};
}

std::optional<Planes> planesInBlocks(const FrameShape& shape, std::span<const CameraBlock> blocks) {
  Planes planes;
  for (std::size_t i = 0; i < shape.planeCount; ++i) {
    const auto& block = blocks[i];
    const auto stride = block.stride == 0 ? shape.planes[i].rowBytes : block.stride;
    const auto plane = planeIn(block.bytes, stride, shape.planes[i]);
    if (!plane) {
      return std::nullopt;
    }
    planes[i] = *plane;
  }
  return planes;
}

// The planes follow one another; chroma rows are as long as two samples of half the luma's, or one.
std::optional<Planes> planesInOneBlock(const FrameShape& shape, const CameraBlock& block) {
  const auto closest = shape.planeCount == 2 ? shape.planes[1].rowBytes : shape.planes[0].rowBytes;
  const std::int64_t first = block.stride == 0 ? closest : block.stride;
  Planes planes;
  auto rest = block.bytes;
  for (std::size_t i = 0; i < shape.planeCount; ++i) {
    const auto stride = i == 0 || shape.planeCount == 2 ? first : (first + 1) / 2;
    const auto plane = planeIn(rest, stride, shape.planes[i]);
    if (!plane) {
      return std::nullopt;
    }
    planes[i] = *plane;
    const auto length = std::min(static_cast<std::size_t>(stride * shape.planes[i].rows), rest.size());
    rest = rest.subspan(length);
  }
  return planes;
}

// The library's factors must be below 2, which those of blue for BT.709 and BT.2020 with limited range are
// not: it would take 1.98 for 2.11. Such samples are widened to full range first.
bool needsWidening(const CameraFormat& format) {
  return !format.isFullRange && format.matrix != ColourMatrix::bt601;
}

const libyuv::YuvConstants* constantsOf(const CameraFormat& format) {
  switch (format.matrix) {
  case ColourMatrix::bt709:
    return &libyuv::kYuvF709Constants;
  case ColourMatrix::bt2020:
    return &libyuv::kYuvV2020Constants;
  case ColourMatrix::bt601:
    break;
  }
  return format.isFullRange ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants;
}

// What is done in two steps is done a few rows at a time, which stay in the processor's cache.
constexpr int rowsAtOnce = 8;

// Rows that follow one another closely.
struct Band {
  std::vector<std::uint8_t> bytes;
  int stride = 0;

  explicit Band(int rowBytes)
      : bytes(static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(rowsAtOnce)), stride(rowBytes) {}
  std::uint8_t* row(int number) { return bytes.data() + static_cast<std::ptrdiff_t>(number) * stride; }
};

// Pairs of pixels are taken apart into planes, except with the rules that nearly every camera has.
void convertPairs(const CameraFormat& format, Plane source, std::uint8_t* target, int targetStride) {
  const bool isYuy2 = format.coding == CameraCoding::yuy2;
  if (format.matrix == ColourMatrix::bt601 && !format.isFullRange) {
    (isYuy2 ? libyuv::YUY2ToARGB : libyuv::UYVYToARGB)(source.data, source.stride, target, targetStride,
                                                       format.width, format.height);
    return;
  }
  Band luma(format.width);
  Band blue((format.width + 1) / 2);
  Band red((format.width + 1) / 2);
  const auto takeApart = isYuy2 ? &libyuv::YUY2ToI422 : &libyuv::UYVYToI422;
  for (int row = 0; row < format.height; row += rowsAtOnce) {
    const int rows = std::min(rowsAtOnce, format.height - row);
    takeApart(source.data + static_cast<std::ptrdiff_t>(row) * source.stride, source.stride, luma.row(0),
              luma.stride, blue.row(0), blue.stride, red.row(0), red.stride, format.width, rows);
    if (needsWidening(format)) {
      widenLuma(luma.bytes, luma.bytes.data());
      widenChroma(blue.bytes, blue.bytes.data());
      widenChroma(red.bytes, red.bytes.data());
    }
    libyuv::I422ToARGBMatrix(luma.row(0), luma.stride, blue.row(0), blue.stride, red.row(0), red.stride,
                             target + static_cast<std::ptrdiff_t>(row) * targetStride, targetStride,
                             constantsOf(format), format.width, rows);
  }
}

void convertPlanes(const CameraFormat& format, const Planes& planes, std::uint8_t* target, int stride,
                   int height) {
  const auto& [luma, blue, red] = planes;
  if (format.coding == CameraCoding::nv12) {
    libyuv::NV12ToARGBMatrix(luma.data, luma.stride, blue.data, blue.stride, target, stride,
                             constantsOf(format), format.width, height);
  } else {
    libyuv::I420ToARGBMatrix(luma.data, luma.stride, blue.data, blue.stride, red.data, red.stride, target,
                             stride, constantsOf(format), format.width, height);
  }
}

void convertWidenedPlanes(const CameraFormat& format, const Planes& planes, std::uint8_t* target,
                          int stride) {
  const auto shape = shapeOf(format);
  std::vector<Band> bands;
  Planes widened;
  for (std::size_t i = 0; i < shape.planeCount; ++i) {
    bands.emplace_back(static_cast<int>(shape.planes[i].rowBytes));
  }
  for (std::size_t i = 0; i < shape.planeCount; ++i) {
    widened[i] = {bands[i].row(0), bands[i].stride};
  }
  for (int row = 0; row < format.height; row += rowsAtOnce) {
    const int rows = std::min(rowsAtOnce, format.height - row);
    for (std::size_t i = 0; i < shape.planeCount; ++i) {
      const int first = i == 0 ? row : row / 2;
      const auto rowBytes = static_cast<std::size_t>(bands[i].stride);
      for (int line = 0; line < (i == 0 ? rows : (rows + 1) / 2); ++line) {
        const std::span samples(planes[i].data + static_cast<std::ptrdiff_t>(first + line) * planes[i].stride,
                                rowBytes);
        i == 0 ? widenLuma(samples, bands[i].row(line)) : widenChroma(samples, bands[i].row(line));
      }
    }
    convertPlanes(format, widened, target + static_cast<std::ptrdiff_t>(row) * stride, stride, rows);
  }
}

// The library names a format by the bits of a 32-bit word: its "ARGB" is B, G, R, A in memory.
void convert(const CameraFormat& format, const Planes& planes, std::uint8_t* target, int stride) {
  const auto& first = planes[0];
  const int width = format.width;
  const int height = format.height;
  switch (format.coding) {
  case CameraCoding::yuy2:
  case CameraCoding::uyvy:
    convertPairs(format, first, target, stride);
    break;
  case CameraCoding::nv12:
  case CameraCoding::i420:
    needsWidening(format) ? convertWidenedPlanes(format, planes, target, stride)
                          : convertPlanes(format, planes, target, stride, height);
    break;
  case CameraCoding::rgbx:
    libyuv::ABGRToARGB(first.data, first.stride, target, stride, width, height);
    break;
  case CameraCoding::bgr:
    libyuv::RGB24ToARGB(first.data, first.stride, target, stride, width, height);
    break;
  case CameraCoding::rgb:
    libyuv::RAWToARGB(first.data, first.stride, target, stride, width, height);
    break;
  case CameraCoding::gray8:
    libyuv::I400ToARGBMatrix(first.data, first.stride, target, stride,
                             format.isFullRange ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants,
                             width, height);
    break;
  case CameraCoding::bgrx:
  case CameraCoding::jpeg:
    libyuv::ARGBCopy(first.data, first.stride, target, stride, width, height);
    break;
  }
}

} // namespace

struct PicturePool::Store {
  std::mutex mutex;
  // Guarded by mutex: memory that nobody uses, all of the size.
  std::vector<std::unique_ptr<std::uint8_t[]>> unused;
  std::size_t size = 0;

  std::unique_ptr<std::uint8_t[]> take(std::size_t wanted) {
    {
      const std::lock_guard lock(mutex);
      if (size != wanted) {
        unused.clear();
        size = wanted;
      }
      if (!unused.empty()) {
        auto memory = std::move(unused.back());
        unused.pop_back();
        return memory;
      }
    }
    return std::make_unique_for_overwrite<std::uint8_t[]>(wanted);
  }

  void giveBack(std::unique_ptr<std::uint8_t[]> memory, std::size_t itsSize) {
    const std::lock_guard lock(mutex);
    if (itsSize == size && unused.size() < mostKept) {
      unused.push_back(std::move(memory));
    }
  }
};

PicturePool::PicturePool() : store_(std::make_shared<Store>()) {}

std::shared_ptr<std::uint8_t> PicturePool::memory(std::size_t size) {
  auto memory = store_->take(size);
  return {memory.release(), [store = store_, size](std::uint8_t* data) {
            store->giveBack(std::unique_ptr<std::uint8_t[]>(data), size);
          }};
}

std::optional<Picture> convertFrame(const CameraFormat& format, std::span<const CameraBlock> blocks,
                                    PicturePool& pool) {
  if (blocks.empty() || format.coding == CameraCoding::jpeg || format.width < 1 || format.height < 1 ||
      format.width > largestCameraSide || format.height > largestCameraSide) {
    return std::nullopt;
  }
  const auto shape = shapeOf(format);
  const auto planes =
      blocks.size() >= shape.planeCount ? planesInBlocks(shape, blocks) : planesInOneBlock(shape, blocks[0]);
  if (!planes) {
    return std::nullopt;
  }
  const int stride = format.width * 4;
  auto memory = pool.memory(static_cast<std::size_t>(stride) * static_cast<std::size_t>(format.height));
  convert(format, *planes, memory.get(), stride);
  return Picture{{memory.get(), format.width, format.height, stride, PixelFormat::bgrx8}, memory};
}

} // namespace tessarin::pipewire
