// SPDX-License-Identifier: MIT
#include "support/test_images.h"

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>

// jpeglib.h needs FILE and size_t declared before it.
#include <jpeglib.h>
#include <png.h>

namespace vo::test {

namespace {

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

FilePtr openFile(const std::string& path, const char* mode) {
    FilePtr f(std::fopen(path.c_str(), mode));
    if (!f) throw std::runtime_error("cannot open " + path);
    return f;
}

// libjpeg reports fatal errors through error_exit, which must not return: jump back to the caller, which turns
// the message into an exception outside of libjpeg's frames.
struct JpegError {
    jpeg_error_mgr mgr;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void jpegErrorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<JpegError*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

void jpegQuietWarning(j_common_ptr, int) {}

// The standard tables of the JPEG standard (Annex K.1), in natural (row by row) order.
constexpr uint16_t kLuminance[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr uint16_t kChrominance[64] = {
    17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99, 24, 26, 56, 99, 99, 99,
    99, 99, 47, 66, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
    99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};
// Position in natural order of the k-th coefficient in zig-zag order.
constexpr int kNaturalOrder[64] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33, 40, 48,
    41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23,
    30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

uint8_t clampByte(double v) {
    return uint8_t(std::lround(std::fmin(255.0, std::fmax(0.0, v))));
}

}  // namespace

TempDir::TempDir() {
    char pattern[] = "/tmp/vo-test-XXXXXX";
    if (!::mkdtemp(pattern)) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ec;
    // Tests may leave read-only folders behind; give write permission back so removal can go through.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec)) {
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ec);
        }
    }
    std::filesystem::remove_all(path_, ec);
}

Pixels makeTestPicture(int width, int height, int channels) {
    Pixels p{width, height, channels, std::vector<uint8_t>(size_t(width) * height * channels)};
    const double w = std::max(1, width - 1), h = std::max(1, height - 1);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const double u = x / w, v = y / h;
            double r = 255 * u;
            double g = 255 * v;
            double b = 127.5 + 127.5 * std::sin(6.2831853 * (u + v));
            // A dark square in the upper left quarter and a light diagonal band give hard edges.
            if (u > 0.15 && u < 0.35 && v > 0.15 && v < 0.45) r = g = b = 20;
            if (std::fabs(u - v) < 0.03) r = g = b = 235;
            uint8_t* px = &p.data[(size_t(y) * width + x) * channels];
            px[0] = clampByte(r);
            if (channels > 1) px[1] = clampByte(g);
            if (channels > 2) px[2] = clampByte(b);
            // Alpha fades from opaque on the left to mostly transparent on the right.
            if (channels > 3) px[3] = clampByte(255 - 200 * u);
        }
    }
    return p;
}

Pixels makeSolid(int width, int height, uint8_t r, uint8_t g, uint8_t b) {
    Pixels p{width, height, 3, std::vector<uint8_t>(size_t(width) * height * 3)};
    for (size_t i = 0; i < p.data.size(); i += 3) {
        p.data[i] = r;
        p.data[i + 1] = g;
        p.data[i + 2] = b;
    }
    return p;
}

void writeJpeg(const std::string& path, const Pixels& pixels, int quality) {
    if (pixels.channels != 3) throw std::invalid_argument("writeJpeg needs 3 channels");
    FilePtr file = openFile(path, "wb");
    jpeg_compress_struct cinfo{};
    JpegError err{};
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = jpegErrorExit;
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&cinfo);
        throw std::runtime_error(std::string("writeJpeg: ") + err.message);
    }
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, file.get());
    cinfo.image_width = JDIMENSION(pixels.width);
    cinfo.image_height = JDIMENSION(pixels.height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    // The defaults are baseline Huffman coding with 2x2 luma sampling, which is 4:2:0.
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(pixels.at(0, int(cinfo.next_scanline)));
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
}

void writePng(const std::string& path, const Pixels& pixels) {
    if (pixels.channels != 3 && pixels.channels != 4) throw std::invalid_argument("writePng needs 3 or 4 channels");
    FilePtr file = openFile(path, "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_write_struct(&png, nullptr);
        throw std::runtime_error("writePng: out of memory");
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw std::runtime_error("writePng failed for " + path);
    }
    png_init_io(png, file.get());
    // Plain chunks only (no colour or gamma chunks), so a reader takes the samples as sRGB.
    png_set_IHDR(png, info, png_uint_32(pixels.width), png_uint_32(pixels.height), 8,
                 pixels.channels == 4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < pixels.height; ++y) png_write_row(png, pixels.at(0, y));
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) throw std::runtime_error("cannot write " + path);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool fileExists(const std::string& path) {
    std::error_code ec;
    return std::filesystem::exists(path, ec);
}

Pixels readJpeg(const std::string& path) {
    FilePtr file = openFile(path, "rb");
    jpeg_decompress_struct cinfo{};
    JpegError err{};
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = jpegErrorExit;
    err.mgr.emit_message = jpegQuietWarning;
    Pixels out;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        throw std::runtime_error("readJpeg " + path + ": " + err.message);
    }
    jpeg_create_decompress(&cinfo);
    jpeg_stdio_src(&cinfo, file.get());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_RGB;
    jpeg_start_decompress(&cinfo);
    out.width = int(cinfo.output_width);
    out.height = int(cinfo.output_height);
    out.channels = 3;
    out.data.resize(size_t(out.width) * out.height * 3);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = &out.data[size_t(cinfo.output_scanline) * out.width * 3];
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return out;
}

Pixels readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) {
        throw std::runtime_error("readPng " + path + ": " + image.message);
    }
    image.format = PNG_FORMAT_RGBA;
    Pixels out{int(image.width), int(image.height), 4, std::vector<uint8_t>(PNG_IMAGE_SIZE(image))};
    if (!png_image_finish_read(&image, nullptr, out.data.data(), 0, nullptr)) {
        const std::string message = image.message;
        png_image_free(&image);
        throw std::runtime_error("readPng " + path + ": " + message);
    }
    return out;
}

JpegFacts readJpegFacts(const std::string& path) {
    const std::vector<uint8_t> b = readBytes(path);
    if (b.size() < 4 || b[0] != 0xFF || b[1] != 0xD8) throw std::runtime_error(path + " is not a JPEG");
    JpegFacts facts;
    size_t pos = 2;
    while (pos + 4 <= b.size()) {
        if (b[pos] != 0xFF) throw std::runtime_error("bad marker in " + path);
        const uint8_t marker = b[pos + 1];
        if (marker == 0xFF) {  // fill byte
            ++pos;
            continue;
        }
        const size_t length = size_t(b[pos + 2]) << 8 | b[pos + 3];
        const size_t body = pos + 4, end = pos + 2 + length;
        if (length < 2 || end > b.size()) throw std::runtime_error("truncated segment in " + path);
        if (marker == 0xDB) {
            for (size_t p = body; p < end;) {
                const int precision = b[p] >> 4, id = b[p] & 15;
                ++p;
                std::vector<uint16_t> table(64);
                for (int k = 0; k < 64; ++k) {
                    table[k] = precision ? uint16_t(b[p] << 8 | b[p + 1]) : b[p];
                    p += precision ? 2 : 1;
                }
                if (facts.quantTables.size() <= size_t(id)) facts.quantTables.resize(size_t(id) + 1);
                facts.quantTables[size_t(id)] = std::move(table);
            }
        } else if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC) {
            facts.baseline = marker == 0xC0;
            facts.progressive = marker == 0xC2;
            facts.height = b[body + 1] << 8 | b[body + 2];
            facts.width = b[body + 3] << 8 | b[body + 4];
            const int count = b[body + 5];
            for (int c = 0; c < count; ++c) {
                const uint8_t hv = b[body + 6 + size_t(c) * 3 + 1];
                facts.sampling.emplace_back(hv >> 4, hv & 15);
            }
        } else if (marker == 0xDA) {
            break;  // entropy-coded data follows; everything of interest came before it
        }
        pos = end;
    }
    return facts;
}

std::vector<uint16_t> standardQuantTable(int which, int quality) {
    // libjpeg's jpeg_quality_scaling: quality 50 keeps the tables, lower scales up, higher scales down.
    quality = std::clamp(quality, 1, 100);
    const long scale = quality < 50 ? 5000 / quality : 200 - quality * 2;
    const uint16_t* base = which == 0 ? kLuminance : kChrominance;
    std::vector<uint16_t> table(64);
    for (int k = 0; k < 64; ++k) {
        const long value = (long(base[kNaturalOrder[k]]) * scale + 50) / 100;
        table[k] = uint16_t(std::clamp(value, 1L, 255L));
    }
    return table;
}

}  // namespace vo::test
