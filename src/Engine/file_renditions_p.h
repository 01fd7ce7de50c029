// SPDX-License-Identifier: MIT
// Several shrunken renditions of one file from a single decode that streams through the file in rows.
#pragma once

#include <optional>
#include <vector>

#include "nodes_p.h"
#include "render_context.h"

namespace voimg {

struct FileRendition {
    AffineTransform transform;  // full-resolution file coordinates to output coordinates; axis-aligned
    Rect coverage;              // output pixels partly inside are scaled by the covered fraction
    PixelRect grid;             // the output pixels
    BitmapFormat format = BitmapFormat::Rgba8;
};

// `image` rendered over `rect` as a rendition of a file, when it is one: a shrink (with any translation) of
// a file image, optionally cropped, whose file has not been decoded yet. `file` receives the file node.
[[nodiscard]] std::optional<FileRendition> fileRenditionOf(const Image& image, const Rect& rect, BitmapFormat format,
                                                           const FileNode** file);

// Decodes `file` once, in rows, on a thread of its own, while the calling thread shrinks the rows into all
// renditions. A file that cannot be decoded gives transparent renditions, as a file image renders then.
// `rowsFinal` (optional) is told of each rendition's final rows as RenderContext::createBitmaps says, with
// the rendition's index.
[[nodiscard]] std::vector<Bitmap> renderFileRenditions(const FileNode& file,
                                                       const std::vector<FileRendition>& renditions,
                                                       const RenderContext::RowsFinal& rowsFinal = {});

}  // namespace voimg
