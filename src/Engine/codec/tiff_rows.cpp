// SPDX-License-Identifier: MIT
// A TIFF read one strip at a time, straight from the file, for callers that shrink it row by row: the
// common stripped layouts (8- or 16-bit RGB(A) or grey, samples contiguous, alpha straight) never need the
// file or the picture in memory, and the caller's resizing runs while the next strips decompress. Other
// layouts are decoded whole. Strips are decompressed on two threads where there are two cores (a second
// libtiff handle on the same file for the helper), since decompressing is most of the work.
#include "icc_convert_p.h"
#include "row_reader_p.h"
#include "strip_queue_p.h"
#include "tiff_p.h"

#include <cstring>
#include <memory>
#include <thread>
#include <vector>

namespace voimg::detail {
namespace {

class TiffStripReader final : public StreamingRowReader {
public:
    explicit TiffStripReader(ByteSource& source) : source_(source) {}

    // False with `error` empty when the layout is not one this reader streams.
    bool start(const DecodeOptions& options, std::string* error) {
        const uint64_t maxAlloc = options.maxPixels > (UINT64_MAX >> 4) ? UINT64_MAX : options.maxPixels * 8;
        if (!openTiff(reader_, source_, std::max<uint64_t>(maxAlloc, 64u << 20))) {
            setError(error, "invalid TIFF header");
            return false;
        }
        TIFF* tif = reader_.tif;
        uint32_t width = 0, height = 0;
        TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
        TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
        if (!checkDimensions(width, height, options.maxPixels, error)) return false;
        const TiffLayout layout = readTiffLayout(tif);
        const bool grey = layout.photometric == PHOTOMETRIC_MINISBLACK || layout.photometric == PHOTOMETRIC_MINISWHITE;
        const bool streamable =
            (layout.bitsPerSample == 8 || layout.bitsPerSample == 16) && layout.sampleFormat == SAMPLEFORMAT_UINT &&
            !TIFFIsTiled(tif) && (layout.planar == PLANARCONFIG_CONTIG || layout.samplesPerPixel == 1) &&
            !layout.premultiplied && ((layout.photometric == PHOTOMETRIC_RGB && layout.samplesPerPixel >= 3) || grey);
        if (!streamable) return false;
        setSize(int(width), int(height), layout.bitsPerSample == 16, layout.alphaIndex >= 0);
        samples_ = DirectSamples::of(tif, layout.alphaIndex);
        samplesPerPixel_ = layout.samplesPerPixel;
        alpha_ = layout.alphaIndex >= 0;

        uint32_t rowsPerStrip = height;
        TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        rowsPerStrip_ = std::max<uint32_t>(1, std::min(rowsPerStrip, height));
        const uint64_t stripBytes = TIFFStripSize64(tif);
        const uint64_t rowBytes = uint64_t(width) * samplesPerPixel_ * (sixteenBit_ ? 2 : 1);
        if (stripBytes < rowBytes * rowsPerStrip_ || stripBytes > std::max<uint64_t>(rowBytes * height * 4, 64u << 20))
            return false;  // a malformed strip size: the whole-picture decoder deals with it
        rowBytes_ = size_t(rowBytes);
        startStripQueue(size_t(stripBytes), maxAlloc);

        uint32_t iccSize = 0;
        void* iccData = nullptr;
        if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccSize, &iccData) && iccData != nullptr) {
            icc_ = std::make_unique<IccToSrgb>(static_cast<const uint8_t*>(iccData), iccSize,
                                               grey ? IccLayout::GreyInRgba : IccLayout::Rgb, sixteenBit_);
            if (!icc_->converts()) icc_.reset();
        }
        return true;
    }

    // Raw rows are the stored samples behind a prefix whose first byte says whether the strip decoded (eight
    // bytes, so 16-bit samples stay aligned); expanding them to RGBA (and converting a profile) is left to
    // finishRows, off the decompressing thread.
    static constexpr size_t kPrefix = 8;
    [[nodiscard]] size_t rawStride() const override { return kPrefix + rowBytes_; }
    [[nodiscard]] bool finishesRows() const override { return true; }

    int readRows(uint8_t* out, int maxRows) override {
        const int count = std::min(maxRows, height_ - next_);
        for (int i = 0; i < count; ++i, ++next_) {
            uint8_t* raw = out + size_t(i) * rawStride();
            const uint32_t strip = uint32_t(next_) / rowsPerStrip_;
            if (strip != loadedStrip_) loadedStrip_ = strip, stripData_ = queue_->piece(strip, stripGood_);
            raw[0] = stripGood_ ? 1 : 0;
            if (stripGood_)
                std::memcpy(raw + kPrefix, stripData_ + size_t(uint32_t(next_) % rowsPerStrip_) * rowBytes_, rowBytes_);
        }
        return count;
    }

    const uint8_t* finishRows(uint8_t* raw, int count, uint8_t* scratch) override {
        for (int i = 0; i < count; ++i) {
            const uint8_t* in = raw + size_t(i) * rawStride();
            uint8_t* row = scratch + size_t(i) * stride();
            if (in[0] == 0) {
                fillGrey(row, 1);
                continue;
            }
            if (sixteenBit_) {
                copyRow(reinterpret_cast<const uint16_t*>(in + kPrefix), reinterpret_cast<uint16_t*>(row));
            } else {
                copyRow(in + kPrefix, row);
            }
            if (icc_) icc_->convert(row, size_t(width_));
        }
        return scratch;
    }

private:
    template <typename T>
    void copyRow(const T* src, T* dst) {
        const T max = T(~T(0));
        const bool rgb = samples_.used >= 3 && samples_.channels[0] == 1,
                   plainGrey = samples_.used == 1 && !samples_.invert;
        // The common layouts directly; anything else through the general sample map.
        if (rgb && samplesPerPixel_ == 3) {
            for (int x = 0; x < width_; ++x, src += 3, dst += 4)
                dst[0] = src[0], dst[1] = src[1], dst[2] = src[2], dst[3] = max;
        } else if (rgb && samplesPerPixel_ == 4 && alpha_) {
            std::memcpy(dst, src, size_t(width_) * 4 * sizeof(T));
        } else if (plainGrey && samplesPerPixel_ == 1) {
            for (int x = 0; x < width_; ++x, ++src, dst += 4) dst[0] = dst[1] = dst[2] = src[0], dst[3] = max;
        } else {
            if (!alpha_)
                for (int x = 0; x < width_; ++x) dst[x * 4 + 3] = max;
            samples_.copy<T>(src, samplesPerPixel_, uint32_t(width_), -1, dst);
        }
    }

    // A helper thread when there are enough strips to share and a core for it, with up to 8 strips (16 MB)
    // decoded ahead; else one strip in memory, decoded on the reading thread.
    void startStripQueue(size_t stripBytes, uint64_t maxAlloc) {
        const uint32_t strips = (uint32_t(height_) + rowsPerStrip_ - 1) / rowsPerStrip_;
        const size_t slots = std::clamp<size_t>((16u << 20) / stripBytes, 1, 8);
        const bool helper = strips >= 4 && slots >= 2 && std::thread::hardware_concurrency() >= 2 &&
                            openTiff(helperReader_, source_, std::max<uint64_t>(maxAlloc, 64u << 20));
        queue_ = std::make_unique<StripQueue>(strips, stripBytes, helper ? int(slots) : 1, helper,
                                              [this, stripBytes](int decoder, uint32_t strip, uint8_t* out) {
                                                  return decodeStrip(decoder == 0 ? reader_ : helperReader_, strip, out,
                                                                     stripBytes);
                                              });
    }

    bool decodeStrip(TiffReader& reader, uint32_t strip, uint8_t* out, size_t bytes) const {
        const uint32_t rows = std::min(rowsPerStrip_, uint32_t(height_) - strip * rowsPerStrip_);
        const tmsize_t got = TIFFReadEncodedStrip(reader.tif, strip, out, tmsize_t(bytes));
        return got >= 0 && uint64_t(got) >= uint64_t(rows) * rowBytes_;
    }

    ByteSource& source_;
    TiffReader reader_, helperReader_;
    DirectSamples samples_;
    uint32_t samplesPerPixel_ = 1;
    bool alpha_ = false;
    uint32_t rowsPerStrip_ = 1;
    size_t rowBytes_ = 0;
    uint32_t loadedStrip_ = UINT32_MAX;
    const uint8_t* stripData_ = nullptr;
    bool stripGood_ = false;
    std::unique_ptr<IccToSrgb> icc_;
    int next_ = 0;
    std::unique_ptr<StripQueue> queue_;  // last, so that its helper stops before the handles close
};

}  // namespace

RowReader* openTiffRows(ByteSource& source, const DecodeOptions& options, std::string* error) {
    try {
        auto reader = std::make_unique<TiffStripReader>(source);
        if (!reader->start(options, error)) return nullptr;
        return reader.release();
    } catch (const std::bad_alloc&) {
        setError(error, "out of memory while decoding");
        return nullptr;
    }
}

}  // namespace voimg::detail
