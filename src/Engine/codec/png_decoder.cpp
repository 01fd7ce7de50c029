// SPDX-License-Identifier: MIT
// PNG decoding with libspng: every bit depth and colour type, tRNS, Adam7 interlacing.
//
// Rows are decoded one at a time straight into the output, so a truncated file keeps every row that
// arrived. Rows that never arrived are painted opaque grey (for interlaced files the whole picture is
// painted first, since any pass may be missing). gAMA, cHRM and sRGB chunks are ignored (treated as
// sRGB); an iCCP profile is converted.
#include "icc_convert_p.h"

#include <spng.h>

#include <vector>

namespace voimg::detail {
namespace {

// Caps for ancillary chunks: generous for real text and profiles, small enough to stop decompression bombs.
constexpr size_t kChunkSizeLimit = 16u << 20;
constexpr size_t kChunkCacheLimit = 64u << 20;

struct SpngContext {
    spng_ctx* ctx = spng_ctx_new(0);
    ~SpngContext() {
        if (ctx) spng_ctx_free(ctx);
    }
};

std::string spngMessage(const char* what, int code) { return std::string(what) + ": " + spng_strerror(code); }

uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

// libspng only decodes image data from complete chunks, so a file cut inside its last IDAT chunk would
// lose that chunk's rows (all of them, when the encoder wrote a single IDAT). For such files this returns
// a copy whose last chunk is shortened to the bytes present (its CRC is then not checked); otherwise empty.
std::vector<uint8_t> repairTruncatedIdat(const uint8_t* data, size_t size) {
    size_t pos = 8;
    while (pos + 12 <= size) {
        const uint64_t length = be32(data + pos);
        if (pos + 12 + length <= size) {
            pos += 12 + size_t(length);
            continue;
        }
        const size_t present = size - pos - 8;
        if (std::memcmp(data + pos + 4, "IDAT", 4) != 0 || present == 0) return {};
        std::vector<uint8_t> copy(data, data + size);
        copy.insert(copy.end(), 4, 0);  // placeholder CRC
        for (int i = 0; i < 4; ++i) copy[pos + size_t(i)] = uint8_t(present >> (24 - 8 * i));
        return copy;
    }
    return {};
}

}  // namespace

DecodeResult decodePng(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error) {
    SpngContext holder;
    spng_ctx* ctx = holder.ctx;
    if (ctx == nullptr) {
        setError(error, "out of memory");
        return std::nullopt;
    }
    spng_set_chunk_limits(ctx, kChunkSizeLimit, kChunkCacheLimit);
    spng_set_image_limits(ctx, 0x7fffffffu, 0x7fffffffu);
    const std::vector<uint8_t> repaired = repairTruncatedIdat(data, size);
    if (!repaired.empty()) {
        spng_set_crc_action(ctx, SPNG_CRC_USE, SPNG_CRC_USE);
        spng_set_png_buffer(ctx, repaired.data(), repaired.size());
    } else {
        spng_set_png_buffer(ctx, data, size);
    }

    spng_ihdr ihdr{};
    if (int rc = spng_get_ihdr(ctx, &ihdr); rc != 0) {
        setError(error, spngMessage("invalid PNG", rc));
        return std::nullopt;
    }
    if (!checkDimensions(ihdr.width, ihdr.height, options.maxPixels, error)) return std::nullopt;

    const bool sixteen = ihdr.bit_depth == 16;
    const int format = sixteen ? SPNG_FMT_RGBA16 : SPNG_FMT_RGBA8;
    if (int rc = spng_decode_image(ctx, nullptr, 0, format, SPNG_DECODE_TRNS | SPNG_DECODE_PROGRESSIVE); rc != 0) {
        setError(error, spngMessage("invalid PNG", rc));
        return std::nullopt;
    }
    // Chunks ahead of the image data are known now; ask before a truncated stream invalidates the context.
    spng_trns trns{};
    spng_iccp iccp{};
    const bool hasProfile = spng_get_iccp(ctx, &iccp) == 0 && iccp.profile != nullptr;
    DecodedImage image;
    image.hasAlpha = ihdr.color_type == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA ||
                     ihdr.color_type == SPNG_COLOR_TYPE_TRUECOLOR_ALPHA || spng_get_trns(ctx, &trns) == 0;
    if (!allocatePixels(image, int(ihdr.width), int(ihdr.height), sixteen, error)) return std::nullopt;
    const bool interlaced = ihdr.interlace_method != 0;
    if (interlaced) fillMissingRows(image, 0, image.height);

    const size_t stride = image.stride();
    size_t rowsDecoded = 0;
    int rc = 0;
    for (;;) {
        spng_row_info info{};
        if ((rc = spng_get_row_info(ctx, &info)) != 0) break;
        if (info.row_num >= ihdr.height) break;
        rc = spng_decode_row(ctx, image.pixels.data() + size_t(info.row_num) * stride, stride);
        if (rc != 0 && rc != SPNG_EOI) break;
        ++rowsDecoded;
        if (rc == SPNG_EOI) break;
    }
    if (rc != SPNG_EOI) {
        if (rowsDecoded == 0) {
            setError(error, spngMessage("invalid PNG", rc));
            return std::nullopt;
        }
        if (!interlaced) fillMissingRows(image, int(rowsDecoded), image.height);
    }

    if (hasProfile) {
        const bool grey = ihdr.color_type == SPNG_COLOR_TYPE_GRAYSCALE ||
                          ihdr.color_type == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA;
        convertToSrgb(image, reinterpret_cast<const uint8_t*>(iccp.profile), iccp.profile_len,
                      grey ? IccLayout::GreyInRgba : IccLayout::Rgb);
    }
    return image;
}

}  // namespace voimg::detail
