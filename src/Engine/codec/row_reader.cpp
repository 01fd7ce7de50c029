// SPDX-License-Identifier: MIT
#include "row_reader_p.h"

#include <cstring>

namespace voimg {
namespace detail {

void StreamingRowReader::fillGrey(uint8_t* out, int count) const {
    DecodedImage rows;
    rows.width = width_, rows.height = count, rows.sixteenBit = sixteenBit_;
    rows.pixels.resize(size_t(count) * stride());
    fillMissingRows(rows, 0, count);
    std::memcpy(out, rows.pixels.data(), rows.pixels.size());
}

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

}  // namespace
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
