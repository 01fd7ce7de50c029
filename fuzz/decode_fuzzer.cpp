// SPDX-License-Identifier: MIT
// libFuzzer entry point: every decoder must survive arbitrary bytes without crashing, hanging or
// allocating beyond the pixel cap.
#include "Engine/codec/codec.h"
#include "Engine/codec/jpeg_scan_select_p.h"
#include "Engine/codec/jpeg_split_rows_p.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace {

// Large baseline JPEGs are entropy-decoded by threads that start mid-stream: whatever the data, that must
// give exactly what one decoding from the start gives.
void checkSplitDecoding(const uint8_t* data, size_t size) {
    voimg::detail::MemorySource source(data, size);
    auto serial = voimg::detail::openSplitJpegRows(source, 4, {1, 1, true});
    auto split = voimg::detail::openSplitJpegRows(source, 4, {2, 5, true});
    if (!serial != !split) __builtin_trap();
    if (!serial || uint64_t(serial->width()) * uint64_t(serial->height()) > 4'000'000) return;
    if (serial->width() != split->width() || serial->height() != split->height()) __builtin_trap();
    const size_t block = size_t(serial->width()) * 4 * 8;
    std::vector<uint8_t> a(block), b(block);
    for (;;) {
        const int got = serial->readRows(a.data(), 8);
        if (split->readRows(b.data(), 8) != got) __builtin_trap();
        if (got == 0) break;
        if (std::memcmp(a.data(), b.data(), size_t(got) * size_t(serial->width()) * 4) != 0) __builtin_trap();
    }
}

}  // namespace

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
    if (size > 2 && data[0] == 0xFF && data[1] == 0xD8) checkSplitDecoding(data, size);
    return 0;
}
