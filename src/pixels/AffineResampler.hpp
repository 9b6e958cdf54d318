#pragma once

#include "model/AffineTransform.hpp"
#include "model/Geometry.hpp"
#include "pixels/Canvas.hpp"
#include "pixels/Orientation.hpp"
#include "pixels/ResampleTable.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace tessarin::pixels {

// The placement that scales a picture uniformly until it covers the rectangle, and centres it there.
AffineTransform coveringPlacement(std::int32_t width, std::int32_t height, const RectDTO& rect);

// Draws pictures moved, scaled, turned, mirrored or by any other affine transform. Keeps its tables and rows
// for the next picture, so that pictures of one kind take no memory anew. One thread at a time; throws
// std::bad_alloc.
//
// It works on the values as they are stored, sRGB's with its transfer function, 8 bits: that is how browsers
// and the host's canvas scale, text keeps the weight it has there, and nothing is lost in converting.
// Premultiplied channels are weighed alike.
//
// Placements that only turn by quarters, mirror and move by whole pixels copy the pixels. Those that keep
// sides upright scale either direction by itself (ResampleTable). The rest are shrunk as far as they shrink
// and then interpolated between four pixels, within one level of the exact value.
class AffineResampler {
 public:
  AffineResampler();
  ~AffineResampler();
  AffineResampler(AffineResampler&&) noexcept;
  AffineResampler& operator=(AffineResampler&&) noexcept;

  // Fills the target with the source, whose point (x, y), from its top left corner in pixels, comes to
  // `placement` of it from the target's. To draw a part of something larger, give a placement that is moved.
  //
  // With transparent edges an edge between pixels, or one that is scaled up, is a smooth one; the target has
  // an alpha. With clamped ones whoever wants an exact edge masks the result. A source without alpha
  // counts as opaque where the target has one. A placement that is not finite or flattens the picture draws
  // nothing: zeros. Source and target do not overlap, and have at least one pixel.
  void draw(const PictureView& source, const AffineTransform& placement, Edges edges, const Canvas& target);

 private:
  void copy(const PictureView& source, const AffineTransform& placement, const Orientation& orientation,
            Edges edges, const Canvas& target);
  void drawUpright(const PictureView& source, const AffineTransform& placement, Edges edges,
                   const Canvas& target);
  void drawTurned(const PictureView& source, const AffineTransform& placement, Edges edges,
                  const Canvas& target);
  void drawSampled(const PictureView& source, const AffineTransform& placement, Edges edges,
                   const Canvas& target);
  void makeOpaque(std::size_t line, const Canvas& target) const;

  ResampleTable columns_, lines_;
  std::vector<std::int16_t> combined_;
  std::vector<const std::uint8_t*> rows_;
  std::vector<std::uint8_t> turned_;        // the source, transposed
  std::vector<std::uint8_t> shrunk_;        // the source, as small as it is to become
  std::unique_ptr<AffineResampler> shrink_; // what shrinks it
};

} // namespace tessarin::pixels
