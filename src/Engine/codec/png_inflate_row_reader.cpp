// SPDX-License-Identifier: MIT
// The common PNG (not interlaced; 8 or 16 bits of grey, grey and alpha, RGB or RGBA; no transparency key,
// no colour profile) read with zlib directly. Inflating is the one part of PNG decoding that must run in
// order, so readRows() does only that; undoing the row filters and expanding to RGBA happen in
// finishRows(), which the caller runs on another thread while the next rows inflate. Anything else, and
// anything doubtful in the header, is left to the libspng reader.
#include "png_unfilter_p.h"
#include "row_reader_p.h"

#include <zlib.h>

#include <bit>
#include <cstring>

namespace voimg::detail {
namespace {

constexpr size_t kInputBytes = size_t(64) << 10;
constexpr uint8_t kMissingRow = 0xFF;  // filter byte marking a row the data did not provide

uint32_t be32(const uint8_t* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

class InflatingPngReader final : public StreamingRowReader {
public:
    explicit InflatingPngReader(std::unique_ptr<FileSource> file) : owned_(std::move(file)), file_(*owned_) {}
    ~InflatingPngReader() override {
        if (zlibReady_) inflateEnd(&zlib_);
    }

    // False when this reader does not apply (the caller then uses libspng, which also reports errors).
    bool start(const RowReadOptions& options) {
        uint8_t signature[8];
        static const uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
        if (!file_.readExact(0, signature, 8) || std::memcmp(signature, kSignature, 8) != 0) return false;
        offset_ = 8;
        bool sawHeader = false;
        for (;;) {
            uint8_t head[8];
            if (!file_.readExact(offset_, head, 8)) return false;
            const uint32_t length = be32(head);
            if (length > 0x7FFFFFFFu) return false;
            if (std::memcmp(head + 4, "IDAT", 4) == 0) {
                if (!sawHeader) return false;
                idatLeft_ = length;
                offset_ += 8;
                break;
            }
            // Everything before the image data is small; check it whole, CRC included.
            if (length > (1u << 24)) return false;
            std::vector<uint8_t> chunk(size_t(length) + 8);
            if (!file_.readExact(offset_ + 4, chunk.data(), chunk.size())) return false;
            if (crc32(0, chunk.data(), length + 4) != be32(chunk.data() + length + 4)) return false;
            const uint8_t* type = chunk.data();
            const uint8_t* data = chunk.data() + 4;
            if (std::memcmp(type, "IHDR", 4) == 0) {
                if (sawHeader || length != 13 || !readHeader(data, options)) return false;
                sawHeader = true;
            } else if (!sawHeader || std::memcmp(type, "tRNS", 4) == 0 || std::memcmp(type, "iCCP", 4) == 0 ||
                       std::memcmp(type, "IEND", 4) == 0) {
                return false;
            }
            offset_ += 12 + uint64_t(length);
        }
        // The data is inflated raw, past the two-byte zlib header: its closing checksum would only be
        // checked after the last row was handed out, too late to matter, and costs time on this thread.
        input_.resize(kInputBytes);
        uint8_t header[2];
        for (uint8_t& byte : header) {
            if (zlib_.avail_in == 0 && !refill()) return false;
            byte = *zlib_.next_in++;
            --zlib_.avail_in;
        }
        const bool deflate = (header[0] & 0x0F) == 8 && (header[0] >> 4) <= 7;
        if (!deflate || (header[0] * 256 + header[1]) % 31 != 0 || (header[1] & 0x20) != 0) return false;
        if (inflateInit2(&zlib_, -15) != Z_OK) return false;
        zlibReady_ = true;
        previous_.assign(rowBytes_, 0);
        // The first row now: without any, the file is left to libspng to report.
        first_.resize(rawStride());
        return inflateRow(first_.data());
    }

    [[nodiscard]] size_t rawStride() const override { return 1 + rowBytes_; }
    [[nodiscard]] bool finishesRows() const override { return true; }

    // Hands the file back after start() declined it.
    std::unique_ptr<FileSource> takeFile() { return std::move(owned_); }

    int readRows(uint8_t* out, int maxRows) override {
        const int wanted = std::min(maxRows, height_ - produced_);
        if (wanted <= 0) return 0;
        int count = 0;
        if (!first_.empty()) {
            std::memcpy(out, first_.data(), rawStride());
            first_ = {};
            count = 1;
        }
        // All the rows in one call: zlib's fast loop runs while there are 258 bytes of room left, which
        // per-row calls would leave at every row's end.
        const int whole = inflateRows(out + size_t(count) * rawStride(), wanted - count);
        for (int i = count + whole; i < wanted; ++i) out[size_t(i) * rawStride()] = kMissingRow;
        produced_ += wanted;
        return wanted;
    }

    const uint8_t* finishRows(uint8_t* raw, int count, uint8_t* scratch) override {
        for (int i = 0; i < count; ++i) {
            uint8_t* row = raw + size_t(i) * rawStride();
            uint8_t* out = scratch + size_t(i) * stride();
            if (broken_ || row[0] == kMissingRow ||
                !unfilterRow(row[0], row + 1, previous_.data(), rowBytes_, channels_ * bytesPerSample_)) {
                // Once a row is lost the ones below cannot be reconstructed either.
                broken_ = true;
                fillGrey(out, 1);
                continue;
            }
            std::memcpy(previous_.data(), row + 1, rowBytes_);
            expand(row + 1, out);
        }
        return scratch;
    }

private:
    bool readHeader(const uint8_t* h, const RowReadOptions& options) {
        const uint32_t width = be32(h), height = be32(h + 4);
        const int depth = h[8], colour = h[9];
        if (h[10] != 0 || h[11] != 0 || h[12] != 0) return false;  // compression, filter, interlace
        if (depth != 8 && depth != 16) return false;
        switch (colour) {
            case 0:
                channels_ = 1;
                break;
            case 2:
                channels_ = 3;
                break;
            case 4:
                channels_ = 2;
                break;
            case 6:
                channels_ = 4;
                break;
            default:
                return false;
        }
        if (!checkDimensions(width, height, options.maxPixels, nullptr)) return false;
        bytesPerSample_ = depth / 8;
        rowBytes_ = size_t(width) * size_t(channels_) * size_t(bytesPerSample_);
        setSize(int(width), int(height), depth == 16, colour == 4 || colour == 6);
        grey_ = colour == 0 || colour == 4;
        return true;
    }

    // Inflates one raw row (filter byte and samples); false when the data ends or is corrupt first.
    bool inflateRow(uint8_t* row) { return inflateBytes(row, rawStride()); }

    // Inflates up to `count` consecutive raw rows; returns how many came out whole.
    int inflateRows(uint8_t* rows, int count) {
        if (size_t(count) * rawStride() > UINT32_MAX) {  // more than zlib takes at once: row by row
            for (int i = 0; i < count; ++i)
                if (!inflateRow(rows + size_t(i) * rawStride())) return i;
            return count;
        }
        const bool whole = inflateBytes(rows, size_t(count) * rawStride());
        return whole ? count : int(size_t(zlib_.next_out - rows) / rawStride());
    }

    // False when the data ends or is corrupt before `length` bytes came out.
    bool inflateBytes(uint8_t* out, size_t length) {
        if (failed_) {
            zlib_.next_out = out;
            return false;
        }
        zlib_.next_out = out;
        zlib_.avail_out = uInt(length);
        while (zlib_.avail_out > 0) {
            if (zlib_.avail_in == 0 && !refill()) return fail();
            const int rc = inflate(&zlib_, Z_NO_FLUSH);
            if (rc == Z_STREAM_END && zlib_.avail_out > 0) return fail();
            if (rc != Z_OK && rc != Z_STREAM_END && !(rc == Z_BUF_ERROR && zlib_.avail_in == 0)) return fail();
        }
        return true;
    }

    // More compressed bytes from the current IDAT chunk, or the next one.
    bool refill() {
        while (idatLeft_ == 0) {
            offset_ += 4;  // the finished chunk's CRC; zlib's own checksum guards the data
            uint8_t head[8];
            if (!file_.readExact(offset_, head, 8) || std::memcmp(head + 4, "IDAT", 4) != 0) return false;
            idatLeft_ = be32(head);
            if (idatLeft_ > 0x7FFFFFFFu) return false;
            offset_ += 8;
        }
        const size_t got = file_.readAt(offset_, input_.data(), std::min<size_t>(idatLeft_, input_.size()));
        if (got == 0) return false;
        offset_ += got;
        idatLeft_ -= uint32_t(got);
        zlib_.next_in = input_.data();
        zlib_.avail_in = uInt(got);
        return true;
    }

    bool fail() {
        failed_ = true;
        return false;
    }

    // Unfiltered samples to RGBA at the picture's depth (16-bit samples become native-endian).
    void expand(const uint8_t* in, uint8_t* out) const {
        const int w = width_;
        if (bytesPerSample_ == 1) {
            switch (channels_) {
                case 4:
                    std::memcpy(out, in, size_t(w) * 4);
                    return;
                case 3:
                    for (int x = 0; x < w; ++x, in += 3, out += 4)
                        out[0] = in[0], out[1] = in[1], out[2] = in[2], out[3] = 255;
                    return;
                case 2:
                    for (int x = 0; x < w; ++x, in += 2, out += 4) out[0] = out[1] = out[2] = in[0], out[3] = in[1];
                    return;
                default: {  // whole pixels at a time, which the compiler vectorises
                    constexpr bool little = std::endian::native == std::endian::little;
                    constexpr uint32_t spread = little ? 0x00010101u : 0x01010100u,
                                       opaque = little ? 0xFF000000u : 0xFFu;
                    for (int x = 0; x < w; ++x, out += 4) {
                        const uint32_t pixel = uint32_t(in[x]) * spread | opaque;
                        std::memcpy(out, &pixel, 4);
                    }
                    return;
                }
            }
        }
        auto* samples = reinterpret_cast<uint16_t*>(out);
        auto at = [in](int i) { return uint16_t(in[2 * i] << 8 | in[2 * i + 1]); };
        for (int x = 0; x < w; ++x, samples += 4) {
            const int base = x * channels_;
            const uint16_t first = at(base);
            const bool colour = channels_ >= 3;
            samples[0] = first;
            samples[1] = colour ? at(base + 1) : first;
            samples[2] = colour ? at(base + 2) : first;
            samples[3] = channels_ == 4 ? at(base + 3) : channels_ == 2 ? at(base + 1) : uint16_t(0xFFFF);
        }
    }

    std::unique_ptr<FileSource> owned_;
    FileSource& file_;
    uint64_t offset_ = 0;
    uint32_t idatLeft_ = 0;
    z_stream zlib_{};
    bool zlibReady_ = false;
    bool failed_ = false;
    bool broken_ = false;
    std::vector<uint8_t> input_;
    std::vector<uint8_t> previous_;
    std::vector<uint8_t> first_;
    int channels_ = 0;
    int bytesPerSample_ = 1;
    size_t rowBytes_ = 0;
    int produced_ = 0;
};

}  // namespace

std::unique_ptr<RowReader> openInflatingPngRowReader(std::unique_ptr<FileSource>& file, const RowReadOptions& options) {
    auto reader = std::make_unique<InflatingPngReader>(std::move(file));
    if (reader->start(options)) return reader;
    file = reader->takeFile();
    return nullptr;
}

}  // namespace voimg::detail
