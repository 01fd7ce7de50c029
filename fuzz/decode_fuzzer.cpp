// SPDX-License-Identifier: MIT
// libFuzzer entry point: every decoder must survive arbitrary bytes without crashing, hanging or
// allocating beyond the pixel cap.
#include "Engine/codec/codec.h"
#include "Engine/codec/jpeg_scan_select_p.h"

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
    // Progressive scan selection reads only the markers; what it keeps must be shorter than the input (plus
    // EOI) and must go through the decoder like any file.
    const auto selection = voimg::detail::selectProgressiveScans(data, size, 6.67);
    if (!selection.stream.empty()) {
        if (selection.keptScans >= selection.totalScans || selection.stream.size() > size + 2) __builtin_trap();
        options.scaleDenominator = 2;
        (void)voimg::decodeImageMemory(selection.stream.data(), selection.stream.size(), options, &error);
    }
    return 0;
}
