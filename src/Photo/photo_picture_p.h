// SPDX-License-Identifier: MIT
// Picture helpers behind VoImage: reading files and bundle resources into QImages, measuring, the reduced
// copy, drawing a square, and keeping a transient picture alive until the event loop runs.
#pragma once

#include <QRectF>

#include <string>

#include "Photo/VoImage.h"

class QPainter;

namespace vo::photo_detail {

struct PictureSize {
    float width = 0.0f;
    float height = 0.0f;
};

// Device-independent size; (0, 0) for a null pointer or a null image.
[[nodiscard]] PictureSize pictureSize(const QImage* picture);

// The file decoded by the toolkit's codecs: RGBX8888 / RGBX64 when opaque, RGBA8888 / RGBA64 premultiplied
// otherwise; null when the file cannot be read.
[[nodiscard]] VoImage::Picture readPictureFile(const std::string& path);
// The same with the transparent 10 x 10 blank in place of an unreadable file. Never null.
[[nodiscard]] VoImage::Picture loadPictureFile(const std::string& path);
[[nodiscard]] VoImage::Picture blankPicture();
// "<resource folder>/<name>", tried with usual extensions when the name has none; read once per name and
// then shared. Null when nothing is found.
[[nodiscard]] VoImage::Picture namedBundlePicture(const std::string& name);

// The reduced copy of a picture measuring `size`: nominally (200, 200 * h / w), the whole picture drawn
// into it over transparency. Its pixels are 200 x ceil(200 * h / w) (none when that is not a positive
// number); `reducedSize` receives the nominal size.
[[nodiscard]] QImage reducedCopy(const QImage* source, PictureSize size, PictureSize* reducedSize);

// A square of `width` with the cut drawn over black, as VoImage.h describes.
[[nodiscard]] QImage renderSquare(const QImage* source, PictureSize size, float width, float cutX, float cutY,
                                  float cutSide);

// Draws `source` (rectangle in its pixels, top-down) into `target` with smooth scaling. Where the scale is
// below 1/2, the part of the picture that is needed is first reduced by area averaging so that bilinear
// sampling does not skip pixels; the geometry is the same either way. Empty or inverted rectangles draw
// nothing.
void drawPicture(QPainter& painter, const QRectF& target, const QImage& source, const QRectF& sourceRect);

// Keeps `picture` alive until the calling thread's event loop next runs (the lifetime of a transient load).
// On a thread without an event dispatcher only the most recent such picture is kept.
void keepUntilEventLoop(VoImage::Picture picture);

}  // namespace vo::photo_detail
