#pragma once

#include "modules/media/CodingEffort.hpp"
#include "modules/media/VideoCoder.hpp"

#include <functional>
#include <memory>
#include <vector>

namespace tessarin::media {

// A coder that follows the effort of its session: at a key picture it has what the coder before it still
// holds put out, and goes on with a new one. The stream stays one stream, since coders of every effort
// describe it alike and nothing refers across a key. Confined like every coder.
class SteppingCoder final : public VideoCoder {
 public:
  // Throws CoderFailure.
  using Make = std::function<std::unique_ptr<VideoCoder>(CodingEffort effort)>;

  // The effort outlives the coder. Throws what `make` throws.
  SteppingCoder(Make make, const SharedEffort& effort);

  std::vector<CodedPicture> encode(const std::shared_ptr<const I420Picture>& picture, std::int64_t time,
                                   bool asKey) override;
  std::vector<CodedPicture> finish() override { return coder_->finish(); }
  std::int64_t delay() const override { return coder_->delay(); }
  const container::SampleDescription& description() const override { return coder_->description(); }
  std::unique_ptr<PictureRepeater> makeRepeater() const override { return coder_->makeRepeater(); }

 private:
  std::unique_ptr<VideoCoder> nextCoder(CodingEffort effort) const;

  const Make make_;
  const SharedEffort& effort_;
  CodingEffort used_;
  std::unique_ptr<VideoCoder> coder_;
  bool isBehindKey_ = false; // the last picture handed in was a key
};

} // namespace tessarin::media
