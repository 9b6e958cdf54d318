#include "modules/media/SoftwareCoder.hpp"

#include "modules/media/LibraryCoder.hpp"

#include <algorithm>
#include <string>
#include <thread>

namespace tessarin::media {

namespace {

// Pictures that are looked at before the first one of them is coded. A look-ahead of more than a part of a
// key interval gains nothing.
std::int64_t lookahead(const VideoSettings& settings) {
  constexpr std::int64_t most = 10;
  return std::clamp<std::int64_t>(settings.maximumKeyFrameInterval / 3, 0, most);
}

// Two pictures at a time keep the coder ahead of a busy screen on a small machine; each more costs delay.
// Slices instead would hold back one picture less for a twelfth of the processor time more.
int pictureThreads() {
  return static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 2U, 4U));
}

// What the efforts differ in is how the coder searches, which no parameter set tells. Looking ahead, and
// spending bits on what later pictures show too, gains most on a screen and costs least: it goes last. At
// the least effort a change that nothing follows is pushed out by two repetitions, not by a dozen.
std::string h264Search(const VideoSettings& settings, CodingEffort effort) {
  const std::string ahead = "aq-mode=1:mbtree=1:rc-lookahead=" + std::to_string(lookahead(settings)) + ":";
  switch (effort) {
  case CodingEffort::full:
    break;
  case CodingEffort::reduced:
    return "me=dia:subme=1:" + ahead;
  case CodingEffort::least:
    return "me=dia:subme=0:partitions=none:aq-mode=0:mbtree=0:rc-lookahead=0:";
  }
  return "me=hex:subme=2:" + ahead;
}

// The two coders' own options. What they share: no picture is predicted from a later one or from more than
// the one before it; keys are placed by us alone and close their group; no weights, which repeated pictures
// could not tell; slices whole. What the parameter sets tell beyond that is pinned, whatever a preset says.
std::string h264Options(const VideoSettings& settings, CodingEffort effort) {
  return h264Search(settings, effort) +
         "cabac=1:8x8dct=1:deblock=0,0:trellis=0:ref=1:bframes=0:weightp=0:scenecut=0:open-gop=0:"
         "keyint=infinite:slices=1:sliced-threads=0:sync-lookahead=0";
}

std::string hevcOptions(const VideoSettings& settings) {
  return "ref=1:bframes=0:weightp=0:scenecut=0:open-gop=0:keyint=-1:repeat-headers=0:log-level=none:info=0:"
         "rc-lookahead=" +
         std::to_string(lookahead(settings)) + ":frame-threads=" + std::to_string(pictureThreads());
}

class SoftwareCoder final : public LibraryCoder {
 public:
  SoftwareCoder(const Encoder& encoder, const VideoSettings& settings, CodingEffort effort)
      : LibraryCoder(encoder, settings) {
    const bool isHevc = settings.codec == RecordingCodec::hevc;
    context().thread_count = pictureThreads();
    // HEVC is several times as dear, so that only its fastest preset keeps up with a screen: it has no
    // efforts.
    setOption(context(), "preset", isHevc ? "ultrafast" : "veryfast");
    setOption(context(), "forced-idr", "1");
    if (isHevc)
      setOption(context(), "x265-params", hevcOptions(settings));
    else
      setOption(context(), "x264-params", h264Options(settings, effort));
    open();
  }

  // Of any effort, so that one can take the place of another.
  std::int64_t delay() const override {
    // x265 looks at two pictures more than it is told.
    const std::int64_t more = settings().codec == RecordingCodec::hevc ? 2 : 0;
    return lookahead(settings()) + pictureThreads() + more;
  }

 protected:
  void load(AVFrame& frame, const std::shared_ptr<const I420Picture>& picture) override {
    wrapPicture(frame, picture);
  }
};

} // namespace

std::unique_ptr<VideoCoder> makeSoftwareCoder(const Encoder& encoder, const VideoSettings& settings,
                                              CodingEffort effort) {
  return std::make_unique<SoftwareCoder>(encoder, settings, effort);
}

} // namespace tessarin::media
