// SPDX-License-Identifier: MIT
// Test HEIC/AVIF files written with libheif and BMP files written byte by byte.
#include "test_support.h"

#include <libheif/heif.h>

#include <cstring>

namespace votest {

bool haveHeifEncoder(bool avif) {
    return heif_have_encoder_for_format(avif ? heif_compression_AV1 : heif_compression_HEVC) != 0;
}

Bytes encodeHeif(const Picture& rgba, bool avif, int bitDepth, const Bytes& icc) {
    if (!haveHeifEncoder(avif)) return {};
    heif_context* ctx = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    Bytes out;
    if (heif_context_get_encoder_for_format(ctx, avif ? heif_compression_AV1 : heif_compression_HEVC, &encoder).code !=
        heif_error_Ok) {
        heif_context_free(ctx);
        return {};
    }
    heif_encoder_set_lossy_quality(encoder, 95);
    heif_image* image = nullptr;
    const bool deep = bitDepth > 8;
    // Opaque pictures are stored without an alpha plane.
    bool opaque = true;
    for (size_t i = 3; i < rgba.samples.size(); i += 4) opaque &= rgba.samples[i] == 255;
    const int channels = opaque ? 3 : 4;
    const heif_chroma chroma = opaque ? (deep ? heif_chroma_interleaved_RRGGBB_LE : heif_chroma_interleaved_RGB)
                                      : (deep ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RGBA);
    heif_image_create(rgba.width, rgba.height, heif_colorspace_RGB, chroma, &image);
    heif_image_add_plane(image, heif_channel_interleaved, rgba.width, rgba.height, bitDepth);
    int stride = 0;
    uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    for (int y = 0; y < rgba.height; ++y)
        for (int x = 0; x < rgba.width * channels; ++x) {
            const uint8_t v = rgba.samples[(size_t(y) * rgba.width + size_t(x / channels)) * 4 + size_t(x % channels)];
            if (!deep) {
                plane[size_t(y) * stride + x] = v;
                continue;
            }
            const uint16_t wide = uint16_t(v * ((1 << bitDepth) - 1) / 255);  // little-endian host assumed
            std::memcpy(plane + size_t(y) * stride + size_t(x) * 2, &wide, 2);
        }
    if (!icc.empty()) heif_image_set_raw_color_profile(image, "prof", icc.data(), icc.size());
    const heif_error e = heif_context_encode_image(ctx, image, encoder, nullptr, nullptr);
    if (e.code == heif_error_Ok) {
        heif_writer writer{};
        writer.writer_api_version = 1;
        writer.write = [](heif_context*, const void* data, size_t size, void* user) {
            auto* o = static_cast<Bytes*>(user);
            o->insert(o->end(), static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
            return heif_error{heif_error_Ok, heif_suberror_code(0), "ok"};
        };
        heif_context_write(ctx, &writer, &out);
    }
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(ctx);
    return out;
}

namespace {

void putLe(Bytes& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(uint8_t(v >> (8 * i)));
}

}  // namespace

Bytes encodeBmp(int width, int height, const std::vector<uint8_t>& pixels, const BmpParams& params) {
    const int bpp = params.bitsPerPixel;
    const size_t rowBytes = ((size_t(width) * bpp + 31) / 32) * 4;
    const bool core = params.infoSize == 12;
    const size_t paletteBytes = (params.palette.size() / 3) * (core ? 3 : 4);
    const size_t maskBytes = params.compression == 3 && params.infoSize == 40 ? 12 : 0;
    const uint32_t offset = uint32_t(14 + params.infoSize + maskBytes + paletteBytes);
    Bytes out{'B', 'M'};
    putLe(out, uint32_t(offset + rowBytes * height), 4);
    putLe(out, 0, 4);
    putLe(out, offset, 4);
    putLe(out, uint32_t(params.infoSize), 4);
    if (core) {
        putLe(out, uint32_t(width), 2);
        putLe(out, uint32_t(height), 2);
        putLe(out, 1, 2);
        putLe(out, uint32_t(bpp), 2);
    } else {
        putLe(out, uint32_t(width), 4);
        putLe(out, uint32_t(params.topDown ? -height : height), 4);
        putLe(out, 1, 2);
        putLe(out, uint32_t(bpp), 2);
        putLe(out, uint32_t(params.compression), 4);
        putLe(out, uint32_t(rowBytes * height), 4);
        putLe(out, 2835, 4);
        putLe(out, 2835, 4);
        putLe(out, uint32_t(params.palette.size() / 3), 4);
        putLe(out, 0, 4);
        if (params.infoSize > 40) {
            for (uint32_t m : params.masks) putLe(out, m, 4);
            putLe(out, 0x73524742, 4);  // 'sRGB' colour space
            out.resize(14 + size_t(params.infoSize), 0);
        } else if (maskBytes) {
            for (int i = 0; i < 3; ++i) putLe(out, params.masks[i], 4);
        }
    }
    for (size_t i = 0; i + 2 < params.palette.size(); i += 3) {
        out.insert(out.end(), {params.palette[i + 2], params.palette[i + 1], params.palette[i]});
        if (!core) out.push_back(0);
    }
    for (int r = 0; r < height; ++r) {
        const int y = params.topDown ? r : height - 1 - r;
        Bytes row(rowBytes, 0);
        for (int x = 0; x < width; ++x) {
            if (bpp <= 8) {
                const size_t bit = size_t(x) * bpp;
                row[bit / 8] |= uint8_t(pixels[size_t(y) * width + x] << (8 - bpp - bit % 8));
                continue;
            }
            const uint8_t* p = pixels.data() + (size_t(y) * width + x) * 4;
            if (bpp == 24) {
                row[size_t(x) * 3] = p[2], row[size_t(x) * 3 + 1] = p[1], row[size_t(x) * 3 + 2] = p[0];
                continue;
            }
            // 16/32-bit: place each channel under its mask (defaults: 5-5-5 or X8R8G8B8).
            const uint32_t defaults16[4] = {0x7c00, 0x03e0, 0x001f, 0}, defaults32[4] = {0xff0000, 0xff00, 0xff, 0};
            const uint32_t* masks = params.compression == 3 ? params.masks : bpp == 16 ? defaults16 : defaults32;
            uint32_t value = 0;
            for (int c = 0; c < 4; ++c) {
                if (masks[c] == 0) continue;
                const int shift = __builtin_ctz(masks[c]);
                const uint32_t max = masks[c] >> shift;
                value |= ((p[c] * max + 127) / 255) << shift;
            }
            for (int b = 0; b < bpp / 8; ++b) row[size_t(x) * (bpp / 8) + b] = uint8_t(value >> (8 * b));
        }
        out.insert(out.end(), row.begin(), row.end());
    }
    return out;
}

}  // namespace votest
