#include "modules/media/VideoCoders.hpp"

#include "modules/media/CoderFailure.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace tessarin::media {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

VideoSettings settings(RecordingCodec codec) {
  return {.codec = codec,
          .width = 320,
          .height = 240,
          .averageBitRate = 1'000'000,
          .expectedFrameRate = 30,
          .maximumKeyFrameInterval = 30};
}

class SilentCoder final : public VideoCoder {
 public:
  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>&, std::int64_t, bool) override {
    return {};
  }
  std::vector<CodedPicture> finish() override { return {}; }
  std::int64_t delay() const override { return 0; }
  const container::SampleDescription& description() const override { return description_; }
  std::unique_ptr<PictureRepeater> makeRepeater() const override { return nullptr; }

 private:
  container::SampleDescription description_;
};

// A codec library and a machine as a test wants them.
struct Machine {
  using Names = std::vector<std::string>;
  Names built{"h264_nvenc", "h264_vaapi", "libx264", "hevc_nvenc", "hevc_vaapi", "libx265"};
  Names working{};  // hardware that the probe finds
  Names refusing{}; // what does not open for all that
  Names probed{};   // in order
  std::vector<CodingEffort> efforts{};

  static bool contains(const Names& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
  }
  EncoderCatalogue catalogue() {
    return {.has = [this](const std::string& name) { return contains(built, name); },
            .probe =
                [this](const std::string& name) {
                  probed.push_back(name);
                  return contains(working, name);
                },
            .make = [this](const Encoder& encoder, const VideoSettings&,
                           CodingEffort effort) -> std::unique_ptr<VideoCoder> {
              if (contains(refusing, encoder.name))
                throw CoderFailure("libav", -1);
              efforts.push_back(effort);
              return std::make_unique<SilentCoder>();
            }};
  }
  std::string chosen(RecordingCodec codec) {
    VideoCoders coders(catalogue());
    try {
      return coders.make(settings(codec)).encoderName;
    } catch (const CoderFailure&) {
      return "none";
    }
  }
};

TEST(VideoCoders, chooseHardwareThatWorksAndElseSoftware) {
  const struct {
    Machine::Names working;
    const char* h264;
    const char* hevc;
  } cases[] = {
      {{}, "libx264", "libx265"},
      {{"h264_vaapi"}, "h264_vaapi", "libx265"},
      {{"h264_nvenc"}, "h264_nvenc", "libx265"},
      {{"h264_nvenc", "h264_vaapi"}, "h264_nvenc", "libx265"},
      {{"hevc_vaapi"}, "libx264", "hevc_vaapi"},
      {{"hevc_nvenc", "hevc_vaapi"}, "libx264", "hevc_nvenc"},
  };
  for (const auto& each : cases) {
    Machine machine{.working = each.working};
    EXPECT_EQ(machine.chosen(RecordingCodec::h264), each.h264);
    EXPECT_EQ(machine.chosen(RecordingCodec::hevc), each.hevc);
  }
}

TEST(VideoCoders, askTheProbeOnlyForWhatTheLibraryHas) {
  Machine machine{.built = {"h264_vaapi", "libx264"}};
  EXPECT_EQ(machine.chosen(RecordingCodec::h264), "libx264");
  EXPECT_THAT(machine.probed, ElementsAre("h264_vaapi"));
}

TEST(VideoCoders, useNoHardwareWithoutAProbe) {
  Machine machine{.working = {"h264_vaapi"}};
  EncoderCatalogue catalogue = machine.catalogue();
  catalogue.probe = nullptr;
  VideoCoders coders(catalogue);
  EXPECT_EQ(coders.make(settings(RecordingCodec::h264)).encoderName, "libx264");
}

TEST(VideoCoders, takeSoftwareWhenHardwareDoesNotOpen) {
  Machine machine{.working = {"h264_nvenc", "h264_vaapi"}, .refusing = {"h264_nvenc"}};
  EXPECT_EQ(machine.chosen(RecordingCodec::h264), "h264_vaapi");
  machine.refusing = {"h264_nvenc", "h264_vaapi"};
  EXPECT_EQ(machine.chosen(RecordingCodec::h264), "libx264");
  machine.refusing.push_back("libx264");
  EXPECT_EQ(machine.chosen(RecordingCodec::h264), "none");
}

TEST(VideoCoders, useNoHardwareAgainThatHasFailed) {
  Machine machine{.working = {"h264_vaapi", "hevc_vaapi"}};
  VideoCoders coders(machine.catalogue());
  ASSERT_EQ(coders.make(settings(RecordingCodec::h264)).encoderName, "h264_vaapi");
  coders.failed("h264_vaapi");
  EXPECT_EQ(coders.make(settings(RecordingCodec::h264)).encoderName, "libx264");
  EXPECT_EQ(coders.make(settings(RecordingCodec::hevc)).encoderName, "hevc_vaapi");
}

TEST(VideoCoders, keepSoftwareThatHasFailed) {
  Machine machine;
  VideoCoders coders(machine.catalogue());
  coders.failed("libx264");
  coders.failed("no-such");
  EXPECT_EQ(coders.make(settings(RecordingCodec::h264)).encoderName, "libx264");
}

TEST(VideoCoders, canCodeWhatThereIsAnEncoderFor) {
  const struct {
    Machine::Names built;
    Machine::Names working;
    bool h264, hevc;
  } cases[] = {
      {{}, {}, false, false},
      {{"libx264"}, {}, true, false},
      {{"libx265"}, {}, false, true},
      {{"libx264", "hevc_nvenc", "hevc_vaapi"}, {}, true, false},
      {{"libx264", "hevc_nvenc", "hevc_vaapi"}, {"hevc_vaapi"}, true, true},
      {{"libx264", "hevc_vaapi"}, {"hevc_nvenc"}, true, false},
  };
  for (const auto& each : cases) {
    Machine machine{.built = each.built, .working = each.working};
    const VideoCoders coders(machine.catalogue());
    EXPECT_EQ(coders.canCode(settings(RecordingCodec::h264)), each.h264);
    EXPECT_EQ(coders.canCode(settings(RecordingCodec::hevc)), each.hevc);
    EXPECT_EQ(machine.chosen(RecordingCodec::h264) != "none", each.h264);
    EXPECT_EQ(machine.chosen(RecordingCodec::hevc) != "none", each.hevc);
  }
}

TEST(VideoCoders, probeNothingToTellThatSoftwareCanCode) {
  Machine machine;
  EXPECT_TRUE(VideoCoders(machine.catalogue()).canCode(settings(RecordingCodec::hevc)));
  EXPECT_THAT(machine.probed, IsEmpty());
}

TEST(VideoCoders, easeH264SoftwareInRealTimeAlone) {
  Machine machine;
  VideoCoders coders(machine.catalogue());
  coders.effort().stepDown(CodingEffort::full);
  VideoSettings patient = settings(RecordingCodec::h264);
  patient.expectsMediaDataInRealTime = false;
  coders.make(settings(RecordingCodec::h264));
  coders.make(patient);
  coders.make(settings(RecordingCodec::hevc));
  EXPECT_THAT(machine.efforts, ElementsAre(CodingEffort::reduced, CodingEffort::full, CodingEffort::full));
}

// The selection knows nothing that the library's own list does not.
TEST(VideoCoders, knowTheEncodersOfTheLibraryByName) {
  EXPECT_EQ(encoderNamed("libx264")->kind, EncoderKind::software);
  EXPECT_EQ(encoderNamed("hevc_vaapi")->codec, RecordingCodec::hevc);
  EXPECT_FALSE(encoderNamed("no-such"));
  EXPECT_FALSE(encoderNamed("aac"));
  const EncoderCatalogue library = libraryEncoders(nullptr);
  EXPECT_TRUE(library.has("libx264"));
  EXPECT_FALSE(library.has("no-such"));
}

TEST(VideoCoders, codeOnlySettingsThatMakeSense) {
  const VideoCoders coders(libraryEncoders(nullptr));
  const auto with = [&](auto change) {
    VideoSettings changed = settings(RecordingCodec::h264);
    change(changed);
    return coders.canCode(changed);
  };
  EXPECT_TRUE(with([](auto&) {}));
  EXPECT_TRUE(with([](auto& s) { s.codec = RecordingCodec::hevc; }));
  EXPECT_TRUE(with([](auto& s) { s.width = 2; }));
  EXPECT_FALSE(with([](auto& s) { s.width = 0; }));
  EXPECT_FALSE(with([](auto& s) { s.width = 321; }));
  EXPECT_FALSE(with([](auto& s) { s.height = 241; }));
  EXPECT_TRUE(with([](auto& s) { s.height = 16384; }));
  EXPECT_FALSE(with([](auto& s) { s.height = 16386; }));
  EXPECT_FALSE(with([](auto& s) { s.averageBitRate = 0; }));
  EXPECT_FALSE(with([](auto& s) { s.expectedFrameRate = 0; }));
  EXPECT_TRUE(with([](auto& s) { s.expectedFrameRate = 1000; }));
  EXPECT_FALSE(with([](auto& s) { s.expectedFrameRate = 1001; }));
  EXPECT_FALSE(with([](auto& s) { s.maximumKeyFrameInterval = 0; }));
}

} // namespace
} // namespace tessarin::media
