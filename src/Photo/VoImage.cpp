// SPDX-License-Identifier: MIT
#include "Photo/VoImage.h"

#include <QAbstractEventDispatcher>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <utility>

#include "Photo/VoImage_p.h"
#include "Photo/photo_picture_p.h"

namespace vo {

namespace photo_detail {

PhotoState& photoState() {
    static PhotoState state;
    return state;
}

SquareCut squareCut(float w, float h, float zoom, float pan) {
    SquareCut cut;
    cut.landscape = w / h > 1.0f;
    if (cut.landscape) {
        cut.side = h + (1.0f - zoom) * (w - h);
        cut.x = (pan / 2.0f) * (w - cut.side) + (w - cut.side) / 2.0f;
        cut.y = (h - cut.side) / 2.0f;
    } else {
        cut.side = w + (1.0f - zoom) * (h - w);
        cut.x = (w - cut.side) / 2.0f;
        cut.y = (pan / 2.0f) * (h - cut.side) + (h - cut.side) / 2.0f;
    }
    return cut;
}

std::string pictureDescription(const QImage* picture) {
    if (!picture) return "(null)";
    char text[96];
    std::snprintf(text, sizeof text, "<QImage %p #%lld %dx%d>", static_cast<const void*>(picture),
                  static_cast<long long>(picture->cacheKey()), picture->width(), picture->height());
    return text;
}

std::string squareCacheKey(const QImage* picture, float width, float zoom, float pan) {
    // A float printed with "%f" takes at most 47 characters (sign, 39 digits, point, 6 decimals).
    char numbers[3 * 48 + 1];
    std::snprintf(numbers, sizeof numbers, "%f%f%f", double(width), double(zoom), double(pan));
    return pictureDescription(picture) + numbers;
}

}  // namespace photo_detail

using photo_detail::photoState;

std::shared_ptr<VoImage> VoImage::imageWithImage(Picture image) { return std::make_shared<VoImage>(std::move(image)); }

std::shared_ptr<VoImage> VoImage::imageWithImageNamed(const std::string& name) {
    return std::make_shared<VoImage>(ImageNamed{name});
}

std::shared_ptr<VoImage> VoImage::imageWithFileName(const std::string& path) {
    return std::make_shared<VoImage>(FileName{path});
}

VoImage::VoImage(Picture image) { keepPicture(std::move(image)); }

VoImage::VoImage(ImageNamed named) { keepPicture(photo_detail::namedBundlePicture(named.name)); }

VoImage::VoImage(FileName file) {
    const int mode = photoState().cacheMode;
    if (mode >= 1) {
        keepPicture(photo_detail::loadPictureFile(file.path));  // only the reduced copy outlives this line
    } else if (mode == 0) {
        ownedImage_ = photo_detail::loadPictureFile(file.path);
        const auto size = photo_detail::pictureSize(ownedImage_.get());
        ownedSize_ = {size.width, size.height};
    } else {
        storedFileName_ = std::move(file.path);
    }
}

VoImage::~VoImage() = default;

void VoImage::keepPicture(Picture image) {
    const auto size = photo_detail::pictureSize(image.get());
    if (photoState().cacheMode >= 1) {
        photo_detail::PictureSize reduced;
        QImage copy = photo_detail::reducedCopy(image.get(), size, &reduced);
        ownedImage_ = std::make_shared<const QImage>(std::move(copy));
        ownedSize_ = {reduced.width, reduced.height};
    } else {
        ownedImage_ = std::move(image);
        ownedSize_ = {size.width, size.height};
    }
}

VoImage::Picture VoImage::currentPicture() const { return storedFileName_ ? borrowedImage_.lock() : ownedImage_; }

VoImage::Size VoImage::currentSize(const Picture& picture) const {
    if (!picture) return {};
    if (storedFileName_) {
        const auto size = photo_detail::pictureSize(picture.get());
        return {size.width, size.height};
    }
    return ownedSize_;
}

void VoImage::setCacheMode(int mode) { photoState().cacheMode = mode; }

void VoImage::checkStartCache() {
    auto& state = photoState();
    if (!state.cachesExist) {
        state.cachesExist = true;
        state.squareCache.reserve(30);
        state.fileCache.reserve(30);
        state.timer = new QTimer();  // on this thread, for the life of the process
        state.timer->setInterval(1000);
        QObject::connect(state.timer, &QTimer::timeout, &VoImage::checkEmptyCache);
    }
    // A thread gets its event dispatcher with its event loop (the main thread with QCoreApplication); a
    // timer started before that would never fire, so starting waits for a later use on the same thread.
    if (!state.timerStarted && state.timer->thread() == QThread::currentThread() &&
        QThread::currentThread()->eventDispatcher()) {
        state.timerStarted = true;
        state.timer->start();
    }
}

void VoImage::checkEmptyCache() {
    auto& state = photoState();
    if (state.emptyCacheCounter >= 59) {
        state.squareCache.clear();
        state.fileCache.clear();
        state.emptyCacheCounter = 0;
    }
    ++state.emptyCacheCounter;
}

VoImage::Picture VoImage::getCachedSquareImageWithImageWidthZoomAndPan(const QImage* image, float width, float zoom,
                                                                       float pan) {
    auto& state = photoState();
    state.emptyCacheCounter = 0;
    checkStartCache();
    const auto found = state.squareCache.find(photo_detail::squareCacheKey(image, width, zoom, pan));
    return found == state.squareCache.end() ? nullptr : found->second;
}

void VoImage::cacheSquareImageWithImageWidthZoomAndPan(Picture square, const QImage* image, float width, float zoom,
                                                       float pan) {
    auto& state = photoState();
    state.emptyCacheCounter = 0;
    checkStartCache();
    state.squareCache.insert_or_assign(photo_detail::squareCacheKey(image, width, zoom, pan), std::move(square));
}

VoImage::Picture VoImage::getCachedFile(const std::string& path) {
    auto& state = photoState();
    state.emptyCacheCounter = 0;
    checkStartCache();
    if (const auto found = state.fileCache.find(path); found != state.fileCache.end()) return found->second;
    Picture picture = photo_detail::loadPictureFile(path);
    state.fileCache.emplace(path, picture);
    return picture;
}

VoImage::Picture VoImage::squareImageWithWidthZoomAndPan(float width, float zoom, float pan) {
    const int mode = photoState().cacheMode;
    if (mode <= -1 && storedFileName_) {
        if (mode <= -2) {
            borrowedImage_ = getCachedFile(*storedFileName_);
        } else {
            Picture fresh = photo_detail::loadPictureFile(*storedFileName_);
            borrowedImage_ = fresh;
            photo_detail::keepUntilEventLoop(std::move(fresh));
        }
    }
    const Picture source = currentPicture();
    const Size size = currentSize(source);

    if (mode >= 2) {
        if (Picture hit = getCachedSquareImageWithImageWidthZoomAndPan(source.get(), width, zoom, pan)) return hit;
    }
    const photo_detail::SquareCut cut = photo_detail::squareCut(size.width, size.height, zoom, pan);
    auto square = std::make_shared<const QImage>(
        photo_detail::renderSquare(source.get(), {size.width, size.height}, width, cut.x, cut.y, cut.side));
    if (mode >= 2) cacheSquareImageWithImageWidthZoomAndPan(square, source.get(), width, zoom, pan);
    return square;
}

VoImage::Picture VoImage::squareImageWithWidth(float width) {
    return squareImageWithWidthZoomAndPan(width, 0.0f, 0.0f);
}

bool VoImage::isLandscape() const {
    const Size size = currentSize(currentPicture());
    return size.width / size.height > 1.0f;
}

float VoImage::ratio() const {
    const Size size = currentSize(currentPicture());
    return size.width / size.height;
}

}  // namespace vo
