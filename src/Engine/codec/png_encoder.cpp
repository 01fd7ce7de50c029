// SPDX-License-Identifier: MIT
// 8-bit RGBA PNG writing with libspng (zlib level 6, libspng's adaptive filter choice).
#include "atomic_file_p.h"
#include "codec_p.h"

#include <spng.h>

namespace voimg {

bool writePngFile(const std::string& path, const uint8_t* rgba, int width, int height, std::string* error) {
    using detail::setError;
    if (rgba == nullptr || width <= 0 || height <= 0 || uint64_t(width) * uint64_t(height) > (SIZE_MAX >> 3)) {
        setError(error, "invalid image for PNG output");
        return false;
    }
    detail::AtomicFile file;
    if (!file.open(path, error)) return false;

    spng_ctx* ctx = spng_ctx_new(SPNG_CTX_ENCODER);
    if (ctx == nullptr) {
        setError(error, "out of memory");
        return false;
    }
    spng_ihdr ihdr{};
    ihdr.width = uint32_t(width);
    ihdr.height = uint32_t(height);
    ihdr.bit_depth = 8;
    ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR_ALPHA;
    int rc = spng_set_png_file(ctx, file.stream());
    if (rc == 0) rc = spng_set_option(ctx, SPNG_IMG_COMPRESSION_LEVEL, 6);
    if (rc == 0) rc = spng_set_ihdr(ctx, &ihdr);
    if (rc == 0)
        rc = spng_encode_image(ctx, rgba, size_t(width) * size_t(height) * 4, SPNG_FMT_PNG, SPNG_ENCODE_FINALIZE);
    spng_ctx_free(ctx);
    if (rc != 0) {
        setError(error, std::string("PNG encoding failed: ") + spng_strerror(rc));
        return false;
    }
    return file.commit(error);
}

}  // namespace voimg
