// SPDX-License-Identifier: MIT
// VoImage: one photo, and square thumbnails of it at a pixel width, a zoom and a pan.
//
// Conventions for everything here:
// - Pictures are QImage values shared through `Picture` (std::shared_ptr<const QImage>); a null pointer is
//   the missing picture, which measures (0, 0) and draws nothing. A picture's size is its device-independent
//   size (pixels divided by its device pixel ratio).
// - Geometry is worked out in single-precision floats on a y-up plane with the origin at the picture's lower
//   left; nothing is rounded to whole pixels and nothing is clamped.
// - A square of width `width` is a new ARGB32-premultiplied picture of ceil(width) x ceil(width) pixels (none
//   for a width that is not positive). (0, 0, width, width) is filled with opaque black and the cut of the
//   photo is drawn over it: source-over, opacity 1, smooth scaling.
// - Files are decoded by the toolkit's codecs (no orientation is applied). A file that cannot be read is
//   replaced by a transparent 10 x 10 blank wherever a file is read; nothing is reported.
// - Three process-wide stores stand behind every instance: the cache mode, a cache of finished squares and
//   a cache of photos loaded from files. Nothing is locked: use the class from one thread, the one whose
//   event loop runs the caches' timer (the thread that first uses a cache).
//
// Cache modes (every value counts: comparisons are >= 2, >= 1, == 0, == -1, <= -2):
//   2 or more   construction keeps a 200-wide reduced copy; squares come from it, through the square cache
//   1           construction keeps the reduced copy; squares come from it
//   0 (default) construction keeps the full picture; squares come from it
//   -1          a file is only remembered by its path and read again for every square
//   -2 or less  a file is only remembered by its path; squares take it from the file cache
// Only the file constructor defers loading; the picture and bundle-name constructors treat modes below 1
// as 0. The mode is read at construction (what is kept) and at every square request (deferred loading and
// the square cache), so changing it in between mixes the two behaviours.
//
// Ownership: an instance owns its picture (a given picture, a bundle picture, a loaded file or a reduced
// copy) unless it was built from a file in a deferred mode. Then it only remembers the path and borrows the
// picture of its last square request: an entry of the file cache, or a fresh load that stays alive until the
// thread's event loop next runs. A borrowed picture that has gone counts as missing.
#pragma once

#include <QImage>

#include <memory>
#include <optional>
#include <string>

namespace vo {

class VoImage {
public:
    using Picture = std::shared_ptr<const QImage>;

    // Tags that pick a constructor: a picture of the toolkit's resource folder, or a file path.
    struct ImageNamed {
        std::string name;
    };
    struct FileName {
        std::string path;
    };

    // Factories: a new instance built by the matching constructor.
    [[nodiscard]] static std::shared_ptr<VoImage> imageWithImage(Picture image);
    [[nodiscard]] static std::shared_ptr<VoImage> imageWithImageNamed(const std::string& name);
    [[nodiscard]] static std::shared_ptr<VoImage> imageWithFileName(const std::string& path);

    // Mode 1 or above keeps a reduced copy of `image`; otherwise keeps `image` itself (null is allowed).
    explicit VoImage(Picture image);
    // As above with the picture "<resource folder>/<name>"; a name without an extension also finds the file
    // with a usual image extension. A picture is read once per name and shared (the same object) by every
    // later request. A name that finds nothing gives the missing picture.
    explicit VoImage(ImageNamed named);
    // Mode 1 or above: loads the file (blank on failure) and keeps only its reduced copy. Mode 0: keeps the
    // loaded file (blank on failure). Below 0: keeps the path only and reads nothing yet.
    explicit VoImage(FileName file);

    VoImage(const VoImage&) = delete;
    VoImage& operator=(const VoImage&) = delete;
    ~VoImage();

    // Stores the cache mode; it governs instances built afterwards and every later square request.
    static void setCacheMode(int mode);

    // Creates both caches and the one-second repeating timer on the calling thread, the first time only.
    // The caches and the timer then live as long as the process.
    static void checkStartCache();
    // One tick of the timer: when 59 or more ticks have passed since a cache was last used, both caches are
    // emptied and the count restarts from 0; then the count goes up by 1. So the caches empty on the 60th
    // idle tick and the count stands at 1 afterwards. Safe to call before the caches exist.
    static void checkEmptyCache();

    // The cached square for a picture object, width, zoom and pan, or null. The entry is keyed by the picture
    // object (not its content or file) and by the three numbers printed with six decimals, so numbers that
    // print alike share an entry. Resets the idle count and starts the caches.
    [[nodiscard]] static Picture getCachedSquareImageWithImageWidthZoomAndPan(const QImage* image, float width,
                                                                              float zoom, float pan);
    // Stores `square` under the same key, replacing any entry. Resets the idle count and starts the caches.
    static void cacheSquareImageWithImageWidthZoomAndPan(Picture square, const QImage* image, float width, float zoom,
                                                         float pan);
    // The file cache's picture for `path`, loading it (the blank on failure) and caching it when absent, so
    // every caller gets the same object until the caches are emptied. Resets the idle count.
    [[nodiscard]] static Picture getCachedFile(const std::string& path);

    // A square of width x width: zoom 0 letter-boxes the whole picture, zoom 1 cuts a square of the short
    // side, values between blend the two, values outside [0, 1] cut larger or smaller. Pan moves the cut
    // along the long side: -1 to the low edge (left, or bottom), 0 centred, +1 to the high edge (right, or
    // top). In deferred modes the file is read first; in mode 2 or more the square cache is used.
    [[nodiscard]] Picture squareImageWithWidthZoomAndPan(float width, float zoom, float pan);
    // The same with zoom 0 and pan 0: the whole picture, letter-boxed and centred.
    [[nodiscard]] Picture squareImageWithWidth(float width);

    // Width / height of the current picture is above 1 (a square picture is not landscape).
    [[nodiscard]] bool isLandscape() const;
    // Width / height of the current picture; undefined (not a number, or infinite) for a missing picture or
    // a zero height.
    [[nodiscard]] float ratio() const;

private:
    struct Size {
        float width = 0.0f;
        float height = 0.0f;
    };

    // Keeps `image`, or its reduced copy in mode 1 and above.
    void keepPicture(Picture image);
    [[nodiscard]] Picture currentPicture() const;
    [[nodiscard]] Size currentSize(const Picture& picture) const;

    // Owned when storedFileName_ is absent; its size is kept apart because a reduced copy's height is
    // fractional while its pixels are whole.
    Picture ownedImage_;
    Size ownedSize_;
    // Borrowed when storedFileName_ is present: the picture of the last deferred load, not kept alive here.
    std::weak_ptr<const QImage> borrowedImage_;
    std::optional<std::string> storedFileName_;
};

}  // namespace vo
