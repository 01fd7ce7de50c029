// SPDX-License-Identifier: MIT
// Recognises the image format from the first bytes of a file; file names are never consulted.
#include "codec_p.h"

namespace voimg::detail {
namespace {

bool startsWith(const uint8_t* head, size_t size, const char* magic, size_t length, size_t offset = 0) {
    return size >= offset + length && std::memcmp(head + offset, magic, length) == 0;
}

uint32_t readBe32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

// ISO base media files name their flavour in the leading 'ftyp' box: a major brand followed by compatible
// brands. Any HEIF still-image or AVIF brand among the ones we can see qualifies.
bool isHeifBrand(const uint8_t* brand) {
    static constexpr const char* kBrands[] = {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1",
                                              "msf1", "avif", "avis", "mif2", "miaf"};
    for (const char* b : kBrands)
        if (std::memcmp(brand, b, 4) == 0) return true;
    return false;
}

bool looksLikeHeif(const uint8_t* head, size_t size) {
    if (size < 12 || !startsWith(head, size, "ftyp", 4, 4)) return false;
    const uint32_t boxSize = readBe32(head);
    if (boxSize < 16) return false;
    if (isHeifBrand(head + 8)) return true;
    // Compatible brands follow the minor version; only those inside the sniffed bytes are checked.
    const size_t end = std::min<size_t>(boxSize, size);
    for (size_t offset = 16; offset + 4 <= end; offset += 4)
        if (isHeifBrand(head + offset)) return true;
    return false;
}

bool looksLikeBmp(const uint8_t* head, size_t size) {
    if (!startsWith(head, size, "BM", 2) || size < 18) return false;
    const uint32_t infoSize = uint32_t(head[14]) | uint32_t(head[15]) << 8 | uint32_t(head[16]) << 16 |
                              uint32_t(head[17]) << 24;
    switch (infoSize) {
    case 12: case 40: case 52: case 56: case 64: case 108: case 124: return true;
    default: return false;
    }
}

}  // namespace

FileFormat sniffFormat(const uint8_t* head, size_t size) {
    if (startsWith(head, size, "\xFF\xD8\xFF", 3)) return FileFormat::Jpeg;
    if (startsWith(head, size, "\x89PNG\r\n\x1A\n", 8)) return FileFormat::Png;
    if (startsWith(head, size, "II*\0", 4) || startsWith(head, size, "MM\0*", 4) ||
        startsWith(head, size, "II+\0", 4) || startsWith(head, size, "MM\0+", 4))
        return FileFormat::Tiff;
    if (startsWith(head, size, "RIFF", 4) && startsWith(head, size, "WEBP", 4, 8)) return FileFormat::WebP;
    if (startsWith(head, size, "GIF87a", 6) || startsWith(head, size, "GIF89a", 6)) return FileFormat::Gif;
    if (looksLikeHeif(head, size)) return FileFormat::Heif;
    if (looksLikeBmp(head, size)) return FileFormat::Bmp;
    return FileFormat::Unknown;
}

}  // namespace voimg::detail
