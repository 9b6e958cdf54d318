#include "modules/media/CoderFailure.hpp"
#include "modules/media/MediaWriter.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

namespace tessarin::media {
namespace {

constexpr VideoSettings hevc{.codec = RecordingCodec::hevc,
                             .width = 320,
                             .height = 240,
                             .averageBitRate = 1'000'000,
                             .expectedFrameRate = 30,
                             .maximumKeyFrameInterval = 30};

// What a writer says on machines with other encoders than the one that tests run on.
struct WriterOn {
  explicit WriterOn(EncoderCatalogue catalogue) : coders(std::move(catalogue)) {}
  VideoCoders coders;
  MediaWriter writer{machineFileSystem(), coders, {}};
};

TEST(MediaWriterCoders, cannotApplyACodecThatNothingCodes) {
  EncoderCatalogue catalogue = libraryEncoders(nullptr);
  catalogue.has = [](const std::string& name) { return name == "libx264"; };
  WriterOn machine(catalogue);
  EXPECT_FALSE(machine.writer.canApply(hevc));
  EXPECT_EQ(machine.writer.addVideoInput(hevc), nullptr);
  VideoSettings h264 = hevc;
  h264.codec = RecordingCodec::h264;
  EXPECT_TRUE(machine.writer.canApply(h264));
  EXPECT_NE(machine.writer.addVideoInput(h264), nullptr);
}

TEST(MediaWriterCoders, canApplyACodecThatHardwareAloneCodes) {
  EncoderCatalogue catalogue = libraryEncoders([](const std::string& name) { return name == "hevc_vaapi"; });
  catalogue.has = [](const std::string& name) { return name.ends_with("_vaapi"); };
  EXPECT_TRUE(WriterOn(catalogue).writer.canApply(hevc));
  catalogue.probe = [](const std::string&) { return false; };
  EXPECT_FALSE(WriterOn(catalogue).writer.canApply(hevc));
}

TEST(MediaWriterCoders, addsNoInputWhoseCoderDoesNotOpen) {
  EncoderCatalogue catalogue = libraryEncoders(nullptr);
  catalogue.make = [](const Encoder&, const VideoSettings&, CodingEffort) -> std::unique_ptr<VideoCoder> {
    throw CoderFailure("libav", -1);
  };
  WriterOn machine(catalogue);
  EXPECT_TRUE(machine.writer.canApply(hevc));
  EXPECT_EQ(machine.writer.addVideoInput(hevc), nullptr);
}

} // namespace
} // namespace tessarin::media
