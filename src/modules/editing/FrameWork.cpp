#include "modules/editing/FrameWork.hpp"

#include "pixels/ColorConversion.hpp"

namespace tessarin::editing {

PictureView SourcePicture::bgrx() {
  std::call_once(converted_, [&] {
    pixels::PictureBuffers buffers;
    picture_ = bgrxPicture(*frame_, natural_, buffers);
  });
  return picture_.view;
}

SharedFrame FrameMaker::make(const FrameWork& work) {
  if (recipe_.compositor == nullptr)
    return shaped(work.source->frame(), recipe_.shape);
  CompositionFrame frame;
  frame.outputTime = work.outputTime;
  frame.source = work.source->bgrx();
  if (work.camera)
    frame.camera = work.camera->bgrx();
  const PixelSize size = recipe_.shape.size;
  const auto sheet = buffers_.take(size.width, size.height, PixelFormat::bgrx8);
  recipe_.compositor->composite(
      frame, {sheet.canvas.data, size.width, size.height, sheet.canvas.stride, PixelFormat::bgrx8});
  const auto result = newFrame(size);
  result->chroma_location = AVCHROMA_LOC_CENTER;
  pixels::convertToI420(sheet.canvas.view(), {result->data[0], result->data[1], result->data[2],
                                              result->linesize[0], result->linesize[1], result->linesize[2]});
  return result;
}

} // namespace tessarin::editing
