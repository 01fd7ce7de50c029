// SPDX-License-Identifier: MIT
// Non-interlaced PNG read a few rows at a time straight from the file: libspng inflates and unfilters one
// row per call, so memory stays one row of the picture however large it is.
#include "icc_convert_p.h"
#include "row_reader_p.h"

#include <spng.h>

namespace voimg::detail {
namespace {

// The same caps as the whole-picture decoder: generous for real chunks, small enough to stop bombs.
constexpr size_t kChunkSizeLimit = 16u << 20;
constexpr size_t kChunkCacheLimit = 64u << 20;

class PngRowReader final : public StreamingRowReader {
public:
    explicit PngRowReader(std::unique_ptr<FileSource> file) : file_(std::move(file)) {}
    ~PngRowReader() override {
        if (ctx_) spng_ctx_free(ctx_);
    }

    // False with `error` set when the file cannot be read; false with `error` empty for interlaced files.
    bool start(const RowReadOptions& options, std::string* error) {
        ctx_ = spng_ctx_new(0);
        if (ctx_ == nullptr) return fail(error, "out of memory");
        spng_set_chunk_limits(ctx_, kChunkSizeLimit, kChunkCacheLimit);
        spng_set_image_limits(ctx_, 0x7fffffffu, 0x7fffffffu);
        spng_set_png_stream(ctx_, readFromFile, this);

        spng_ihdr ihdr{};
        if (int rc = spng_get_ihdr(ctx_, &ihdr); rc != 0) return fail(error, "invalid PNG: ", rc);
        if (!checkDimensions(ihdr.width, ihdr.height, options.maxPixels, error)) return false;
        if (ihdr.interlace_method != 0) return false;
        const bool sixteen = ihdr.bit_depth == 16;
        const int format = sixteen ? SPNG_FMT_RGBA16 : SPNG_FMT_RGBA8;
        if (int rc = spng_decode_image(ctx_, nullptr, 0, format, SPNG_DECODE_TRNS | SPNG_DECODE_PROGRESSIVE); rc != 0)
            return fail(error, "invalid PNG: ", rc);
        spng_trns trns{};
        const bool alpha = ihdr.color_type == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA ||
                           ihdr.color_type == SPNG_COLOR_TYPE_TRUECOLOR_ALPHA || spng_get_trns(ctx_, &trns) == 0;
        setSize(int(ihdr.width), int(ihdr.height), sixteen, alpha);
        spng_iccp iccp{};
        if (spng_get_iccp(ctx_, &iccp) == 0 && iccp.profile != nullptr) {
            const bool grey =
                ihdr.color_type == SPNG_COLOR_TYPE_GRAYSCALE || ihdr.color_type == SPNG_COLOR_TYPE_GRAYSCALE_ALPHA;
            icc_ = std::make_unique<IccToSrgb>(reinterpret_cast<const uint8_t*>(iccp.profile), iccp.profile_len,
                                               grey ? IccLayout::GreyInRgba : IccLayout::Rgb, sixteen);
            if (!icc_->converts()) icc_.reset();
        }
        // The first row now, so that a file without readable image data fails here.
        first_.resize(stride());
        if (decodeInto(first_.data(), 1) == 0) return fail(error, "invalid PNG: ", lastCode_);
        return true;
    }

    int readRows(uint8_t* out, int maxRows) override {
        const int wanted = std::min(maxRows, height_ - produced_);
        if (wanted <= 0) return 0;
        int count = 0;
        if (!first_.empty()) {
            std::memcpy(out, first_.data(), stride());
            first_ = {};
            count = 1;
        }
        if (count < wanted) {
            uint8_t* rest = out + size_t(count) * stride();
            const int got = decodeInto(rest, wanted - count);
            if (got < wanted - count) fillGrey(rest + size_t(got) * stride(), wanted - count - got);
            count = wanted;
        }
        produced_ += count;
        return count;
    }

private:
    static int readFromFile(spng_ctx*, void* user, void* dst, size_t length) {
        auto* self = static_cast<PngRowReader*>(user);
        const size_t got = self->file_->readAt(self->offset_, dst, length);
        self->offset_ += got;
        return got == length ? 0 : SPNG_IO_EOF;
    }

    // Decodes up to `count` rows; fewer once the data ends or is corrupt.
    int decodeInto(uint8_t* out, int count) {
        int done = 0;
        while (!ended_ && done < count) {
            spng_row_info info{};
            if ((lastCode_ = spng_get_row_info(ctx_, &info)) != 0 || info.row_num >= uint32_t(height_)) {
                ended_ = true;
                break;
            }
            uint8_t* row = out + size_t(done) * stride();
            const int rc = spng_decode_row(ctx_, row, stride());
            if (rc != 0 && rc != SPNG_EOI) {
                lastCode_ = rc;
                ended_ = true;
                break;
            }
            if (icc_) icc_->convert(row, size_t(width_));
            ++done;
            if (rc == SPNG_EOI) ended_ = true;
        }
        return done;
    }

    bool fail(std::string* error, const char* what, int code = 0) {
        setError(error, code ? std::string(what) + spng_strerror(code) : std::string(what));
        return false;
    }

    std::unique_ptr<FileSource> file_;
    uint64_t offset_ = 0;
    spng_ctx* ctx_ = nullptr;
    std::unique_ptr<IccToSrgb> icc_;
    std::vector<uint8_t> first_;
    bool ended_ = false;
    int lastCode_ = 0;
    int produced_ = 0;
};

}  // namespace

std::unique_ptr<RowReader> openPngRowReader(std::unique_ptr<FileSource> file, const RowReadOptions& options,
                                            std::string* error) {
    auto reader = std::make_unique<PngRowReader>(std::move(file));
    if (!reader->start(options, error)) return nullptr;
    return reader;
}

}  // namespace voimg::detail
