// Panels of recordings by the built program are on the screen and in no picture. The finished film is decoded
// by other means and compared with what was known to lie beneath.

#include "InteractionsFixture.hpp"

#include "model/Picture.hpp"
#include "support/FrameCounter.hpp"

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace tessarin {
namespace {

using std::chrono::milliseconds;

// The decoded pictures of a film one after the other, as bytes of blue, green, red and one more.
class Film {
 public:
  Film(const std::string& path, int width, int height)
      : width_(width), height_(height), bytes_(static_cast<std::size_t>(width) * height * 4),
        pipe_(::popen(("ffmpeg -v error -nostdin -i '" + path + "' -f rawvideo -pix_fmt bgra -").c_str(),
                      "r")) {}
  ~Film() {
    if (pipe_)
      ::pclose(pipe_);
  }
  Film(const Film&) = delete;
  Film& operator=(const Film&) = delete;

  // Nothing at the end.
  std::optional<PictureView> next() {
    if (!pipe_ || std::fread(bytes_.data(), 1, bytes_.size(), pipe_) != bytes_.size())
      return std::nullopt;
    PictureView view;
    view.data = bytes_.data();
    view.width = width_;
    view.height = height_;
    view.stride = width_ * 4;
    return view;
  }

 private:
  int width_;
  int height_;
  std::vector<std::uint8_t> bytes_;
  std::FILE* pipe_;
};

// How far a picture is off its one colour, as the worst channel of the worst pixel, beside a rectangle.
int farthest(const PictureView& picture, std::uint32_t colour, const RectDTO& beside) {
  int worst = 0;
  for (int y = 0; y < picture.height; ++y)
    for (int x = 0; x < picture.width; ++x) {
      if (x >= beside.x && x < beside.x + beside.width && y >= beside.y && y < beside.y + beside.height)
        continue;
      const auto* const pixel = picture.data + y * picture.stride + static_cast<std::ptrdiff_t>(x) * 4;
      for (unsigned channel = 0; channel < 3; ++channel)
        worst = std::max(worst, std::abs(pixel[channel] - static_cast<int>(colour >> (8 * channel) & 0xFFU)));
    }
  return worst;
}

// A still background with a counter in the middle of it, which goes on and keeps pictures coming; both panels
// come over both. Without a compositing manager or with the one that the arguments start.
class RecordingPanelsTest : public InteractionsFixture,
                            public ::testing::WithParamInterface<std::vector<std::string>> {
 protected:
  static constexpr std::uint32_t colour = 0x206040;
  static constexpr int coderError = 12;
  static constexpr RectDTO region = {100, 60, 640, 480};
  // Of the counter on the desktop: where the badge is shown in the region.
  static constexpr RectDTO counter = {340, 460, 160, 64};

  RecordingPanelsTest() {
    if (!GetParam().empty()) {
      manager = desktop.start(GetParam());
      desktop.waitFor("compositing-manager");
    }
    background = desktop.client({"--style", "override", "--colour", "ff206040", "--size", "800x600"});
    numbers = desktop.client(
        {"--style", "override", "--paint", "counter", "--fps", "20", "--size", "160x64", "--at",
         std::to_string(static_cast<int>(counter.x)) + "," + std::to_string(static_cast<int>(counter.y))});
    plugInCamera();
    input.moveTo(5, 5);
  }

  static InteractionRecordingOptions options(const std::string& kind, const RectDTO& rect) {
    InteractionRecordingOptions result;
    result.kind = kind;
    result.rect = rect;
    result.camera = true;
    result.drawsPointer = false;
    return result;
  }

  // Records while the camera is dragged about and badges come and go. The panel begins 24 pixels from the
  // corner of the rectangle, as large as a fifth of it.
  void record(const InteractionRecordingOptions& recorded, const RectDTO& rect) {
    const auto recording = start(recorded);
    recording->waitFor("recording");
    int x = static_cast<int>(rect.x + rect.width) - 24 - 40;
    int y = static_cast<int>(rect.y + rect.height) - 24 - 40;
    EXPECT_TRUE(becomes([&] { return colourAt(x, y) != colour; })) << "the camera is shown";
    input.chord({KEY_LEFTCTRL}, KEY_J);
    EXPECT_TRUE(becomes([&] { return isBadgeShown(rect); })) << "the badge is shown";
    input.moveTo(x, y);
    input.button(1, true);
    const auto toX = static_cast<int>(counter.x + counter.width / 2);
    const auto toY = static_cast<int>(counter.y + counter.height / 2);
    for (int step = 1; step <= 12; ++step) {
      input.moveTo(x + (toX - x) * step / 12, y + (toY - y) * step / 12);
      std::this_thread::sleep_for(milliseconds(40));
    }
    for (int step = 1; step <= 12; ++step) {
      input.moveTo(toX, toY - 20 * step);
      std::this_thread::sleep_for(milliseconds(40));
    }
    input.button(1, false);
    EXPECT_TRUE(becomes([&] { return colourAt(toX, toY - 240) != colour; })) << "the camera has moved";
    input.chord({KEY_LEFTCTRL, KEY_LEFTALT, KEY_LEFTSHIFT, KEY_LEFTMETA}, KEY_K);
    std::this_thread::sleep_for(milliseconds(200));
    complete(*recording);
  }
  // The badge stands over the counter's left and right edges, in front of the background.
  bool isBadgeShown(const RectDTO& rect) {
    const auto middle = static_cast<int>(rect.x + rect.width / 2);
    const auto lowest = static_cast<int>(rect.y + rect.height * (1 - 0.055)) - 4;
    return colourAt(middle - 30, lowest) != colour && isDark(colourAt(middle - 30, lowest));
  }
  static bool isDark(std::uint32_t value) {
    return (value & 0xFFU) < 0x40 && (value >> 8U & 0xFFU) < 0x40 && (value >> 16U) < 0x40;
  }

  // Of the counter in the pictures; the rectangle's corner is theirs.
  void expectOnlyWhatLiesBeneath(const RectDTO& rect) const {
    // As far as the coder smears, and as a manager's shadow of the counter goes.
    const int margin = GetParam().empty() ? 8 : 36;
    const int left = static_cast<int>(counter.x - rect.x);
    const int top = static_cast<int>(counter.y - rect.y);
    Film film(session() + "/screen.mp4", static_cast<int>(rect.width), static_cast<int>(rect.height));
    int pictures = 0;
    int unreadable = 0;
    std::optional<std::uint32_t> first;
    std::optional<std::uint32_t> last;
    while (const auto picture = film.next()) {
      ++pictures;
      EXPECT_LE(farthest(*picture, colour,
                         {static_cast<double>(left - margin), static_cast<double>(top - margin),
                          counter.width + 2 * margin, counter.height + 2 * margin}),
                coderError)
          << "picture " << pictures;
      const auto number = frameCounter::read(*picture, left, top);
      unreadable += number ? 0 : 1;
      if (number && !first)
        first = number;
      if (number)
        last = number;
    }
    EXPECT_GE(pictures, 20);
    EXPECT_LE(unreadable, pictures / 20) << "of " << pictures;
    EXPECT_GE(last.value_or(0), first.value_or(0) + 10) << "the counter has gone on";
  }

  std::unique_ptr<ChildProcess> manager;
  std::unique_ptr<TestClient> background;
  std::unique_ptr<TestClient> numbers;
};

TEST_P(RecordingPanelsTest, AreInNoPictureOfADisplay) {
  const RectDTO whole = {0, 0, 800, 600};
  record(options("display", {0, 0, 1, 1}), whole);
  expectOnlyWhatLiesBeneath(whole);
}

TEST_P(RecordingPanelsTest, AreInNoPictureOfARegion) {
  record(options("region", region), region);
  expectOnlyWhatLiesBeneath(region);
}

TEST_P(RecordingPanelsTest, AreInNoPictureOfAWindow) {
  const RectDTO whole = {0, 0, 800, 600};
  InteractionRecordingOptions recorded = options("window", whole);
  recorded.windowID = background->windowID();
  record(recorded, whole);
  Film film(session() + "/screen.mp4", 800, 600);
  int pictures = 0;
  while (const auto picture = film.next()) {
    ++pictures;
    EXPECT_LE(farthest(*picture, colour, {}), coderError) << "picture " << pictures;
  }
  EXPECT_GE(pictures, 20);
}

INSTANTIATE_TEST_SUITE_P(Managers, RecordingPanelsTest,
                         ::testing::Values(std::vector<std::string>{},
                                           std::vector<std::string>{"xcompmgr", "-c"}));

} // namespace
} // namespace tessarin
