// SPDX-License-Identifier: MIT
// plain_decode [--scale N] [--png spng|libpng] FILE
//
// Decodes FILE with its system library and nothing else, and throws the pixels away: the least work any
// thumbnailer has to do for that file, which the benchmark reports as the decode floor. Rows go into one
// reusable buffer wherever the library decodes row by row, so no whole-image allocation is counted.
//   JPEG  libjpeg-turbo, DCT scaling 1/N (N = 1, 2, 4, 8), RGB output, default settings
//   PNG   libspng (progressive, rows in the file's own format) or libpng (no transformations)
//   WebP  libwebp, whole image to RGB or RGBA (libwebp has no cheaper full decode)
//   TIFF  libtiff, encoded strips or tiles as stored
// Prints the decoded size as WIDTHxHEIGHT; exit status 1 when the file cannot be decoded.
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <jpeglib.h>
#include <png.h>
#include <spng.h>
#include <tiffio.h>
#include <webp/decode.h>

namespace {

struct Size {
    long width = 0;
    long height = 0;
};

[[noreturn]] void fail(const std::string& message) {
    std::fprintf(stderr, "plain_decode: %s\n", message.c_str());
    std::exit(1);
}

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

File openFile(const char* path) {
    File file(std::fopen(path, "rb"), &std::fclose);
    if (!file) fail(std::string("cannot open ") + path);
    return file;
}

std::vector<uint8_t> readWholeFile(const char* path) {
    File file = openFile(path);
    std::fseek(file.get(), 0, SEEK_END);
    const long size = std::ftell(file.get());
    std::fseek(file.get(), 0, SEEK_SET);
    std::vector<uint8_t> data(size_t(size > 0 ? size : 0));
    if (std::fread(data.data(), 1, data.size(), file.get()) != data.size()) fail("short read");
    return data;
}

// ---- JPEG ----

struct JpegError {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

void jpegErrorExit(j_common_ptr info) { std::longjmp(reinterpret_cast<JpegError*>(info->err)->jump, 1); }

Size decodeJpeg(const char* path, int scaleDenominator) {
    File file = openFile(path);
    jpeg_decompress_struct info{};
    JpegError error{};
    info.err = jpeg_std_error(&error.manager);
    error.manager.error_exit = jpegErrorExit;
    if (setjmp(error.jump)) {
        jpeg_destroy_decompress(&info);
        fail("invalid JPEG");
    }
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, file.get());
    jpeg_read_header(&info, TRUE);
    info.scale_num = 1;
    info.scale_denom = unsigned(scaleDenominator);
    info.out_color_space = JCS_RGB;
    jpeg_start_decompress(&info);
    const size_t rowBytes = size_t(info.output_width) * info.output_components;
    std::vector<uint8_t> rows(rowBytes * info.rec_outbuf_height);
    std::vector<JSAMPROW> pointers(info.rec_outbuf_height);
    for (int i = 0; i < info.rec_outbuf_height; ++i) pointers[i] = rows.data() + rowBytes * i;
    while (info.output_scanline < info.output_height) {
        jpeg_read_scanlines(&info, pointers.data(), JDIMENSION(pointers.size()));
    }
    const Size size{long(info.output_width), long(info.output_height)};
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return size;
}

// ---- PNG with libspng ----

Size decodePngSpng(const char* path) {
    File file = openFile(path);
    std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> ctx(spng_ctx_new(0), &spng_ctx_free);
    spng_set_png_file(ctx.get(), file.get());
    spng_ihdr ihdr{};
    if (spng_get_ihdr(ctx.get(), &ihdr) != 0) fail("invalid PNG");
    size_t imageBytes = 0;
    if (spng_decoded_image_size(ctx.get(), SPNG_FMT_PNG, &imageBytes) != 0) fail("invalid PNG");
    if (spng_decode_image(ctx.get(), nullptr, 0, SPNG_FMT_PNG, SPNG_DECODE_PROGRESSIVE) != 0) fail("invalid PNG");
    std::vector<uint8_t> row(imageBytes / ihdr.height);
    int rc = 0;
    do {
        rc = spng_decode_row(ctx.get(), row.data(), row.size());
    } while (rc == 0);
    if (rc != SPNG_EOI) fail(std::string("PNG: ") + spng_strerror(rc));
    return {long(ihdr.width), long(ihdr.height)};
}

// ---- PNG with libpng ----

Size decodePngLibpng(const char* path) {
    File file = openFile(path);
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        fail("invalid PNG");
    }
    png_init_io(png, file.get());
    png_read_info(png, info);
    const int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    std::vector<uint8_t> row(png_get_rowbytes(png, info));
    for (int pass = 0; pass < passes; ++pass) {
        for (png_uint_32 y = 0; y < height; ++y) png_read_row(png, row.data(), nullptr);
    }
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return {long(width), long(height)};
}

// ---- WebP ----

Size decodeWebp(const char* path) {
    const std::vector<uint8_t> data = readWholeFile(path);
    WebPBitstreamFeatures features{};
    if (WebPGetFeatures(data.data(), data.size(), &features) != VP8_STATUS_OK) fail("invalid WebP");
    int width = 0;
    int height = 0;
    uint8_t* pixels = features.has_alpha ? WebPDecodeRGBA(data.data(), data.size(), &width, &height)
                                         : WebPDecodeRGB(data.data(), data.size(), &width, &height);
    if (!pixels) fail("invalid WebP");
    WebPFree(pixels);
    return {width, height};
}

// ---- TIFF ----

Size decodeTiff(const char* path) {
    TIFFSetWarningHandler(nullptr);
    std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(path, "r"), &TIFFClose);
    if (!tiff) fail("invalid TIFF");
    uint32_t width = 0;
    uint32_t height = 0;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &height);
    const bool tiled = TIFFIsTiled(tiff.get());
    const tmsize_t chunkBytes = tiled ? TIFFTileSize(tiff.get()) : TIFFStripSize(tiff.get());
    const uint32_t chunks = tiled ? TIFFNumberOfTiles(tiff.get()) : TIFFNumberOfStrips(tiff.get());
    std::vector<uint8_t> buffer(static_cast<size_t>(chunkBytes));
    for (uint32_t i = 0; i < chunks; ++i) {
        const tmsize_t got = tiled ? TIFFReadEncodedTile(tiff.get(), i, buffer.data(), chunkBytes)
                                   : TIFFReadEncodedStrip(tiff.get(), i, buffer.data(), chunkBytes);
        if (got < 0) fail("invalid TIFF data");
    }
    return {long(width), long(height)};
}

// ---- dispatch ----

enum class Format { Unknown, Jpeg, Png, WebP, Tiff };

Format sniff(const char* path) {
    uint8_t head[12] = {};
    File file = openFile(path);
    const size_t got = std::fread(head, 1, sizeof head, file.get());
    if (got >= 3 && head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF) return Format::Jpeg;
    if (got >= 8 && std::memcmp(head, "\x89PNG\r\n\x1a\n", 8) == 0) return Format::Png;
    if (got >= 12 && std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WEBP", 4) == 0) return Format::WebP;
    if (got >= 4 && (std::memcmp(head, "II*\0", 4) == 0 || std::memcmp(head, "MM\0*", 4) == 0)) return Format::Tiff;
    return Format::Unknown;
}

[[noreturn]] void usage() {
    std::fprintf(stderr, "usage: plain_decode [--scale 1|2|4|8] [--png spng|libpng] FILE\n");
    std::exit(2);
}

}  // namespace

int main(int argc, char** argv) {
    int scale = 1;
    std::string pngLibrary = "spng";
    const char* path = nullptr;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--scale" && i + 1 < argc) {
            scale = std::atoi(argv[++i]);
            if (scale != 1 && scale != 2 && scale != 4 && scale != 8) usage();
        } else if (arg == "--png" && i + 1 < argc) {
            pngLibrary = argv[++i];
            if (pngLibrary != "spng" && pngLibrary != "libpng") usage();
        } else if (!path) {
            path = argv[i];
        } else {
            usage();
        }
    }
    if (!path) usage();

    Size size;
    switch (sniff(path)) {
        case Format::Jpeg:
            size = decodeJpeg(path, scale);
            break;
        case Format::Png:
            size = pngLibrary == "spng" ? decodePngSpng(path) : decodePngLibpng(path);
            break;
        case Format::WebP:
            size = decodeWebp(path);
            break;
        case Format::Tiff:
            size = decodeTiff(path);
            break;
        case Format::Unknown:
            fail(std::string("unknown format: ") + path);
    }
    std::printf("%ldx%ld\n", size.width, size.height);
    return 0;
}
