#include "modules/editing/FrameWork.hpp"

#include "pixels/ColorConversion.hpp"

namespace tessarin::editing {

PictureView SourcePicture::bgrx(PictureMemory& memory) {
  std::call_once(converted_, [&] { picture_ = bgrxPicture(*frame_, natural_, memory); });
  return picture_.view;
}

SharedFrame makeFrame(const FrameRecipe& recipe, const FrameWork& work, PictureMemory& memory) {
  if (recipe.compositor == nullptr)
    return shaped(work.source->frame(), recipe.shape, memory);
  CompositionFrame frame;
  frame.outputTime = work.outputTime;
  frame.source = work.source->bgrx(memory);
  if (work.camera)
    frame.camera = work.camera->bgrx(memory);
  const PixelSize size = recipe.shape.size;
  const auto sheet = memory.sheet(size);
  recipe.compositor->composite(
      frame, {sheet.canvas.data, size.width, size.height, sheet.canvas.stride, PixelFormat::bgrx8});
  const auto result = memory.frame(size);
  result->chroma_location = AVCHROMA_LOC_CENTER;
  pixels::convertToI420(sheet.canvas.view(), {result->data[0], result->data[1], result->data[2],
                                              result->linesize[0], result->linesize[1], result->linesize[2]});
  return result;
}

} // namespace tessarin::editing
