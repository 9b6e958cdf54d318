#include "modules/media/EncoderCheck.hpp"

#include "modules/media/CoderFailure.hpp"

#include <gtest/gtest.h>

#include <utility>

namespace tessarin::media {
namespace {

TEST(EncoderCheck, passesEncodersThatWork) {
  const EncoderCatalogue library = libraryEncoders(nullptr);
  EXPECT_TRUE(encodesRightly(library, "libx264"));
  EXPECT_TRUE(encodesRightly(library, "libx265"));
}

TEST(EncoderCheck, refusesNamesThatItDoesNotKnowAndWhatTheLibraryLacks) {
  EncoderCatalogue library = libraryEncoders(nullptr);
  EXPECT_FALSE(encodesRightly(library, "no-such"));
  EXPECT_FALSE(encodesRightly(library, ""));
  EXPECT_FALSE(encodesRightly(library, "aac"));
  library.has = [](const std::string&) { return false; };
  EXPECT_FALSE(encodesRightly(library, "libx264"));
}

// A working coder whose work is spoilt in one way.
class SpoiltCoder final : public VideoCoder {
 public:
  enum class Fault { none, losesPictures, showsAnotherPicture, damages, fails, describesAnotherStream };

  SpoiltCoder(std::unique_ptr<VideoCoder> coder, Fault fault) : coder_(std::move(coder)), fault_(fault) {
    description_ = coder_->description();
    if (fault == Fault::describesAnotherStream)
      description_.box.resize(40);
  }

  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>& picture, std::int64_t time,
                                   bool asKey) override {
    if (!first_)
      first_ = picture;
    if (fault_ == Fault::fails && time > 5)
      throw CoderFailure("device", 1);
    return spoilt(coder_->encode(fault_ == Fault::showsAnotherPicture ? first_ : picture, time, asKey));
  }
  std::vector<CodedPicture> finish() override { return spoilt(coder_->finish()); }
  std::int64_t delay() const override { return coder_->delay(); }
  const container::SampleDescription& description() const override { return description_; }
  std::unique_ptr<PictureRepeater> makeRepeater() const override { return coder_->makeRepeater(); }

 private:
  std::vector<CodedPicture> spoilt(std::vector<CodedPicture> pictures) {
    if (fault_ == Fault::losesPictures && !pictures.empty())
      pictures.pop_back();
    if (fault_ == Fault::damages)
      for (CodedPicture& picture : pictures)
        for (std::size_t i = picture.sample.size() / 2; i < picture.sample.size(); ++i)
          picture.sample[i] ^= std::byte{0xFF};
    return pictures;
  }

  const std::unique_ptr<VideoCoder> coder_;
  const Fault fault_;
  container::SampleDescription description_;
  std::shared_ptr<const I420Picture> first_;
};

TEST(EncoderCheck, refusesAnEncoderThatWorksWrongly) {
  using Fault = SpoiltCoder::Fault;
  const EncoderCatalogue library = libraryEncoders(nullptr);
  const auto passes = [&](Fault fault) {
    EncoderCatalogue spoilt = library;
    spoilt.make = [&](const Encoder& encoder, const VideoSettings& settings, CodingEffort effort) {
      return std::make_unique<SpoiltCoder>(library.make(encoder, settings, effort), fault);
    };
    return encodesRightly(spoilt, "libx264");
  };
  EXPECT_TRUE(passes(Fault::none));
  EXPECT_FALSE(passes(Fault::losesPictures));
  EXPECT_FALSE(passes(Fault::showsAnotherPicture));
  EXPECT_FALSE(passes(Fault::damages));
  EXPECT_FALSE(passes(Fault::fails));
  EXPECT_FALSE(passes(Fault::describesAnotherStream));
}

} // namespace
} // namespace tessarin::media
