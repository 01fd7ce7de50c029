// SPDX-License-Identifier: MIT
// Resampling of a child node through an affine transform. Both resamplers read the child only inside
// `childExtent`: near its edges the filter is renormalised over the pixels that exist, so an image edge
// does not darken; transparency at the edges of the result comes from the coverage the caller applies.
#pragma once

#include "node.h"

namespace voimg {

// Axis-aligned transforms (scales, flips, translations). Windowed-sinc (Lanczos-3) widened by 1/scale when
// shrinking, so there is no aliasing; linear interpolation when enlarging. Pulls the child in row chunks
// of bounded size, so memory does not grow with the child.
void resampleSeparable(const Node& child, const Rect& childExtent, const AffineTransform& transform,
                       const TileView& out);

// Any invertible transform: bilinear samples supersampled over each output pixel; strong shrinking is
// first reduced with the separable resampler.
void resampleGeneral(const Node& child, const Rect& childExtent, const AffineTransform& transform,
                     const TileView& out);

// The slow, obviously correct reference for the separable path: every output pixel computed on its own
// from the filter definition in double precision. For tests.
void resampleSeparableReference(const Node& child, const Rect& childExtent, const AffineTransform& transform,
                                const TileView& out);

}  // namespace voimg
