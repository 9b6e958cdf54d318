#include "modules/editing/PictureExpansion.hpp"

#include <algorithm>
#include <cmath>
#include <vector>

namespace tessarin::editing {

namespace {

// All sums are in 16 bits with 5 of them behind the point, so that eight pixels fit a register.
constexpr int fraction = 5;

// Luma is shifted up to 15 bits and chroma to 16; a factor brings the upper half of a product to the sums'
// form.
struct Factors {
  std::int16_t luma = 0;
  std::int16_t blueU = 0;
  std::int16_t greenU = 0;
  std::int16_t greenV = 0;
  std::int16_t redV = 0;
  int black = 0;
  int lumaShift = 0;
  int chromaShift = 0;
};

// From the luma of red and blue (ITU-R BT.601, BT.709, BT.2020).
Factors factorsOf(YuvMatrix matrix, bool isFullRange, int bits) {
  const double red = matrix == YuvMatrix::bt709 ? 0.2126 : matrix == YuvMatrix::bt601 ? 0.299 : 0.2627;
  const double blue = matrix == YuvMatrix::bt709 ? 0.0722 : matrix == YuvMatrix::bt601 ? 0.114 : 0.0593;
  const double green = 1 - red - blue;
  const double lumaScale = isFullRange ? 1 : 255.0 / 219;
  const double chromaScale = isFullRange ? 1 : 255.0 / 224;
  const auto lumaFactor = [&](double value) {
    return static_cast<std::int16_t>(std::lround(value * lumaScale * (1 << (fraction + 9))));
  };
  const auto chromaFactor = [&](double value) {
    return static_cast<std::int16_t>(std::lround(value * chromaScale * (1 << (fraction + 8))));
  };
  return {lumaFactor(1),
          chromaFactor(2 * (1 - blue)),
          chromaFactor(-2 * (1 - blue) * blue / green),
          chromaFactor(-2 * (1 - red) * red / green),
          chromaFactor(2 * (1 - red)),
          isFullRange ? 0 : 16 << (bits - 8),
          15 - bits,
          16 - bits};
}

std::int16_t upperHalf(int a, std::int16_t b) {
  return static_cast<std::int16_t>(static_cast<std::int16_t>(a) * b >> 16);
}

// What chroma adds to the channels of each pixel of a row.
struct ChromaRow {
  std::vector<std::int16_t> blue, green, red;
};

template<class Sample>
void expandChroma(const Sample* u, const Sample* v, std::size_t width, int shift, const Factors& by,
                  int middle, ChromaRow& row) {
  std::int16_t* const blue = row.blue.data();
  std::int16_t* const green = row.green.data();
  std::int16_t* const red = row.red.data();
  if (shift == 0) {
    for (std::size_t x = 0; x < width; ++x) {
      const int cb = (u[x] - middle) << by.chromaShift;
      const int cr = (v[x] - middle) << by.chromaShift;
      blue[x] = upperHalf(cb, by.blueU);
      green[x] = static_cast<std::int16_t>(upperHalf(cb, by.greenU) + upperHalf(cr, by.greenV));
      red[x] = upperHalf(cr, by.redV);
    }
    return;
  }
  for (std::size_t x = 0; x < (width + 1) / 2; ++x) {
    const int cb = (u[x] - middle) << by.chromaShift;
    const int cr = (v[x] - middle) << by.chromaShift;
    blue[2 * x] = blue[2 * x + 1] = upperHalf(cb, by.blueU);
    green[2 * x] = green[2 * x + 1] =
        static_cast<std::int16_t>(upperHalf(cb, by.greenU) + upperHalf(cr, by.greenV));
    red[2 * x] = red[2 * x + 1] = upperHalf(cr, by.redV);
  }
}

std::uint8_t channel(std::int16_t sum) {
  const auto value = static_cast<std::int16_t>(sum >> fraction);
  return static_cast<std::uint8_t>(std::clamp<std::int16_t>(value, 0, 255));
}

template<class Sample>
void expandRow(const Sample* y, std::size_t width, const Factors& by, const ChromaRow& row,
               std::uint8_t* pixels) {
  const std::int16_t* const blue = row.blue.data();
  const std::int16_t* const green = row.green.data();
  const std::int16_t* const red = row.red.data();
  // The floors of three products and of the shift are half a step in all on average.
  constexpr std::int16_t half = (1 << (fraction - 1)) + 1;
  for (std::size_t x = 0; x < width; ++x) {
    const auto luma = static_cast<std::int16_t>(upperHalf((y[x] - by.black) << by.lumaShift, by.luma) + half);
    pixels[4 * x] = channel(static_cast<std::int16_t>(luma + blue[x]));
    pixels[4 * x + 1] = channel(static_cast<std::int16_t>(luma + green[x]));
    pixels[4 * x + 2] = channel(static_cast<std::int16_t>(luma + red[x]));
    pixels[4 * x + 3] = 255;
  }
}

template<class Sample> void expand(const YuvPlanes& planes, const Factors& by, const pixels::Canvas& canvas) {
  const auto width = static_cast<std::size_t>(canvas.width);
  ChromaRow row;
  for (auto* channel : {&row.blue, &row.green, &row.red})
    channel->resize(width + 1);
  const int middle = 1 << (planes.bits - 1);
  const auto rowOf = [](const std::uint8_t* plane, std::ptrdiff_t stride, std::int32_t y) {
    return reinterpret_cast<const Sample*>(plane + y * stride);
  };
  for (std::int32_t y = 0; y < canvas.height; ++y) {
    const std::int32_t chromaY = y >> planes.chromaShiftY;
    if (y == 0 || planes.chromaShiftY == 0 || y % 2 == 0)
      expandChroma(rowOf(planes.u, planes.uStride, chromaY), rowOf(planes.v, planes.vStride, chromaY), width,
                   planes.chromaShiftX, by, middle, row);
    expandRow(rowOf(planes.y, planes.yStride, y), width, by, row, canvas.row(y));
  }
}

} // namespace

void expandToBgrx(const YuvPlanes& planes, YuvMatrix matrix, bool isFullRange, const pixels::Canvas& canvas) {
  const Factors by = factorsOf(matrix, isFullRange, planes.bits);
  if (planes.bits == 8)
    expand<std::uint8_t>(planes, by, canvas);
  else
    expand<std::uint16_t>(planes, by, canvas);
}

} // namespace tessarin::editing
