#include "pixels/Shadow.hpp"
#include "pixels/TestPictures.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tessarin::pixels {
namespace {

// How dark the shadow is at a pixel: the shape's shares there and around, under a Gaussian.
class ExactShadow {
 public:
  ExactShadow(const Shadow::Form& form, int width, int height)
      : width_(width), margin_(static_cast<int>(std::ceil(form.deviation * 6))) {
    RoundedRect shape = form.shape;
    shape.left += form.offsetX + margin_;
    shape.right += form.offsetX + margin_;
    shape.top += form.offsetY + margin_;
    shape.bottom += form.offsetY + margin_;
    const auto lines = covered(shape, width + 2 * margin_, height + 2 * margin_);
    std::vector<double> weights;
    double sum = 0;
    for (int offset = -margin_; offset <= margin_; ++offset) {
      weights.push_back(std::exp(-0.5 * offset * offset / (form.deviation * form.deviation)));
      sum += weights.back();
    }
    std::vector<std::vector<double>> across(lines.size(),
                                            std::vector<double>(static_cast<std::size_t>(width)));
    for (std::size_t y = 0; y < lines.size(); ++y)
      for (std::size_t x = 0; x < across[y].size(); ++x)
        for (std::size_t tap = 0; tap < weights.size(); ++tap)
          across[y][x] += weights[tap] / sum * lines[y][x + tap];
    for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y)
      for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x) {
        double value = 0;
        for (std::size_t tap = 0; tap < weights.size(); ++tap)
          value += weights[tap] / sum * across[y + tap][x];
        shares_.push_back(value / 255);
      }
  }
  double at(int x, int y) const { return shares_[static_cast<std::size_t>(y * width_ + x)]; }

 private:
  int width_, margin_;
  std::vector<double> shares_;
};

const Shadow::Form forms[] = {
    {{20, 15, 70, 45, 6}, 0, 4, 6, {0, 0, 0, 0.45}},
    {{20.5, 15.25, 70.75, 45, 0}, 0, 4, 2, {0, 0, 0, 0.45}},
    {{-40, -30, 60, 200, 10}, 1.5, -2.25, 9, {0.2, 0.4, 1, 1}}, // beyond three sides of the canvas
    {{30, 20, 31, 21, 0.5}, 0, 0, 3, {0, 0, 0, 1}},
};

TEST(Shadow, IsTheBlurredShape) {
  for (const Shadow::Form& form : forms) {
    const ExactShadow exact(form, 90, 60);
    TestPicture canvas(90, 60, 1, 4, 161);
    for (int y = 0; y < 60; ++y)
      for (int x = 0; x < 90; ++x)
        std::fill_n(canvas.pixel(x, y), 4, std::uint8_t{240});
    Shadow(90, 60, form).blendOnto(canvas.canvas());
    const double color[3] = {form.color.blue, form.color.green, form.color.red};
    for (int y = 0; y < 60; ++y)
      for (int x = 0; x < 90; ++x)
        for (int channel = 0; channel < 3; ++channel) {
          const double alpha = form.color.alpha * exact.at(x, y);
          ASSERT_NEAR(canvas.pixel(x, y)[channel], 240 * (1 - alpha) + 255 * color[channel] * alpha, 2)
              << form.deviation << " at " << x << "," << y;
        }
  }
}

TEST(Shadow, ChangesNoPixelBeyondItsArea) {
  for (const Shadow::Form& form : forms) {
    TestPicture canvas(90, 60, 1, 4, 162);
    const TestPicture before = canvas;
    const Shadow shadow(90, 60, form);
    shadow.blendOnto(canvas.canvas());
    EXPECT_NE(canvas.bytes(), TestPicture(before).bytes());
    for (int y = 0; y < 60; ++y)
      for (int x = 0; x < 90; ++x)
        if (x < shadow.area().left || x >= shadow.area().right || y < shadow.area().top ||
            y >= shadow.area().bottom) {
          ASSERT_TRUE(std::equal(canvas.pixel(x, y), canvas.pixel(x, y) + 4, before.pixel(x, y)));
        }
  }
}

TEST(Shadow, IsNothingFarFromTheCanvas) {
  TestPicture canvas(20, 10, 0, 0, 163);
  const TestPicture before = canvas;
  const Shadow shadow(20, 10, {{200, 0, 300, 10, 2}, 0, 4, 6, {0, 0, 0, 1}});
  shadow.blendOnto(canvas.canvas());
  EXPECT_TRUE(shadow.area().isEmpty());
  EXPECT_EQ(canvas.bytes(), TestPicture(before).bytes());
}

} // namespace
} // namespace tessarin::pixels
