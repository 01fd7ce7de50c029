// SPDX-License-Identifier: MIT
// libFuzzer entry point: every decoder must survive arbitrary bytes without crashing, hanging or
// allocating beyond the pixel cap.
#include "Engine/codec/codec.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    voimg::DecodeOptions options;
    options.maxPixels = 50'000'000;
    std::string error;
    const auto image = voimg::decodeImageMemory(data, size, options, &error);
    if (image) {
        // The result must be internally consistent.
        if (image->width <= 0 || image->height <= 0 || image->pixels.size() != image->stride() * size_t(image->height))
            __builtin_trap();
        // Reduced decoding takes other code paths (JPEG DCT scaling, WebP scaled output).
        options.scaleDenominator = 3;
        (void)voimg::decodeImageMemory(data, size, options, &error);
    } else if (error.empty()) {
        __builtin_trap();  // failures must say why
    }
    return 0;
}
