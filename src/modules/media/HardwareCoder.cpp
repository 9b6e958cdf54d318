#include "modules/media/HardwareCoder.hpp"

#include "modules/media/LibraryCoder.hpp"

#include <algorithm>
#include <string>
#include <sys/stat.h>
#include <utility>

extern "C" {
#include <libavutil/hwcontext.h>
}

namespace tessarin::media {

namespace {

struct FreeBuffer {
  void operator()(AVBufferRef* buffer) const { av_buffer_unref(&buffer); }
};
using OwnBuffer = std::unique_ptr<AVBufferRef, FreeBuffer>;

// Pictures that an encoder may hold back beyond the one that it has been given.
constexpr std::int64_t heldPictures = 2;

void setKeysAndProfile(AVCodecContext& context, const VideoSettings& settings) {
  // The keys that are asked for come no later, so that the encoder places none of its own.
  context.gop_size = static_cast<int>(settings.maximumKeyFrameInterval);
  context.refs = 1;
  context.rc_max_rate = settings.averageBitRate * 2;
  context.rc_buffer_size = static_cast<int>(std::min<std::int64_t>(settings.averageBitRate * 2, 1 << 30));
  context.profile = settings.codec == RecordingCodec::hevc ? FF_PROFILE_HEVC_MAIN : FF_PROFILE_H264_HIGH;
}

// Takes planes in the machine's memory.
class NvencCoder final : public LibraryCoder {
 public:
  NvencCoder(const Encoder& encoder, const VideoSettings& settings) : LibraryCoder(encoder, settings) {
    setKeysAndProfile(context(), settings);
    setOption(context(), "preset", "p4");
    setOption(context(), "tune", "ll");
    setOption(context(), "rc", "vbr");
    setOption(context(), "delay", "0");
    setOption(context(), "zerolatency", "1");
    setOption(context(), "forced-idr", "1");
    setOption(context(), "no-scenecut", "1");
    setOption(context(), "dpb_size", "1");
    setOption(context(), "profile", settings.codec == RecordingCodec::h264 ? "high" : "main");
    if (settings.codec == RecordingCodec::h264)
      setOption(context(), "coder", "cabac");
    open();
  }

  std::int64_t delay() const override { return heldPictures; }

 protected:
  void load(AVFrame& frame, const std::shared_ptr<const I420Picture>& picture) override {
    wrapPicture(frame, picture);
  }
};

// Takes surfaces of its device, into which pictures are copied.
class VaapiCoder final : public LibraryCoder {
 public:
  VaapiCoder(const Encoder& encoder, const VideoSettings& settings, const std::string& node, bool isLowPower)
      : LibraryCoder(encoder, settings) {
    setKeysAndProfile(context(), settings);
    context().pix_fmt = AV_PIX_FMT_VAAPI;
    setOption(context(), "async_depth", "1");
    setOption(context(), "low_power", isLowPower ? "1" : "0");
    setOption(context(), "sei", "0");
    if (settings.codec == RecordingCodec::h264)
      setOption(context(), "coder", "cabac");
    makeSurfaces(node);
    open();
  }

  std::int64_t delay() const override { return heldPictures; }

 protected:
  void load(AVFrame& frame, const std::shared_ptr<const I420Picture>& picture) override {
    writeAsNv12(*picture, staging_->data[0], staging_->linesize[0], staging_->data[1], staging_->linesize[1]);
    checkLibrary(av_hwframe_get_buffer(surfaces_.get(), &frame, 0));
    checkLibrary(av_hwframe_transfer_data(&frame, staging_.get(), 0));
    frame.color_range = AVCOL_RANGE_MPEG;
  }

 private:
  void makeSurfaces(const std::string& node);

  OwnBuffer device_;
  OwnBuffer surfaces_;
  OwnFrame staging_; // NV12 in the machine's memory
};

void VaapiCoder::makeSurfaces(const std::string& node) {
  AVBufferRef* device = nullptr;
  checkLibrary(av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, node.c_str(), nullptr, 0));
  device_.reset(device);
  surfaces_.reset(checkedLibrary(av_hwframe_ctx_alloc(device)));
  auto& frames = *reinterpret_cast<AVHWFramesContext*>(surfaces_->data);
  frames.format = AV_PIX_FMT_VAAPI;
  frames.sw_format = AV_PIX_FMT_NV12;
  frames.width = context().width;
  frames.height = context().height;
  constexpr int surfacesInUse = 8;
  frames.initial_pool_size = surfacesInUse;
  checkLibrary(av_hwframe_ctx_init(surfaces_.get()));
  context().hw_frames_ctx = checkedLibrary(av_buffer_ref(surfaces_.get()));

  staging_.reset(checkedLibrary(av_frame_alloc()));
  staging_->format = AV_PIX_FMT_NV12;
  staging_->width = context().width;
  staging_->height = context().height;
  checkLibrary(av_frame_get_buffer(staging_.get(), 0));
}

bool exists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

// The first device that takes the settings; newer ones may have the low-power way alone.
std::unique_ptr<VideoCoder> makeVaapiCoder(const Encoder& encoder, const VideoSettings& settings) {
  constexpr int firstNode = 128;
  constexpr int mostNodes = 8;
  for (int node = firstNode; node < firstNode + mostNodes; ++node) {
    const std::string path = "/dev/dri/renderD" + std::to_string(node);
    if (!exists(path))
      continue;
    for (const bool isLowPower : {false, true})
      try {
        return std::make_unique<VaapiCoder>(encoder, settings, path, isLowPower);
      } catch (const CoderFailure&) {
        continue; // as good as not there
      }
  }
  throw CoderFailure("libav", AVERROR(ENODEV));
}

} // namespace

void writeAsNv12(const I420Picture& picture, std::uint8_t* luma, std::ptrdiff_t lumaStride,
                 std::uint8_t* chroma, std::ptrdiff_t chromaStride) {
  const pixels::I420Planes planes = picture.planes();
  for (std::int32_t row = 0; row < picture.height(); ++row)
    std::copy_n(planes.y + row * planes.yStride, picture.width(), luma + row * lumaStride);
  for (std::int32_t row = 0; row < picture.height() / 2; ++row) {
    const std::uint8_t* u = planes.u + row * planes.uStride;
    const std::uint8_t* v = planes.v + row * planes.vStride;
    std::uint8_t* both = chroma + row * chromaStride;
    for (std::int32_t column = 0; column < picture.width() / 2; ++column) {
      both[2 * column] = u[column];
      both[2 * column + 1] = v[column];
    }
  }
}

std::unique_ptr<VideoCoder> makeHardwareCoder(const Encoder& encoder, const VideoSettings& settings) {
  if (encoder.kind == EncoderKind::vaapi)
    return makeVaapiCoder(encoder, settings);
  return std::make_unique<NvencCoder>(encoder, settings);
}

} // namespace tessarin::media
