// SPDX-License-Identifier: MIT
// GIF decoding with giflib: the first frame on its logical screen, with its transparent colour.
//
// Records are read one by one up to the first image, so the frames after it are never touched. Screen
// areas the frame does not cover stay transparent. If the data ends inside the frame, the rows read so
// far are kept and the missing ones are painted opaque grey.
#include "codec_module_p.h"

#include <gif_lib.h>

#include <memory>
#include <vector>

namespace voimg::detail {
namespace {

struct Reader {
    const uint8_t* data;
    size_t size;
    size_t position;
};

int readFromMemory(GifFileType* gif, GifByteType* out, int length) {
    auto* r = static_cast<Reader*>(gif->UserData);
    if (length <= 0) return 0;
    const size_t n = std::min(size_t(length), r->size - r->position);
    std::memcpy(out, r->data + r->position, n);
    r->position += n;
    return int(n);
}

struct GifCloser {
    void operator()(GifFileType* gif) const {
        int error = 0;
        DGifCloseFile(gif, &error);
    }
};

std::string gifMessage(const char* what, int code) {
    const char* text = GifErrorString(code);
    return std::string(what) + (text ? std::string(": ") + text : std::string());
}

// Reads extension blocks up to the first image descriptor; returns the transparent index (or -1).
bool skipToFirstImage(GifFileType* gif, int& transparentIndex) {
    transparentIndex = -1;
    for (;;) {
        GifRecordType type;
        if (DGifGetRecordType(gif, &type) == GIF_ERROR) return false;
        if (type == IMAGE_DESC_RECORD_TYPE) return DGifGetImageDesc(gif) != GIF_ERROR;
        if (type != EXTENSION_RECORD_TYPE) return false;  // end of stream before any image
        int code = 0;
        GifByteType* block = nullptr;
        if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) return false;
        if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr && block[0] >= 4) {
            transparentIndex = (block[1] & 1) ? block[4] : -1;
        }
        while (block != nullptr)
            if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) return false;
    }
}

}  // namespace

DecodeResult decodeGif(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error) {
    Reader reader{data, size, 0};
    int code = 0;
    std::unique_ptr<GifFileType, GifCloser> gif(DGifOpen(&reader, readFromMemory, &code));
    if (!gif) {
        setError(error, gifMessage("invalid GIF header", code));
        return std::nullopt;
    }
    int transparentIndex = -1;
    if (!skipToFirstImage(gif.get(), transparentIndex)) {
        setError(error, gifMessage("GIF without a readable image", gif->Error));
        return std::nullopt;
    }
    const GifImageDesc& desc = gif->Image;
    if (desc.Width <= 0 || desc.Height <= 0 || desc.Left < 0 || desc.Top < 0) {
        setError(error, "invalid GIF frame");
        return std::nullopt;
    }
    // The logical screen is the picture; writers that left it empty get the frame's extent instead.
    int width = gif->SWidth, height = gif->SHeight;
    if (width <= 0 || height <= 0) {
        width = desc.Left + desc.Width;
        height = desc.Top + desc.Height;
    }
    if (!checkDimensions(uint64_t(width), uint64_t(height), options.maxPixels, error)) return std::nullopt;
    if (!checkDimensions(uint64_t(desc.Width), uint64_t(desc.Height), options.maxPixels, error)) return std::nullopt;

    const ColorMapObject* map = desc.ColorMap ? desc.ColorMap : gif->SColorMap;
    uint8_t palette[256][4];
    for (int i = 0; i < 256; ++i) {
        const bool known = map != nullptr && i < map->ColorCount;
        // Without any colour table a grey ramp is the most useful guess.
        palette[i][0] = known ? map->Colors[i].Red : map ? 0 : uint8_t(i);
        palette[i][1] = known ? map->Colors[i].Green : map ? 0 : uint8_t(i);
        palette[i][2] = known ? map->Colors[i].Blue : map ? 0 : uint8_t(i);
        palette[i][3] = 255;
    }
    if (transparentIndex >= 0) std::memset(palette[transparentIndex], 0, 4);  // transparent black

    DecodedImage image;
    if (!allocatePixels(image, width, height, false, error)) return std::nullopt;
    image.hasAlpha = transparentIndex >= 0 || desc.Left > 0 || desc.Top > 0 || desc.Left + desc.Width < width ||
                     desc.Top + desc.Height < height;
    std::vector<GifPixelType> line(size_t(desc.Width));
    std::vector<uint8_t> rowDone(size_t(desc.Height), 0);
    // Interlaced frames store rows in four passes: every 8th from 0, every 8th from 4, every 4th from 2,
    // every 2nd from 1.
    static constexpr int kStart[4] = {0, 4, 2, 1}, kStep[4] = {8, 8, 4, 2};
    const int passes = desc.Interlace ? 4 : 1;
    const int visible = std::min(desc.Width, width - desc.Left);  // frame columns inside the screen
    bool complete = true;
    int rowsRead = 0;
    for (int pass = 0; pass < passes && complete; ++pass) {
        const int start = desc.Interlace ? kStart[pass] : 0, step = desc.Interlace ? kStep[pass] : 1;
        for (int y = start; y < desc.Height; y += step) {
            if (DGifGetLine(gif.get(), line.data(), desc.Width) == GIF_ERROR) {
                complete = false;
                break;
            }
            ++rowsRead;
            rowDone[size_t(y)] = 1;
            const int canvasY = desc.Top + y;
            if (canvasY >= height || visible <= 0) continue;
            uint8_t* out = image.pixels.data() + size_t(canvasY) * image.stride() + size_t(desc.Left) * 4;
            for (int x = 0; x < visible; ++x) std::memcpy(out + x * 4, palette[line[size_t(x)]], 4);
        }
    }
    if (!complete) {
        if (rowsRead == 0) {
            setError(error, gifMessage("invalid GIF image data", gif->Error));
            return std::nullopt;
        }
        for (int y = 0; y < desc.Height; ++y) {
            const int canvasY = desc.Top + y;
            if (rowDone[size_t(y)] || canvasY >= height || visible <= 0) continue;
            uint8_t* out = image.pixels.data() + size_t(canvasY) * image.stride() + size_t(desc.Left) * 4;
            for (int x = 0; x < visible; ++x, out += 4) {
                out[0] = out[1] = out[2] = 128;
                out[3] = 255;
            }
        }
    }
    return image;
}

}  // namespace voimg::detail

// This decoder is built as a codec module; the engine reads GIF headers itself.
VO_CODEC_MODULE(voimg::FileFormat::Gif, voimg::detail::decodeGif, nullptr)
