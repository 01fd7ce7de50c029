// SPDX-License-Identifier: MIT
// Test PNG files written with libpng, plus a hand-made PNG that declares an arbitrary size.
#include "test_support.h"

#include <png.h>

#include <stdexcept>

namespace votest {
namespace {

int channelsOf(int colourType) {
    switch (colourType) {
    case 0: case 3: return 1;
    case 4: return 2;
    case 2: return 3;
    default: return 4;
    }
}

void appendToVector(png_structp png, png_bytep data, png_size_t length) {
    auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
    out->insert(out->end(), data, data + length);
}

uint32_t crc32Of(const uint8_t* data, size_t size, uint32_t crc = 0xffffffffu) {
    for (size_t i = 0; i < size; ++i) {
        crc ^= data[i];
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1)));
    }
    return crc;
}

void putBe32(Bytes& out, uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) out.push_back(uint8_t(v >> s));
}

void appendChunk(Bytes& out, const char* type, const Bytes& payload) {
    putBe32(out, uint32_t(payload.size()));
    Bytes body(type, type + 4);
    body.insert(body.end(), payload.begin(), payload.end());
    out.insert(out.end(), body.begin(), body.end());
    putBe32(out, crc32Of(body.data(), body.size()) ^ 0xffffffffu);
}

}  // namespace

Bytes encodePng(int width, int height, const std::vector<uint16_t>& samples, const PngParams& params) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    Bytes out;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw std::runtime_error("libpng write failed");
    }
    png_set_write_fn(png, &out, appendToVector, nullptr);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), params.bitDepth, params.colourType,
                 params.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    std::vector<png_color> palette;
    for (size_t i = 0; i + 2 < params.palette.size(); i += 3)
        palette.push_back(png_color{params.palette[i], params.palette[i + 1], params.palette[i + 2]});
    if (!palette.empty()) png_set_PLTE(png, info, palette.data(), int(palette.size()));
    if (!params.paletteAlpha.empty())
        png_set_tRNS(png, info, params.paletteAlpha.data(), int(params.paletteAlpha.size()), nullptr);
    if (params.greyTrns >= 0) {
        png_color_16 key{};
        key.gray = png_uint_16(params.greyTrns);
        png_set_tRNS(png, info, nullptr, 0, &key);
    }
    if (!params.icc.empty())
        png_set_iCCP(png, info, "test", PNG_COMPRESSION_TYPE_BASE, params.icc.data(), png_uint_32(params.icc.size()));

    // Pack the samples the way PNG stores them: MSB-first bit packing, 16-bit big-endian.
    const int channels = channelsOf(params.colourType);
    const size_t rowBytes = (size_t(width) * channels * params.bitDepth + 7) / 8;
    std::vector<Bytes> rows(size_t(height), Bytes(rowBytes, 0));
    std::vector<png_bytep> pointers;
    for (int y = 0; y < height; ++y) {
        Bytes& row = rows[size_t(y)];
        for (size_t i = 0; i < size_t(width) * channels; ++i) {
            const uint16_t v = samples[size_t(y) * width * channels + i];
            if (params.bitDepth == 16) {
                row[i * 2] = uint8_t(v >> 8);
                row[i * 2 + 1] = uint8_t(v);
            } else if (params.bitDepth == 8) {
                row[i] = uint8_t(v);
            } else {
                const size_t bit = i * params.bitDepth;
                row[bit / 8] |= uint8_t(v << (8 - params.bitDepth - bit % 8));
            }
        }
        pointers.push_back(row.data());
    }
    png_set_rows(png, info, pointers.data());
    png_write_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

Bytes pngDeclaring(uint32_t width, uint32_t height) {
    Bytes out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    Bytes ihdr;
    putBe32(ihdr, width);
    putBe32(ihdr, height);
    ihdr.insert(ihdr.end(), {8, 6, 0, 0, 0});
    appendChunk(out, "IHDR", ihdr);
    appendChunk(out, "IDAT", {0x78, 0x9c, 0x03, 0x00, 0x00, 0x00, 0x00, 0x01});
    appendChunk(out, "IEND", {});
    return out;
}

}  // namespace votest
