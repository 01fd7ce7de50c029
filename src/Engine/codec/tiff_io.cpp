// SPDX-License-Identifier: MIT
// libtiff client I/O over a ByteSource, with silent error handling.
#include "tiff_p.h"

namespace voimg::detail {
namespace {

tmsize_t readProc(thandle_t handle, void* buffer, tmsize_t size) {
    auto* c = static_cast<TiffReader*>(handle);
    if (size <= 0) return 0;
    const size_t n = c->source->readAt(c->position, buffer, size_t(size));
    c->position += n;
    return tmsize_t(n);
}

tmsize_t writeProc(thandle_t, void*, tmsize_t) { return -1; }

toff_t seekProc(thandle_t handle, toff_t offset, int whence) {
    auto* c = static_cast<TiffReader*>(handle);
    uint64_t base = 0;
    if (whence == SEEK_CUR) base = c->position;
    else if (whence == SEEK_END) base = c->source->size();
    c->position = base + offset;
    return c->position;
}

int closeProc(thandle_t) { return 0; }

toff_t sizeProc(thandle_t handle) { return static_cast<TiffReader*>(handle)->source->size(); }

// In-memory data is handed to libtiff as a "mapped file", which lets it read strips without copying.
int mapProc(thandle_t handle, void** base, toff_t* size) {
    auto* c = static_cast<TiffReader*>(handle);
    const uint8_t* memory = c->source->memory();
    if (memory == nullptr) return 0;
    *base = const_cast<uint8_t*>(memory);
    *size = c->source->size();
    return 1;
}

void unmapProc(thandle_t, void*, toff_t) {}

int silentHandler(TIFF*, void*, const char*, const char*, va_list) { return 1; }

}  // namespace

bool openTiff(TiffReader& reader, ByteSource& source, uint64_t maxAlloc) {
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    if (options == nullptr) return false;
    TIFFOpenOptionsSetMaxSingleMemAlloc(options, tmsize_t(std::min<uint64_t>(maxAlloc, uint64_t(INT64_MAX))));
    TIFFOpenOptionsSetErrorHandlerExtR(options, silentHandler, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(options, silentHandler, nullptr);
    reader.source = &source;
    reader.position = 0;
    reader.tif = TIFFClientOpenExt("image", "r", &reader, readProc, writeProc, seekProc, closeProc, sizeProc, mapProc,
                                   unmapProc, options);
    TIFFOpenOptionsFree(options);
    return reader.tif != nullptr;
}

bool probeTiff(ByteSource& source, ImageInfo& info) {
    TiffReader reader;
    if (!openTiff(reader, source, 64u << 20)) return false;
    uint32_t width = 0, height = 0;
    if (!TIFFGetField(reader.tif, TIFFTAG_IMAGEWIDTH, &width) ||
        !TIFFGetField(reader.tif, TIFFTAG_IMAGELENGTH, &height))
        return false;
    if (width == 0 || height == 0 || width > 0x7fffffffu || height > 0x7fffffffu) return false;
    info.width = int(width);
    info.height = int(height);
    return true;
}

}  // namespace voimg::detail
