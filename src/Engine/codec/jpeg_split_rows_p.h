// SPDX-License-Identifier: MIT
// Rows of a large baseline JPEG decoded at 1/2, 1/4 or 1/8 size by several threads (see
// jpeg_split_scan_p.h), as RGBA: each MCU row's samples shifted by their DC correction, limited, and
// converted from YCbCr.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <jpeglib.h>

#include "jpeg_split_scan_p.h"

namespace voimg::detail {

// A JPEG in memory (`source.memory()`) read with the given settings, whatever its size; null as open().
[[nodiscard]] std::unique_ptr<class SplitJpegRows> openSplitJpegRows(ByteSource& source, unsigned scale,
                                                                     const SplitScanSettings& settings);

class SplitJpegRows {
public:
    // After jpeg_read_header(): null unless the file is one sequential Huffman scan of 8-bit grey or YCbCr
    // without restart markers, `scale` is 2, 4 or 8, and at least `minBytes` of entropy data follow
    // `dataStart`. Without `settings`, also null on a machine with one core; else it uses its cores.
    [[nodiscard]] static std::unique_ptr<SplitJpegRows> open(const jpeg_decompress_struct& cinfo, ByteSource& file,
                                                             uint64_t dataStart, unsigned scale, uint64_t minBytes,
                                                             std::optional<SplitScanSettings> settings = {});
    ~SplitJpegRows();

    [[nodiscard]] int width() const { return layout_.outputWidth(); }
    [[nodiscard]] int height() const { return layout_.outputHeight(); }
    // Writes the next rows (at most `maxRows`, RGBA) and returns how many; 0 at the end.
    int readRows(uint8_t* out, int maxRows);
    [[nodiscard]] SplitScanStats stats() const { return decoder_->stats(); }

private:
    SplitJpegRows() = default;
    void convertMcuRow();

    BaselineScanLayout layout_;
    std::unique_ptr<SplitScanDecoder> decoder_;
    std::vector<int16_t> planes_;  // one MCU row of samples, each component's rows in turn
    std::vector<uint8_t> band_;    // the same rows as RGBA pixels
    int bandRows_ = 0, bandTaken_ = 0;
    int nextMcuRow_ = 0;
};

}  // namespace voimg::detail
