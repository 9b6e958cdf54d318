#include "modules/editing/FrameConversion.hpp"

#include "modules/editing/PictureExpansion.hpp"
#include "modules/editing/SampleEntries.hpp"
#include "pixels/ColorConversion.hpp"

#include <libyuv/planar_functions.h>
#include <libyuv/rotate.h>
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace tessarin::editing {

namespace {

[[noreturn]] void failNotComposable() {
  throw MovieEditingFailure(MovieEditingError::notComposable);
}

// Throws for a negative result of the image library.
void checkConversion(int result) {
  if (result != 0)
    failNotComposable();
}

bool isFullRange(const AVFrame& frame) {
  return frame.color_range == AVCOL_RANGE_JPEG || frame.format == AV_PIX_FMT_YUVJ420P ||
         frame.format == AV_PIX_FMT_YUVJ422P || frame.format == AV_PIX_FMT_YUVJ444P;
}

YuvMatrix matrixOf(const AVFrame& frame) {
  switch (frame.colorspace) {
  case AVCOL_SPC_BT470BG:
  case AVCOL_SPC_SMPTE170M:
  case AVCOL_SPC_FCC:
    return YuvMatrix::bt601;
  case AVCOL_SPC_BT2020_NCL:
    return YuvMatrix::bt2020;
  default:
    return YuvMatrix::bt709;
  }
}

struct PlaneForm {
  int format;
  int bits;
  int chromaShiftX;
  int chromaShiftY;
};
constexpr std::array planeForms{
    PlaneForm{AV_PIX_FMT_YUV420P, 8, 1, 1},    PlaneForm{AV_PIX_FMT_YUVJ420P, 8, 1, 1},
    PlaneForm{AV_PIX_FMT_YUV422P, 8, 1, 0},    PlaneForm{AV_PIX_FMT_YUVJ422P, 8, 1, 0},
    PlaneForm{AV_PIX_FMT_YUV444P, 8, 0, 0},    PlaneForm{AV_PIX_FMT_YUVJ444P, 8, 0, 0},
    PlaneForm{AV_PIX_FMT_YUV420P10, 10, 1, 1}, PlaneForm{AV_PIX_FMT_YUV422P10, 10, 1, 0},
    PlaneForm{AV_PIX_FMT_YUV444P10, 10, 0, 0},
};

void convertToBgrx(const AVFrame& frame, const pixels::Canvas& into) {
  const auto* const form = std::find_if(planeForms.begin(), planeForms.end(),
                                        [&](const PlaneForm& known) { return known.format == frame.format; });
  if (form == planeForms.end())
    failNotComposable();
  expandToBgrx({frame.data[0], frame.data[1], frame.data[2], frame.linesize[0], frame.linesize[1],
                frame.linesize[2], form->bits, form->chromaShiftX, form->chromaShiftY},
               matrixOf(frame), isFullRange(frame), into);
}

// Whether the frame's samples can be coded as they are.
bool isCodable(const AVFrame& frame) {
  return frame.format == AV_PIX_FMT_YUV420P && frame.color_range != AVCOL_RANGE_JPEG &&
         (frame.colorspace == AVCOL_SPC_BT709 || frame.colorspace == AVCOL_SPC_UNSPECIFIED);
}

// In square pixels. The width is no whole number where the coded ones are not quite square.
struct ExactSize {
  double width = 0;
  double height = 0;
};

ExactSize exactSizeOf(const container::Track& track) {
  const container::SampleDescription& first = track.descriptions.front();
  const double width = first.width * readSampleEntry(first, container::TrackKind::video).pixelAspect;
  constexpr double most = 16384;
  if (!(width >= 1) || width > most || first.height < 1 || first.height > most)
    failNotComposable();
  return {width, static_cast<double>(first.height)};
}

PixelSize even(PixelSize size) {
  return {size.width & ~1, size.height & ~1};
}

pixels::I420Planes planesOf(AVFrame& frame) {
  return {frame.data[0],     frame.data[1],     frame.data[2],
          frame.linesize[0], frame.linesize[1], frame.linesize[2]};
}

std::shared_ptr<AVFrame> owning(AVFrame* frame) {
  if (frame == nullptr)
    throw MovieEditingFailure(MovieEditingError::unreadable);
  return {frame, [](AVFrame* each) { av_frame_free(&each); }};
}

// Any form as 4:2:0 in even sizes, what is beyond them left out.
SharedFrame asCodable(const SharedFrame& frame, PictureMemory& memory) {
  const PixelSize size = even({frame->width, frame->height});
  if (size.width < 2 || size.height < 2)
    failNotComposable();
  if (isCodable(*frame)) {
    if (size == PixelSize{frame->width, frame->height})
      return frame;
    const auto cropped = owning(av_frame_clone(frame.get()));
    cropped->width = size.width;
    cropped->height = size.height;
    return cropped;
  }
  const Picture picture = bgrxPicture(*frame, {frame->width, frame->height}, memory);
  const auto converted = memory.frame(size);
  PictureView view = picture.view;
  view.width = size.width;
  view.height = size.height;
  pixels::convertToI420(view, planesOf(*converted));
  return converted;
}

SharedFrame turned(const SharedFrame& frame, int quarterTurns, PictureMemory& memory) {
  if (quarterTurns == 0)
    return frame;
  const bool isUpright = quarterTurns % 2 == 0;
  const auto result = memory.frame(isUpright ? PixelSize{frame->width, frame->height}
                                             : PixelSize{frame->height, frame->width});
  checkConversion(libyuv::I420Rotate(frame->data[0], frame->linesize[0], frame->data[1], frame->linesize[1],
                                     frame->data[2], frame->linesize[2], result->data[0], result->linesize[0],
                                     result->data[1], result->linesize[1], result->data[2],
                                     result->linesize[2], frame->width, frame->height,
                                     static_cast<libyuv::RotationMode>(quarterTurns * 90)));
  return result;
}

SharedFrame mirrored(const SharedFrame& frame, PictureMemory& memory) {
  const auto result = memory.frame({frame->width, frame->height});
  checkConversion(libyuv::I420Mirror(frame->data[0], frame->linesize[0], frame->data[1], frame->linesize[1],
                                     frame->data[2], frame->linesize[2], result->data[0], result->linesize[0],
                                     result->data[1], result->linesize[1], result->data[2],
                                     result->linesize[2], frame->width, frame->height));
  return result;
}

SharedFrame scaled(const SharedFrame& frame, PixelSize size, PictureMemory& memory) {
  if (size == PixelSize{frame->width, frame->height})
    return frame;
  const auto result = memory.frame(size);
  checkConversion(libyuv::I420Scale(frame->data[0], frame->linesize[0], frame->data[1], frame->linesize[1],
                                    frame->data[2], frame->linesize[2], frame->width, frame->height,
                                    result->data[0], result->linesize[0], result->data[1],
                                    result->linesize[1], result->data[2], result->linesize[2], size.width,
                                    size.height, libyuv::kFilterBox));
  return result;
}

} // namespace

AffineTransform transformOf(const container::Track& track) {
  constexpr double one = 65536;
  const auto& matrix = track.matrix;
  return {matrix[0] / one, matrix[1] / one, matrix[3] / one,
          matrix[4] / one, matrix[6] / one, matrix[7] / one};
}

PixelSize naturalSizeOf(const container::Track& track) {
  const ExactSize size = exactSizeOf(track);
  return {static_cast<std::int32_t>(std::lround(size.width)), static_cast<std::int32_t>(size.height)};
}

PixelSize evenSizeOf(const container::Track& track) {
  const ExactSize size = exactSizeOf(track);
  return even({static_cast<std::int32_t>(size.width), static_cast<std::int32_t>(size.height)});
}

bool hasEvenSize(const container::Track& track) {
  const ExactSize size = exactSizeOf(track);
  const PixelSize rounded = evenSizeOf(track);
  return size.width == rounded.width && size.height == rounded.height;
}

Picture bgrxPicture(const AVFrame& frame, PixelSize size, PictureMemory& memory) {
  const auto whole = memory.sheet({frame.width, frame.height});
  convertToBgrx(frame, whole.canvas);
  if (size == PixelSize{frame.width, frame.height})
    return whole.picture();
  const auto result = memory.sheet(size);
  checkConversion(libyuv::ARGBScale(whole.canvas.data, static_cast<int>(whole.canvas.stride), frame.width,
                                    frame.height, result.canvas.data, static_cast<int>(result.canvas.stride),
                                    size.width, size.height, libyuv::kFilterBox));
  return result.picture();
}

PictureShape uprightShape(const container::Track& track) {
  const AffineTransform transform = transformOf(track);
  // Unrounded: the size of the result is that of an editor, which rounds only once.
  const ExactSize natural = exactSizeOf(track);
  const RectDTO bounds = transform.boundsOf({0, 0, natural.width, natural.height});
  constexpr double most = 16384;
  if (!(bounds.width >= 2) || !(bounds.height >= 2) || bounds.width > most || bounds.height > most)
    failNotComposable();
  PictureShape shape;
  shape.size = even({static_cast<std::int32_t>(std::floor(bounds.width)),
                     static_cast<std::int32_t>(std::floor(bounds.height))});
  const bool liesFlat = transform.a == 0 && transform.d == 0;
  if (!liesFlat && (transform.b != 0 || transform.c != 0))
    failNotComposable();
  if (liesFlat) {
    shape.quarterTurns = transform.b > 0 ? 1 : 3;
    shape.isMirrored = (transform.b > 0) == (transform.c > 0);
  } else {
    shape.quarterTurns = transform.d > 0 ? 0 : 2;
    shape.isMirrored = (transform.a > 0) != (transform.d > 0);
  }
  return shape;
}

SharedFrame shaped(const SharedFrame& frame, const PictureShape& shape, PictureMemory& memory) {
  SharedFrame result = turned(asCodable(frame, memory), shape.quarterTurns, memory);
  if (shape.isMirrored)
    result = mirrored(result, memory);
  return scaled(result, shape.size, memory);
}

} // namespace tessarin::editing
