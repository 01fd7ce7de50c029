// SPDX-License-Identifier: MIT
// Helpers for the toolkit tests: capturing log lines, building images from test pixels, rendering them.
#pragma once

#include <string>
#include <vector>

#include "Common/CoreGraphics/VoCoreUtils.h"
#include "Common/Foundation/VoLog.h"
#include "Engine/codec/codec.h"
#include "Engine/render_context.h"
#include "support/test_images.h"

namespace vo::test {

// Collects every log line while alive, then restores the previous sink.
class LogCapture {
public:
    LogCapture() {
        previous_ = VoSetLogSink([this](const std::string& line) { lines_.push_back(line); });
    }
    ~LogCapture() { VoSetLogSink(std::move(previous_)); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
    // Lines whose text after the prefix is exactly `message` (the line ends with message + "\n").
    [[nodiscard]] int count(const std::string& message) const {
        int n = 0;
        for (const std::string& line : lines_) n += says(line, message);
        return n;
    }
    // The texts among `messages` that the lines say, in the order logged.
    [[nodiscard]] std::vector<std::string> sequence(const std::vector<std::string>& messages) const {
        std::vector<std::string> out;
        for (const std::string& line : lines_)
            for (const std::string& message : messages)
                if (says(line, message)) out.push_back(message);
        return out;
    }

private:
    static bool says(const std::string& line, const std::string& message) {
        const std::string tail = "] " + message + "\n";
        return line.size() >= tail.size() && line.compare(line.size() - tail.size(), tail.size(), tail) == 0;
    }

    VoLogSink previous_;
    std::vector<std::string> lines_;
};

// An image of the pixels (3 or 4 channels) with extent (0, 0, width, height).
inline CIImage imageFromPixels(const Pixels& pixels) {
    voimg::DecodedImage decoded;
    decoded.width = pixels.width;
    decoded.height = pixels.height;
    decoded.hasAlpha = pixels.channels == 4;
    decoded.pixels.resize(size_t(pixels.width) * pixels.height * 4);
    for (size_t i = 0, n = size_t(pixels.width) * pixels.height; i < n; ++i) {
        for (int k = 0; k < 4; ++k) {
            decoded.pixels[i * 4 + k] = k < pixels.channels ? pixels.data[i * pixels.channels + k] : 255;
        }
    }
    return CIImage::withDecodedImage(std::move(decoded));
}

// Straight-alpha sRGB pixels of `rect` of the image, top row first.
inline Pixels renderRgba8(const CIImage& image, const CGRect& rect) {
    static voimg::RenderContext context(1);
    voimg::Bitmap bitmap = context.createBitmap(image, rect, voimg::BitmapFormat::Rgba8);
    return Pixels{bitmap.width, bitmap.height, 4, std::vector<uint8_t>(bitmap.bytes.begin(), bitmap.bytes.end())};
}

}  // namespace vo::test
