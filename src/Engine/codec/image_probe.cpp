// SPDX-License-Identifier: MIT
// Header-only size probing: reads just the bytes that lead to the declared dimensions.
#include "codec_module_p.h"
#include "file_source_p.h"

namespace voimg {
namespace {

using detail::ByteSource;

uint16_t be16(const uint8_t* p) { return uint16_t(p[0] << 8 | p[1]); }
uint16_t le16(const uint8_t* p) { return uint16_t(p[0] | p[1] << 8); }
uint32_t le24(const uint8_t* p) { return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16; }
uint32_t le32(const uint8_t* p) { return le24(p) | uint32_t(p[3]) << 24; }
uint32_t be32(const uint8_t* p) { return uint32_t(be16(p)) << 16 | be16(p + 2); }

// Walks the marker segments up to the first start-of-frame. The segment count is capped so that a file of
// padding bytes cannot keep the loop busy.
bool probeJpeg(ByteSource& src, ImageInfo& info) {
    uint64_t pos = 2;
    for (int segments = 0; segments < 100000; ++segments) {
        uint8_t m[2];
        if (!src.readExact(pos, m, 2)) return false;
        if (m[0] != 0xFF) return false;
        if (m[1] == 0xFF) {  // fill byte
            pos += 1;
            continue;
        }
        pos += 2;
        const uint8_t marker = m[1];
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD7)) continue;  // no payload
        if (marker == 0xD9 || marker == 0xDA) return false;  // end of image or scan data before any frame
        uint8_t length[2];
        if (!src.readExact(pos, length, 2) || be16(length) < 2) return false;
        const bool isFrame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (isFrame) {
            uint8_t sof[5];
            if (!src.readExact(pos + 2, sof, 5)) return false;
            info.height = be16(sof + 1);
            info.width = be16(sof + 3);
            return info.width > 0 && info.height > 0;
        }
        pos += be16(length);
    }
    return false;
}

bool probePng(ByteSource& src, ImageInfo& info) {
    uint8_t h[24];
    if (!src.readExact(0, h, sizeof h) || std::memcmp(h + 12, "IHDR", 4) != 0) return false;
    const uint32_t w = be32(h + 16), hh = be32(h + 20);
    if (w == 0 || hh == 0 || w > 0x7fffffffu || hh > 0x7fffffffu) return false;
    info.width = int(w);
    info.height = int(hh);
    return true;
}

// The logical screen gives the size; when a writer left it zero, the first frame's extent does.
bool probeGif(ByteSource& src, ImageInfo& info) {
    uint8_t h[13];
    if (!src.readExact(0, h, sizeof h)) return false;
    info.width = le16(h + 6);
    info.height = le16(h + 8);
    if (info.width > 0 && info.height > 0) return true;
    uint64_t pos = 13 + ((h[10] & 0x80) ? 3u << ((h[10] & 7) + 1) : 0);
    for (int blocks = 0; blocks < 100000; ++blocks) {
        uint8_t type;
        if (!src.readExact(pos, &type, 1)) return false;
        if (type == 0x2C) {
            uint8_t d[8];
            if (!src.readExact(pos + 1, d, sizeof d)) return false;
            info.width = le16(d) + le16(d + 4);
            info.height = le16(d + 2) + le16(d + 6);
            return info.width > 0 && info.height > 0;
        }
        if (type != 0x21) return false;
        pos += 2;  // introducer and label, then sub-blocks until a zero length
        for (;;) {
            uint8_t length;
            if (!src.readExact(pos, &length, 1)) return false;
            pos += 1 + length;
            if (length == 0) break;
        }
    }
    return false;
}

bool probeBmp(ByteSource& src, ImageInfo& info) {
    uint8_t h[26];
    if (!src.readExact(0, h, sizeof h)) return false;
    int64_t w, hh;
    if (le32(h + 14) == 12) {
        w = le16(h + 18);
        hh = le16(h + 20);
    } else {
        w = int32_t(le32(h + 18));
        hh = int32_t(le32(h + 22));
    }
    hh = hh < 0 ? -hh : hh;
    if (w <= 0 || hh <= 0 || w > 0x7fffffff || hh > 0x7fffffff) return false;
    info.width = int(w);
    info.height = int(hh);
    return true;
}

// Reads the size from the first chunk: the extended header's canvas, or the lossy/lossless frame header.
bool probeWebP(ByteSource& src, ImageInfo& info) {
    uint8_t h[30];
    if (!src.readExact(0, h, sizeof h)) return false;
    if (std::memcmp(h + 12, "VP8X", 4) == 0) {
        info.width = int(le24(h + 24) + 1);
        info.height = int(le24(h + 27) + 1);
        return true;
    }
    if (std::memcmp(h + 12, "VP8 ", 4) == 0) {
        if (h[23] != 0x9d || h[24] != 0x01 || h[25] != 0x2a) return false;
        info.width = le16(h + 26) & 0x3fff;
        info.height = le16(h + 28) & 0x3fff;
        return info.width > 0 && info.height > 0;
    }
    if (std::memcmp(h + 12, "VP8L", 4) == 0) {
        if (h[20] != 0x2f) return false;
        const uint32_t bits = le32(h + 21);
        info.width = int((bits & 0x3fff) + 1);
        info.height = int(((bits >> 14) & 0x3fff) + 1);
        return true;
    }
    return false;
}

}  // namespace

std::optional<ImageInfo> probeImageFile(const std::string& path, std::string* error) {
    using namespace detail;
    FileSource file;
    if (!file.open(path, error)) return std::nullopt;
    uint8_t head[kSniffBytes];
    const size_t headLength = file.readAt(0, head, sizeof head);
    ImageInfo info;
    info.format = sniffFormat(head, headLength);
    bool ok = false;
    try {
        switch (info.format) {
            case FileFormat::Jpeg:
                ok = probeJpeg(file, info);
                break;
            case FileFormat::Png:
                ok = probePng(file, info);
                break;
            case FileFormat::Tiff:
                if (!probeWithModule(FileFormat::Tiff, file, info, error)) return std::nullopt;  // says why
                ok = true;
                break;
            case FileFormat::WebP:
                ok = probeWebP(file, info);
                break;
            case FileFormat::Gif:
                ok = probeGif(file, info);
                break;
            case FileFormat::Heif:
                if (!probeWithModule(FileFormat::Heif, file, info, error)) return std::nullopt;  // says why
                ok = true;
                break;
            case FileFormat::Bmp:
                ok = probeBmp(file, info);
                break;
            case FileFormat::Unknown:
                setError(error, "unrecognised image format");
                return std::nullopt;
        }
    } catch (...) {
        ok = false;
    }
    if (!ok) {
        setError(error, "cannot read the image header");
        return std::nullopt;
    }
    return info;
}

}  // namespace voimg
