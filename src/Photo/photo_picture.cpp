// SPDX-License-Identifier: MIT
#include "Photo/photo_picture_p.h"

#include <QAbstractEventDispatcher>
#include <QPainter>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Common/Foundation/VoBundle.h"
#include "Engine/codec/codec.h"

namespace vo::photo_detail {

namespace {

// Whole pixels for a nominal length: ceil, and none for lengths that are not positive, not finite or too
// large to address.
int pixelsFor(float length) {
    if (!(length > 0.0f) || !(length < 1.0e9f)) return 0;
    return static_cast<int>(std::ceil(length));
}

// Straight to premultiplied alpha in place, rounding to nearest. Samples are read and written through
// memcpy because the buffer holds bytes, whatever the sample size.
template <typename Sample>
void premultiply(uint8_t* bytes, size_t pixelCount) {
    constexpr uint32_t kMax = (1u << (8 * sizeof(Sample))) - 1;
    for (size_t i = 0; i < pixelCount; ++i, bytes += 4 * sizeof(Sample)) {
        Sample pixel[4];
        std::memcpy(pixel, bytes, sizeof pixel);
        const uint32_t a = pixel[3];
        for (int c = 0; c < 3; ++c) pixel[c] = static_cast<Sample>((pixel[c] * a + kMax / 2) / kMax);
        std::memcpy(bytes, pixel, sizeof pixel);
    }
}

QImage::Format formatFor(const voimg::DecodedImage& decoded) {
    if (decoded.sixteenBit) return decoded.hasAlpha ? QImage::Format_RGBA64_Premultiplied : QImage::Format_RGBX64;
    return decoded.hasAlpha ? QImage::Format_RGBA8888_Premultiplied : QImage::Format_RGBX8888;
}

}  // namespace

PictureSize pictureSize(const QImage* picture) {
    if (!picture || picture->isNull()) return {};
    const QSizeF size = picture->deviceIndependentSize();
    return {static_cast<float>(size.width()), static_cast<float>(size.height())};
}

VoImage::Picture readPictureFile(const std::string& path) {
    std::optional<voimg::DecodedImage> decoded = voimg::decodeImageFile(path);
    if (!decoded || decoded->width <= 0 || decoded->height <= 0) return nullptr;
    // The decoder's rows already have QImage's layout (RGBA, top row first, 4-byte aligned), so the QImage
    // wraps them instead of copying a possibly very large buffer. Premultiplied or opaque formats are what
    // QPainter and the area reduction work in natively.
    if (decoded->hasAlpha) {
        if (decoded->sixteenBit) {
            premultiply<uint16_t>(decoded->pixels.data(), decoded->pixels.size() / 8);
        } else {
            premultiply<uint8_t>(decoded->pixels.data(), decoded->pixels.size() / 4);
        }
    }
    auto* buffer = new std::vector<uint8_t>(std::move(decoded->pixels));
    QImage image(
        buffer->data(), decoded->width, decoded->height, static_cast<qsizetype>(decoded->stride()), formatFor(*decoded),
        [](void* info) { delete static_cast<std::vector<uint8_t>*>(info); }, buffer);
    if (image.isNull()) {  // Qt refused the size and took no ownership
        delete buffer;
        return nullptr;
    }
    return std::make_shared<const QImage>(std::move(image));
}

VoImage::Picture loadPictureFile(const std::string& path) {
    if (VoImage::Picture picture = readPictureFile(path)) return picture;
    return blankPicture();
}

VoImage::Picture blankPicture() {
    QImage blank(10, 10, QImage::Format_ARGB32_Premultiplied);
    blank.fill(Qt::transparent);
    return std::make_shared<const QImage>(std::move(blank));
}

VoImage::Picture namedBundlePicture(const std::string& name) {
    // Like the platform's named images: one shared picture per name for the life of the process.
    static std::unordered_map<std::string, VoImage::Picture> named;
    if (auto found = named.find(name); found != named.end()) return found->second;
    if (name.empty()) return nullptr;

    const std::filesystem::path base = std::filesystem::path(VoBundle::mainBundle().resourcePath()) / name;
    std::vector<std::filesystem::path> candidates{base};
    if (!base.has_extension()) {
        for (const char* extension : {".png", ".tif", ".tiff", ".jpg", ".jpeg", ".gif", ".bmp", ".webp", ".heic"}) {
            candidates.push_back(std::filesystem::path(base).concat(extension));
        }
    }
    for (const auto& candidate : candidates) {
        std::error_code error;
        if (!std::filesystem::is_regular_file(candidate, error)) continue;
        if (VoImage::Picture picture = readPictureFile(candidate.string())) {
            named.emplace(name, picture);
            return picture;
        }
    }
    return nullptr;
}

QImage reducedCopy(const QImage* source, PictureSize size, PictureSize* reducedSize) {
    reducedSize->width = 200.0f;
    reducedSize->height = 200.0f * size.height / size.width;
    const int rows = pixelsFor(reducedSize->height);
    if (rows == 0) return {};
    QImage copy(200, rows, QImage::Format_ARGB32_Premultiplied);
    if (copy.isNull()) return {};
    copy.fill(Qt::transparent);
    if (source && !source->isNull()) {
        QPainter painter(&copy);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        drawPicture(painter, QRectF(0.0, 0.0, reducedSize->width, reducedSize->height), *source,
                    QRectF(0.0, 0.0, source->width(), source->height()));
    }
    return copy;
}

QImage renderSquare(const QImage* source, PictureSize size, float width, float cutX, float cutY, float cutSide) {
    const int pixels = pixelsFor(width);
    if (pixels == 0) return {};
    QImage square(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    if (square.isNull()) return {};
    // Only a fractional width leaves pixels outside (0, 0, width, width); they stay transparent.
    if (static_cast<float>(pixels) != width) square.fill(Qt::transparent);

    QPainter painter(&square);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF target(0.0, 0.0, width, width);
    painter.fillRect(target, Qt::black);
    if (source && !source->isNull()) {
        // The cut is measured from the picture's lower left, the image's rows run from the top; the
        // drawing itself maps the whole cut onto the whole square, so only the cut's top needs flipping.
        const float top = size.height - cutY - cutSide;
        const qreal scale = source->devicePixelRatio();
        drawPicture(painter, target, *source, QRectF(cutX * scale, top * scale, cutSide * scale, cutSide * scale));
    }
    return square;
}

void drawPicture(QPainter& painter, const QRectF& target, const QImage& source, const QRectF& sourceRect) {
    // QPainter reads a non-positive source size as "to the image's edge": such cuts must draw nothing here.
    if (!(sourceRect.width() > 0.0) || !(sourceRect.height() > 0.0) || !(target.width() > 0.0) ||
        !(target.height() > 0.0) || !std::isfinite(sourceRect.x()) || !std::isfinite(sourceRect.y()) ||
        !std::isfinite(sourceRect.width()) || !std::isfinite(sourceRect.height())) {
        return;
    }
    const double scaleX = target.width() / sourceRect.width();
    const double scaleY = target.height() / sourceRect.height();
    if (scaleX >= 0.5 && scaleY >= 0.5) {
        painter.drawImage(target, source, sourceRect);
        return;
    }

    // Reduce only the pixels the cut covers (plus a margin for the final bilinear pass) to about twice the
    // target's resolution; the final pass then shrinks by at most 2.
    const QImage image = source.depth() >= 8 && source.format() != QImage::Format_Indexed8
                             ? source
                             : source.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const double factorX = std::min(1.0, 2.0 * scaleX);
    const double factorY = std::min(1.0, 2.0 * scaleY);
    const QRectF needed = sourceRect.intersected(QRectF(image.rect()));
    if (needed.isEmpty()) return;
    const double marginX = 2.0 / factorX;
    const double marginY = 2.0 / factorY;
    const QRect region = needed.adjusted(-marginX, -marginY, marginX, marginY).toAlignedRect() & image.rect();
    if (region.isEmpty()) return;

    const int bytesPerPixel = image.depth() / 8;
    const QImage view(image.constScanLine(region.y()) + static_cast<qsizetype>(region.x()) * bytesPerPixel,
                      region.width(), region.height(), image.bytesPerLine(), image.format());
    const int reducedWidth = std::max(1, static_cast<int>(std::ceil(region.width() * factorX)));
    const int reducedHeight = std::max(1, static_cast<int>(std::ceil(region.height() * factorY)));
    QImage reduced = view.scaled(reducedWidth, reducedHeight, Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    reduced.setDevicePixelRatio(1.0);

    const double mapX = double(reducedWidth) / region.width();
    const double mapY = double(reducedHeight) / region.height();
    const QRectF mapped((sourceRect.x() - region.x()) * mapX, (sourceRect.y() - region.y()) * mapY,
                        sourceRect.width() * mapX, sourceRect.height() * mapY);
    painter.drawImage(target, reduced, mapped);
}

void keepUntilEventLoop(VoImage::Picture picture) {
    thread_local std::vector<VoImage::Picture> pending;
    if (!QThread::currentThread()->eventDispatcher()) {
        pending.assign(1, std::move(picture));
        return;
    }
    // One queued release per batch; it runs on this thread when its event loop next processes events.
    if (pending.empty()) QTimer::singleShot(0, [] { pending.clear(); });
    pending.push_back(std::move(picture));
}

}  // namespace vo::photo_detail
