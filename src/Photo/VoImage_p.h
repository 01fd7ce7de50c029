// SPDX-License-Identifier: MIT
// VoImage internals shared with the tests: the process-wide state, the square-cut geometry and the
// square-cache key.
#pragma once

#include <string>
#include <unordered_map>

#include "Photo/VoImage.h"

class QTimer;

namespace vo::photo_detail {

// The class-level state of VoImage: one copy for the process, unguarded (see VoImage.h).
struct PhotoState {
    int cacheMode = 0;
    int emptyCacheCounter = 0;  // timer ticks since a cache was last used
    bool cachesExist = false;   // both caches and the timer are created together, on first use
    std::unordered_map<std::string, VoImage::Picture> squareCache;
    std::unordered_map<std::string, VoImage::Picture> fileCache;
    // The idle timer, on the thread that first used a cache. Never destroyed: it repeats for the life of the
    // process. Tests stop it and tick by hand through VoImage::checkEmptyCache.
    QTimer* timer = nullptr;
    bool timerStarted = false;  // started once that thread has an event dispatcher
};

[[nodiscard]] PhotoState& photoState();

// The cut of a w x h picture for a square: (x, y) is its lower-left corner measured from the picture's
// lower left, side its width and height, all in the picture's units.
struct SquareCut {
    float x = 0.0f;
    float y = 0.0f;
    float side = 0.0f;
    bool landscape = false;  // which branch made it: w / h > 1
};
[[nodiscard]] SquareCut squareCut(float w, float h, float zoom, float pan);

// Text naming one picture object: its address and Qt's cache key (which changes with the pixels and is
// never reused by another picture), so a later picture at the same address gets another text. "(null)" for
// the missing picture.
[[nodiscard]] std::string pictureDescription(const QImage* picture);
// The description followed by width, zoom and pan, each printed with six decimals ("%f").
[[nodiscard]] std::string squareCacheKey(const QImage* picture, float width, float zoom, float pan);

}  // namespace vo::photo_detail
