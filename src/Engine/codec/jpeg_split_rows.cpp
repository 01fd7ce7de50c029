// SPDX-License-Identifier: MIT
#include "jpeg_split_rows_p.h"

#include "codec_p.h"
#include "jpeg_common_p.h"
#include "jpeg_ycbcr_rows_p.h"

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <thread>

namespace voimg::detail {
namespace {

bool fillLayout(const jpeg_decompress_struct& cinfo, unsigned scale, BaselineScanLayout& layout) {
    const int count = cinfo.num_components;
    const bool grey = count == 1 && cinfo.jpeg_color_space == JCS_GRAYSCALE;
    const bool ycc = count == 3 && cinfo.jpeg_color_space == JCS_YCbCr;
    if (cinfo.progressive_mode || cinfo.arith_code || cinfo.data_precision != 8 || cinfo.restart_interval != 0 ||
        cinfo.comps_in_scan != count || !(grey || ycc))
        return false;
    layout.width = int(cinfo.image_width);
    layout.height = int(cinfo.image_height);
    layout.scale = int(scale);
    layout.componentCount = count;
    for (int c = 0; c < count; ++c) {
        const jpeg_component_info& info = cinfo.comp_info[c];
        if (cinfo.cur_comp_info[c] != &cinfo.comp_info[c]) return false;  // scan order differs from frame order
        const JQUANT_TBL* quant = info.quant_tbl_no >= 0 && info.quant_tbl_no < NUM_QUANT_TBLS
                                      ? cinfo.quant_tbl_ptrs[info.quant_tbl_no]
                                      : nullptr;
        if (!quant || info.dc_tbl_no < 0 || info.dc_tbl_no > 3 || info.ac_tbl_no < 0 || info.ac_tbl_no > 3)
            return false;
        const JHUFF_TBL* dc = cinfo.dc_huff_tbl_ptrs[info.dc_tbl_no];
        const JHUFF_TBL* ac = cinfo.ac_huff_tbl_ptrs[info.ac_tbl_no];
        if (!dc || !ac) return false;
        HuffmanDecodeTable& dcTable = layout.dcTables[size_t(info.dc_tbl_no)];
        HuffmanDecodeTable& acTable = layout.acTables[size_t(info.ac_tbl_no)];
        if (!dcTable.build(dc->bits + 1, dc->huffval, false) || !acTable.build(ac->bits + 1, ac->huffval, true))
            return false;
        BaselineComponent& component = layout.components[size_t(c)];
        component.horizontal = info.h_samp_factor;
        component.vertical = info.v_samp_factor;
        for (int i = 0; i < 64; ++i) component.quant[i] = uint16_t(quant->quantval[i]);
        component.dc = &dcTable;
        component.ac = &acTable;
    }
    return layout.prepare();
}

}  // namespace

std::unique_ptr<SplitJpegRows> SplitJpegRows::open(const jpeg_decompress_struct& cinfo, ByteSource& file,
                                                   uint64_t dataStart, unsigned scale, uint64_t minBytes,
                                                   std::optional<SplitScanSettings> settings) {
    const uint64_t size = file.size();
    if (dataStart >= size || size - dataStart < minBytes) return nullptr;
    const int cores = int(std::thread::hardware_concurrency());
    if (!settings && cores < 2) return nullptr;
    std::unique_ptr<SplitJpegRows> rows(new SplitJpegRows);
    if (!fillLayout(cinfo, scale, rows->layout_)) return nullptr;
    if (!settings) {
        settings = SplitScanSettings{};
        settings->threads = std::min(cores, 4);
        settings->segments = SplitScanDecoder::segmentsFor(rows->layout_, size - dataStart, settings->threads);
    }
    rows->decoder_ = std::make_unique<SplitScanDecoder>(rows->layout_, file, dataStart, *settings);
    const BaselineScanLayout& layout = rows->layout_;
    rows->band_.resize(size_t(layout.mcuHeight) * size_t(rows->width()) * 4);
    rows->planes_.resize(size_t(layout.componentCount) * size_t(layout.mcuHeight) * size_t(layout.mcuColumns) *
                         size_t(layout.mcuWidth));
    return rows;
}

std::unique_ptr<SplitJpegRows> openSplitJpegRows(ByteSource& source, unsigned scale,
                                                 const SplitScanSettings& settings) {
    if (!source.memory()) return nullptr;
    jpeg_decompress_struct cinfo{};
    JpegErrorManager err{};
    jpeg_progress_mgr progress{};
    installJpegHandlers(cinfo, err, progress);
    std::unique_ptr<SplitJpegRows> rows;
    if (setjmp(err.jump) == 0) {
        jpeg_create_decompress(&cinfo);
        jpeg_mem_src(&cinfo, source.memory(), static_cast<unsigned long>(source.size()));
        if (jpeg_read_header(&cinfo, TRUE) == JPEG_HEADER_OK &&
            checkDimensions(cinfo.image_width, cinfo.image_height, kDefaultMaxPixels, nullptr)) {
            const uint64_t dataStart = uint64_t(cinfo.src->next_input_byte - source.memory());
            rows = SplitJpegRows::open(cinfo, source, dataStart, scale, 0, settings);
        }
    }
    jpeg_destroy_decompress(&cinfo);
    return rows;
}

SplitJpegRows::~SplitJpegRows() { decoder_.reset(); }  // its threads read the layout

int SplitJpegRows::readRows(uint8_t* out, int maxRows) {
    const size_t stride = size_t(width()) * 4;
    int done = 0;
    while (done < maxRows) {
        if (bandTaken_ == bandRows_) {
            if (nextMcuRow_ == layout_.mcuRows) break;
            convertMcuRow();
        }
        const int count = std::min(maxRows - done, bandRows_ - bandTaken_);
        std::memcpy(out + size_t(done) * stride, band_.data() + size_t(bandTaken_) * stride, size_t(count) * stride);
        bandTaken_ += count, done += count;
    }
    return done;
}

void SplitJpegRows::convertMcuRow() {
    const int mcuWidth = layout_.mcuWidth, mcuHeight = layout_.mcuHeight;
    const int plane = mcuWidth * mcuHeight;
    const size_t planeStride = size_t(layout_.mcuColumns) * size_t(mcuWidth);
    const int components = layout_.componentCount;
    bandRows_ = std::min(mcuHeight, height() - nextMcuRow_ * mcuHeight);
    bandTaken_ = 0;
    // Gather the MCUs' samples into rows, DC corrected (modulo 2^16, as they were stored).
    for (int column = 0; column < layout_.mcuColumns; ++column) {
        const SplitScanDecoder::Mcu mcu =
            decoder_->mcu(uint64_t(nextMcuRow_) * uint64_t(layout_.mcuColumns) + uint64_t(column));
        for (int c = 0; c < components; ++c) {
            const uint16_t shift = uint16_t(uint32_t(mcu.dcShift[size_t(c)]) * layout_.components[size_t(c)].quant[0]);
            for (int y = 0; y < bandRows_; ++y) {
                int16_t* row = planes_.data() + (size_t(c) * size_t(mcuHeight) + size_t(y)) * planeStride +
                               size_t(column) * size_t(mcuWidth);
                if (!mcu.samples) {  // the data ended: mid grey, as libjpeg leaves blocks it has no data for
                    std::fill_n(row, mcuWidth, int16_t(0));
                    continue;
                }
                const int16_t* samples = mcu.samples + c * plane + y * mcuWidth;
                for (int x = 0; x < mcuWidth; ++x) row[x] = int16_t(uint16_t(uint16_t(samples[x]) + shift));
            }
        }
    }
    const size_t stride = size_t(width()) * 4;
    for (int y = 0; y < bandRows_; ++y) {
        const int16_t* luma = planes_.data() + size_t(y) * planeStride;
        uint8_t* out = band_.data() + size_t(y) * stride;
        if (components == 1)
            greyRowToRgba(luma, width(), out);
        else
            ycbcrRowToRgba(luma, luma + size_t(mcuHeight) * planeStride, luma + 2 * size_t(mcuHeight) * planeStride,
                           width(), out);
    }
    ++nextMcuRow_;
}

}  // namespace voimg::detail
