// SPDX-License-Identifier: MIT
// Shared by the photo tests: one QGuiApplication per process (offscreen), a resource folder for bundle
// pictures, pictures with recognisable quadrants, pixel reads, and a fixture that resets VoImage's
// process-wide state and fails on any Qt warning.
#pragma once

#include <gtest/gtest.h>

#include <QColor>
#include <QImage>

#include <string>
#include <vector>

#include "Photo/VoImage.h"

namespace vo::phototest {

// Quadrant colours of quadrantPicture, named by where they sit when the picture is seen upright.
inline const QColor kTopLeft{255, 0, 0};
inline const QColor kTopRight{0, 255, 0};
inline const QColor kBottomLeft{0, 0, 255};
inline const QColor kBottomRight{255, 255, 0};
inline const QColor kBlack{0, 0, 0};

// An opaque w x h picture in four flat quadrants.
[[nodiscard]] QImage quadrantPicture(int width, int height);
[[nodiscard]] VoImage::Picture share(QImage image);
[[nodiscard]] QImage solidPicture(int width, int height, const QColor& color);

// The resource folder the process's bundle points at (created by the test environment).
[[nodiscard]] const std::string& resourceFolder();
// Writes `image` as PNG; fails the test when that is impossible.
void savePng(const QImage& image, const std::string& path);

// The colour of a pixel, unpremultiplied.
[[nodiscard]] QColor colorAt(const QImage& image, int x, int y);
// True when every channel is within `tolerance` of the expected colour (opaque expected).
[[nodiscard]] ::testing::AssertionResult colorNear(const QImage& image, int x, int y, const QColor& expected,
                                                   int tolerance = 3);
// True when every pixel of rows [firstRow, lastRow] is opaque black.
[[nodiscard]] ::testing::AssertionResult rowsBlack(const QImage& image, int firstRow, int lastRow);
[[nodiscard]] ::testing::AssertionResult columnsBlack(const QImage& image, int firstColumn, int lastColumn);

// Qt warnings received since the last call.
[[nodiscard]] std::vector<std::string> takeQtWarnings();

// Resets VoImage to its default mode with empty caches and the idle count at 0, and stops the caches'
// timer so that idle ticks happen only when a test calls VoImage::checkEmptyCache. Fails a test that made
// Qt warn.
class PhotoTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    // Runs the calling thread's event loop once for pending events.
    static void runEventLoopOnce();
    // The idle count of the caches.
    [[nodiscard]] static int idleTicks();
    // n calls of VoImage::checkEmptyCache.
    static void tick(int n);
};

}  // namespace vo::phototest
