// SPDX-License-Identifier: MIT
// BMP decoding: uncompressed 1/4/8-bit palette, 16/24/32-bit direct colour, BI_RGB and BI_BITFIELDS,
// bottom-up and top-down, OS/2 core headers, embedded ICC profiles (V5 headers).
//
// RLE, embedded JPEG/PNG and anything inconsistent are rejected. 32-bit BI_RGB pixels are opaque (the
// fourth byte is padding); with an alpha mask, alpha is used unless every pixel has alpha 0, which
// writers produce when they don't care about alpha. When the pixel data is cut short the rows present are
// kept and the missing ones are painted opaque grey.
#include "icc_convert_p.h"

namespace voimg::detail {
namespace {

uint16_t le16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
uint32_t le32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

enum : uint32_t { kRgb = 0, kBitfields = 3, kAlphaBitfields = 6 };

// One colour channel described by a bit mask: value = (pixel & mask) >> shift, scaled from 0..max to 0..255.
struct Channel {
    uint32_t mask = 0, shift = 0, max = 0;

    bool set(uint32_t m) {
        mask = m;
        if (m == 0) return true;
        shift = uint32_t(std::countr_zero(m));
        const uint32_t bits = m >> shift;
        if ((bits & (bits + 1)) != 0) return false;  // not one contiguous run of bits
        max = bits;
        return true;
    }
    [[nodiscard]] uint8_t get(uint32_t pixel) const {
        if (mask == 0) return 0;
        return uint8_t((uint64_t((pixel & mask) >> shift) * 255u + max / 2) / max);
    }
};

struct Header {
    uint32_t pixelOffset = 0, infoSize = 0, compression = kRgb, colours = 0;
    int64_t width = 0, height = 0;
    unsigned bpp = 0;
    size_t paletteOffset = 0, paletteEntryBytes = 4;
    Channel red, green, blue, alpha;
    uint32_t iccOffset = 0, iccSize = 0;  // relative to the info header
};

bool parseHeader(const uint8_t* d, size_t size, Header& h, std::string* error) {
    auto fail = [&](const char* why) {
        setError(error, std::string("unsupported BMP: ") + why);
        return false;
    };
    if (size < 26) return fail("file too short");
    h.pixelOffset = le32(d + 10);
    h.infoSize = le32(d + 14);
    if (h.infoSize == 12) {  // OS/2 core header: 16-bit sizes, 3-byte palette entries
        h.width = le16(d + 18);
        h.height = le16(d + 20);
        h.bpp = le16(d + 24);
        h.paletteEntryBytes = 3;
    } else {
        if (h.infoSize < 40 || size < 14 + size_t(h.infoSize)) return fail("header too short");
        h.width = int32_t(le32(d + 18));
        h.height = int32_t(le32(d + 22));
        h.bpp = le16(d + 28);
        h.compression = le32(d + 30);
        h.colours = le32(d + 46);
    }
    const uint8_t* info = d + 14;
    if (h.bpp != 1 && h.bpp != 4 && h.bpp != 8 && h.bpp != 16 && h.bpp != 24 && h.bpp != 32) return fail("bit depth");
    const bool masked = h.compression == kBitfields || h.compression == kAlphaBitfields;
    if (h.compression != kRgb && !(masked && (h.bpp == 16 || h.bpp == 32))) return fail("compression");
    size_t afterHeader = 14 + h.infoSize;
    if (masked) {
        // A plain 40-byte header is followed by the masks; larger headers contain them.
        const bool inHeader = h.infoSize >= 52 + (h.compression == kAlphaBitfields ? 4u : 0u);
        const uint8_t* m = inHeader ? info + 40 : d + afterHeader;
        const size_t count = h.compression == kAlphaBitfields || h.infoSize >= 56 ? 4 : 3;
        if (!inHeader) afterHeader += count * 4;
        if (size < size_t(m - d) + count * 4) return fail("masks missing");
        if (!h.red.set(le32(m)) || !h.green.set(le32(m + 4)) || !h.blue.set(le32(m + 8)) ||
            (count == 4 && !h.alpha.set(le32(m + 12))))
            return fail("bad channel masks");
        if (h.red.mask == 0 && h.green.mask == 0 && h.blue.mask == 0) return fail("empty channel masks");
    } else if (h.bpp == 16) {
        h.red.set(0x7c00), h.green.set(0x03e0), h.blue.set(0x001f);
    } else if (h.bpp >= 24) {
        h.red.set(0xff0000), h.green.set(0x00ff00), h.blue.set(0x0000ff);
    }
    if (h.infoSize >= 124 && le32(info + 56) == 0x4D424544) {  // 'MBED': profile inside the file
        h.iccOffset = le32(info + 112);
        h.iccSize = le32(info + 116);
    }
    h.paletteOffset = afterHeader;
    if (h.bpp <= 8) {
        const uint32_t maxColours = 1u << h.bpp;
        if (h.colours == 0 || h.colours > maxColours) h.colours = maxColours;
        const size_t available = size > h.paletteOffset ? (size - h.paletteOffset) / h.paletteEntryBytes : 0;
        h.colours = uint32_t(std::min<size_t>(h.colours, available));
        if (h.colours == 0) return fail("palette missing");
    } else {
        h.colours = 0;  // direct colour: any palette in the file is only a display hint
    }
    if (h.width <= 0 || h.height == 0 || h.height == INT32_MIN) return fail("invalid dimensions");
    if (h.pixelOffset >= size) return fail("no pixel data");
    return true;
}

}  // namespace

DecodeResult decodeBmp(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error) {
    Header h;
    if (!parseHeader(data, size, h, error)) return std::nullopt;
    const bool topDown = h.height < 0;
    const int64_t height = topDown ? -h.height : h.height;
    if (!checkDimensions(uint64_t(h.width), uint64_t(height), options.maxPixels, error)) return std::nullopt;
    const size_t rowBytes = ((size_t(h.width) * h.bpp + 31) / 32) * 4;
    const size_t rowsPresent = std::min<size_t>(size_t(height), (size - h.pixelOffset) / rowBytes);
    if (rowsPresent == 0) {
        setError(error, "truncated BMP: no pixel rows");
        return std::nullopt;
    }
    DecodedImage image;
    if (!allocatePixels(image, int(h.width), int(height), false, error)) return std::nullopt;

    uint8_t palette[256][4] = {};
    for (uint32_t i = 0; i < h.colours; ++i) {
        const uint8_t* e = data + h.paletteOffset + size_t(i) * h.paletteEntryBytes;
        palette[i][0] = e[2], palette[i][1] = e[1], palette[i][2] = e[0], palette[i][3] = 255;
    }
    for (uint32_t i = h.colours; i < 256; ++i) palette[i][3] = 255;  // out-of-range indices read as black

    const bool useAlpha = h.alpha.mask != 0;
    uint32_t alphaSeen = 0;
    for (size_t r = 0; r < rowsPresent; ++r) {
        const uint8_t* src = data + h.pixelOffset + r * rowBytes;
        const size_t y = topDown ? r : size_t(height) - 1 - r;
        uint8_t* out = image.pixels.data() + y * image.stride();
        for (int64_t x = 0; x < h.width; ++x, out += 4) {
            if (h.bpp <= 8) {
                const size_t bit = size_t(x) * h.bpp;
                const unsigned index = (src[bit / 8] >> (8 - h.bpp - bit % 8)) & ((1u << h.bpp) - 1);
                std::memcpy(out, palette[index], 4);
                continue;
            }
            const uint8_t* p = src + size_t(x) * (h.bpp / 8);
            const uint32_t pixel = h.bpp == 16 ? le16(p) : h.bpp == 24 ? (le16(p) | uint32_t(p[2]) << 16) : le32(p);
            out[0] = h.red.get(pixel), out[1] = h.green.get(pixel), out[2] = h.blue.get(pixel);
            out[3] = useAlpha ? h.alpha.get(pixel) : 255;
            alphaSeen |= out[3];
        }
    }
    if (useAlpha && alphaSeen == 0) {
        setOpaque(image.pixels.data(), image.pixels.size() / 4);
    } else {
        image.hasAlpha = useAlpha;
    }
    if (topDown) fillMissingRows(image, int(rowsPresent), image.height);
    else fillMissingRows(image, 0, image.height - int(rowsPresent));

    if (h.iccSize != 0 && uint64_t(14) + h.iccOffset + h.iccSize <= size)
        convertToSrgb(image, data + 14 + h.iccOffset, h.iccSize, IccLayout::Rgb);
    return image;
}

}  // namespace voimg::detail
