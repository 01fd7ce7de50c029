// SPDX-License-Identifier: MIT
// Public decode entry points: recognise the format from the content and hand over to its decoder.
#include "codec_module_p.h"
#include "file_source_p.h"

namespace voimg {

std::optional<DecodedImage> decodeImageMemory(const uint8_t* data, size_t size, const DecodeOptions& options,
                                              std::string* error) {
    using namespace detail;
    if (data == nullptr || size == 0) {
        setError(error, "no data");
        return std::nullopt;
    }
    DecodeOptions checked = options;
    if (checked.scaleDenominator < 1) checked.scaleDenominator = 1;
    DecodeResult result;
    // Library code may throw (libheif is C++; allocations anywhere); nothing escapes as an exception.
    try {
        switch (sniffFormat(data, size)) {
            case FileFormat::Jpeg:
                result = decodeJpeg(data, size, checked, error);
                break;
            case FileFormat::Png:
                result = decodePng(data, size, checked, error);
                break;
            case FileFormat::Tiff:
                result = decodeWithModule(FileFormat::Tiff, data, size, checked, error);
                break;
            case FileFormat::WebP:
                result = decodeWithModule(FileFormat::WebP, data, size, checked, error);
                break;
            case FileFormat::Gif:
                result = decodeWithModule(FileFormat::Gif, data, size, checked, error);
                break;
            case FileFormat::Heif:
                result = decodeWithModule(FileFormat::Heif, data, size, checked, error);
                break;
            case FileFormat::Bmp:
                result = decodeBmp(data, size, checked, error);
                break;
            case FileFormat::Unknown:
                setError(error, "unrecognised image format");
                break;
        }
    } catch (const std::bad_alloc&) {
        setError(error, "out of memory while decoding");
        result.reset();
    } catch (const std::exception& e) {
        setError(error, std::string("decoder failure: ") + e.what());
        result.reset();
    } catch (...) {
        setError(error, "decoder failure");
        result.reset();
    }
    return result;
}

std::optional<DecodedImage> decodeImageFile(const std::string& path, const DecodeOptions& options, std::string* error) {
    using namespace detail;
    FileSource file;
    if (!file.open(path, error)) return std::nullopt;
    // Look at the magic bytes first so that a huge file of something else is never read in full.
    uint8_t head[kSniffBytes];
    const size_t headLength = file.readAt(0, head, sizeof head);
    if (sniffFormat(head, headLength) == FileFormat::Unknown) {
        setError(error, headLength == 0 ? "cannot read file" : "unrecognised image format");
        return std::nullopt;
    }
    size_t length = 0;
    const std::unique_ptr<uint8_t[]> data = file.readAll(length, error);
    if (!data) return std::nullopt;
    return decodeImageMemory(data.get(), length, options, error);
}

}  // namespace voimg
