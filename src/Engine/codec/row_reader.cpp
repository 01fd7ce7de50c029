// SPDX-License-Identifier: MIT
#include "codec_module_p.h"
#include "row_reader_p.h"

#include <cstring>

namespace voimg {
namespace detail {

namespace {

// Any format: the whole picture decoded at once, handed out in rows.
class DecodedRowReader final : public RowReader {
public:
    explicit DecodedRowReader(DecodedImage image) : image_(std::move(image)) {
        width_ = image_.width, height_ = image_.height, sixteenBit_ = image_.sixteenBit;
        hasAlpha_ = image_.hasAlpha;
    }
    int readRows(uint8_t* out, int maxRows) override {
        const int count = std::min(maxRows, height_ - next_);
        if (count <= 0) return 0;
        std::memcpy(out, image_.pixels.data() + size_t(next_) * stride(), size_t(count) * stride());
        next_ += count;
        if (next_ == height_) image_.pixels = {};
        return count;
    }

private:
    DecodedImage image_;
    int next_ = 0;
};

// A module's reader together with the file it reads from.
class OwningRowReader final : public RowReader {
public:
    OwningRowReader(std::unique_ptr<FileSource> file, std::unique_ptr<RowReader> reader)
        : file_(std::move(file)), reader_(std::move(reader)) {
        width_ = reader_->width(), height_ = reader_->height(), sixteenBit_ = reader_->sixteenBit();
        hasAlpha_ = reader_->hasAlpha();
    }
    ~OwningRowReader() override { reader_.reset(); }  // before the file it reads
    int readRows(uint8_t* out, int maxRows) override { return reader_->readRows(out, maxRows); }
    [[nodiscard]] size_t rawStride() const override { return reader_->rawStride(); }
    [[nodiscard]] bool finishesRows() const override { return reader_->finishesRows(); }
    const uint8_t* finishRows(uint8_t* raw, int count, uint8_t* scratch) override {
        return reader_->finishRows(raw, count, scratch);
    }

private:
    std::unique_ptr<FileSource> file_;
    std::unique_ptr<RowReader> reader_;
};

}  // namespace

std::unique_ptr<RowReader> openModuleRowReader(FileFormat format, std::unique_ptr<FileSource>& file,
                                               const RowReadOptions& options, std::string* error) {
    DecodeOptions decodeOptions;
    decodeOptions.scaleDenominator = options.scaleDenominator;
    decodeOptions.maxPixels = options.maxPixels;
    std::unique_ptr<RowReader> reader = openRowsWithModule(format, *file, decodeOptions, error);
    if (!reader) return nullptr;
    return std::make_unique<OwningRowReader>(std::move(file), std::move(reader));
}

}  // namespace detail

std::unique_ptr<RowReader> openRowReader(const std::string& path, const RowReadOptions& options, std::string* error) {
    using namespace detail;
    if (error) error->clear();
    try {
        auto file = std::make_unique<FileSource>();
        if (!file->open(path, error)) return nullptr;
        uint8_t head[kSniffBytes];
        const size_t headLength = file->readAt(0, head, sizeof head);
        const FileFormat format = sniffFormat(head, headLength);
        if (format == FileFormat::Jpeg) return openJpegRowReader(std::move(file), options, error);
        if (format == FileFormat::Tiff) {
            std::string moduleError;
            if (auto reader = openModuleRowReader(format, file, options, &moduleError)) return reader;
            if (!moduleError.empty()) {  // unreadable, or no module: as the whole decode would say
                setError(error, moduleError);
                return nullptr;
            }
        }
        if (format == FileFormat::Png) {
            if (auto reader = openInflatingPngRowReader(file, options)) return reader;
            std::string pngError;
            if (auto reader = openPngRowReader(std::move(file), options, &pngError)) return reader;
            if (!pngError.empty()) {  // not merely interlaced: unreadable
                setError(error, pngError);
                return nullptr;
            }
        }
        DecodeOptions whole;
        whole.scaleDenominator = options.scaleDenominator;
        whole.maxPixels = options.maxPixels;
        std::optional<DecodedImage> image = decodeImageFile(path, whole, error);
        if (!image) return nullptr;
        return std::make_unique<DecodedRowReader>(std::move(*image));
    } catch (const std::bad_alloc&) {
        setError(error, "out of memory while decoding");
        return nullptr;
    }
}

}  // namespace voimg
