// SPDX-License-Identifier: MIT
// JPEG read a few rows at a time. Baseline files stream from the file through a 64 KiB window, so memory
// stays a few rows of the picture. A progressive file must collect every scan before its first row, so its
// coefficients are held whole; when the caller shrinks the picture a lot, the scans that carry only detail
// finer than the result are dropped before decoding, which is most of the decoding time.
#include "icc_convert_p.h"
#include "jpeg_common_p.h"
#include "jpeg_scan_select_p.h"
#include "jpeg_split_rows_p.h"
#include "row_reader_p.h"

#include <csetjmp>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <jerror.h>

namespace voimg::detail {
namespace {

constexpr size_t kWindowBytes = size_t(64) << 10;

// libjpeg source reading a FileSource in windows; at the end of the file it reports the premature end and
// feeds an end-of-image marker, as libjpeg's own sources do.
struct FileWindowSource {
    jpeg_source_mgr pub{};
    FileSource* file = nullptr;
    uint64_t offset = 0;
    std::unique_ptr<JOCTET[]> window = std::make_unique_for_overwrite<JOCTET[]>(kWindowBytes);

    static FileWindowSource& of(j_decompress_ptr cinfo) { return *reinterpret_cast<FileWindowSource*>(cinfo->src); }
    static void init(j_decompress_ptr) {}
    static void term(j_decompress_ptr) {}
    static boolean fill(j_decompress_ptr cinfo) {
        FileWindowSource& self = of(cinfo);
        size_t got = self.file->readAt(self.offset, self.window.get(), kWindowBytes);
        self.offset += got;
        if (got == 0) {
            WARNMS(cinfo, JWRN_JPEG_EOF);
            self.window[0] = 0xFF;
            self.window[1] = JPEG_EOI;
            got = 2;
        }
        self.pub.next_input_byte = self.window.get();
        self.pub.bytes_in_buffer = got;
        return TRUE;
    }
    static void skip(j_decompress_ptr cinfo, long count) {
        FileWindowSource& self = of(cinfo);
        if (count <= 0) return;
        if (size_t(count) <= self.pub.bytes_in_buffer) {
            self.pub.next_input_byte += count;
            self.pub.bytes_in_buffer -= size_t(count);
            return;
        }
        self.offset += uint64_t(count) - self.pub.bytes_in_buffer;
        self.pub.bytes_in_buffer = 0;
        self.pub.next_input_byte = self.window.get();
    }

    void attach(jpeg_decompress_struct& cinfo, FileSource& source) {
        file = &source;
        offset = 0;
        pub.init_source = init;
        pub.fill_input_buffer = fill;
        pub.skip_input_data = skip;
        pub.resync_to_restart = jpeg_resync_to_restart;
        pub.term_source = term;
        pub.bytes_in_buffer = 0;
        pub.next_input_byte = nullptr;
        cinfo.src = &pub;
    }
};

class JpegRowReader final : public StreamingRowReader {
public:
    JpegRowReader(std::unique_ptr<FileSource> file, const RowReadOptions& options)
        : file_(std::move(file)), options_(options) {
        installJpegHandlers(cinfo_, err_, progress_);
    }
    ~JpegRowReader() override {
        if (created_) jpeg_destroy_decompress(&cinfo_);
        std::free(icc_);
    }

    bool start(std::string* error) {
        if (!startDecoder()) {
            setError(error, failureMessage_.empty() ? std::string("invalid JPEG: ") + err_.message : failureMessage_);
            return false;
        }
        if (jpegEndedBeforeAnyRow(err_)) {
            setError(error, "truncated JPEG: no image data");
            return false;
        }
        return true;
    }

    [[nodiscard]] bool readsWithHelpers() const override { return split_ != nullptr; }

    int readRows(uint8_t* out, int maxRows) override {
        const int wanted = std::min(maxRows, height_ - produced_);
        if (wanted <= 0) return 0;
        int count = 0;
        if (split_) {
            count = split_->readRows(out, wanted);
            if (iccToSrgb_) iccToSrgb_->convert(out, size_t(count) * size_t(width_));
            produced_ += count;
            return count;
        }
        if (!pending_.empty()) {
            count = std::min(wanted, pendingRows_ - pendingTaken_);
            std::memcpy(out, pending_.data() + size_t(pendingTaken_) * stride(), size_t(count) * stride());
            pendingTaken_ += count;
            if (pendingTaken_ == pendingRows_) pending_ = {};
        }
        if (count < wanted) count += decodeInto(out + size_t(count) * stride(), wanted - count);
        produced_ += count;
        return count;
    }

private:
    // All libjpeg calls of the set-up, between setjmp and any longjmp; false after a fatal error.
    bool startDecoder() {
        if (setjmp(err_.jump)) return false;
        jpeg_create_decompress(&cinfo_);
        created_ = true;
        window_.attach(cinfo_, *file_);
        jpeg_save_markers(&cinfo_, JPEG_APP0 + 2, 0xFFFF);  // ICC profile chunks
        jpeg_read_header(&cinfo_, TRUE);
        if (!checkDimensions(cinfo_.image_width, cinfo_.image_height, options_.maxPixels, nullptr)) {
            failureMessage_ = "image is too large";
            return false;
        }
        if (cinfo_.progressive_mode && options_.finalReduction > 1 && !switchToSelectedScans()) return false;

        const bool cmyk = cinfo_.jpeg_color_space == JCS_CMYK || cinfo_.jpeg_color_space == JCS_YCCK;
        const bool grey = cinfo_.jpeg_color_space == JCS_GRAYSCALE;
        cinfo_.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
        cinfo_.scale_num = 1;
        cinfo_.scale_denom = jpegDctDenominator(options_.scaleDenominator);
        cinfo_.do_block_smoothing = blockSmoothing_;
        // Chroma is upsampled by repeating its samples rather than interpolating them when the caller shrinks
        // the decoded rows at least twofold: the shrink's filter then does the smoothing that interpolation
        // would add, colour edges come out at least as close to the picture the file was made from (closer,
        // where they are hard), and repeating saves about 6% of a full-size decode.
        cinfo_.do_fancy_upsampling = options_.finalReduction / double(cinfo_.scale_denom) < 2.0;
        jpeg_read_icc_profile(&cinfo_, &icc_, &iccSize_);
        if (cmyk)
            cmyk_ = std::make_unique<CmykToSrgb>(icc_, iccSize_, cinfo_.saw_Adobe_marker);
        else if (icc_)
            iccToSrgb_ =
                std::make_unique<IccToSrgb>(icc_, iccSize_, grey ? IccLayout::GreyInRgba : IccLayout::Rgb, false);
        if (iccToSrgb_ && !iccToSrgb_->converts()) iccToSrgb_.reset();
        if (!cinfo_.progressive_mode && cinfo_.scale_denom > 1) {
            const uint64_t dataStart = window_.offset - cinfo_.src->bytes_in_buffer;
            split_ = SplitJpegRows::open(cinfo_, *file_, dataStart, cinfo_.scale_denom, options_.splitJpegBytes);
            if (split_) {
                setSize(split_->width(), split_->height(), false, false);
                return true;
            }
        }
        jpeg_calc_output_dimensions(&cinfo_);
        setSize(int(cinfo_.output_width), int(cinfo_.output_height), false, false);
        jpeg_start_decompress(&cinfo_);

        // Decode the first rows now, so that a file without any image data fails here rather than as a
        // grey picture.
        pendingRows_ = int(std::min<JDIMENSION>(cinfo_.rec_outbuf_height, cinfo_.output_height));
        pending_.resize(size_t(pendingRows_) * stride());
        pendingRows_ = decodeInto(pending_.data(), pendingRows_);
        return true;
    }

    // Re-reads a progressive file from memory without the scans the result does not need.
    bool switchToSelectedScans() {
        size_t length = 0;
        whole_ = file_->readAll(length, nullptr);
        if (!whole_) return true;  // keep streaming the file as it is
        selection_ = selectProgressiveScans(whole_.get(), length, options_.finalReduction);
        if (selection_.stream.empty()) {
            wholeLength_ = length;
        } else {
            whole_.reset();
        }
        const uint8_t* data = selection_.stream.empty() ? whole_.get() : selection_.stream.data();
        const size_t size = selection_.stream.empty() ? wholeLength_ : selection_.stream.size();
        blockSmoothing_ = selection_.stream.empty() ? TRUE : boolean(selection_.blockSmoothing);
        jpeg_abort_decompress(&cinfo_);
        cinfo_.src = nullptr;  // jpeg_mem_src only reuses a source manager of its own
        jpeg_mem_src(&cinfo_, data, static_cast<unsigned long>(size));
        jpeg_read_header(&cinfo_, TRUE);
        return true;
    }

    // Decodes up to `count` rows into `out`; after a fatal error the rest of the picture is grey.
    int decodeInto(uint8_t* out, int count) {
        if (rowPointers_.size() < size_t(count)) rowPointers_.resize(size_t(count));
        decoded_ = 0;
        if (!failed_ && !runDecode(out, count)) failed_ = true;
        if (failed_ && decoded_ < count) {
            fillGrey(out + size_t(decoded_) * stride(), count - decoded_);
            decoded_ = count;
        }
        return decoded_;
    }

    bool runDecode(uint8_t* out, int count) {
        if (setjmp(err_.jump)) return false;
        while (decoded_ < count && cinfo_.output_scanline < cinfo_.output_height) {
            for (int i = decoded_; i < count; ++i) rowPointers_[size_t(i)] = out + size_t(i) * stride();
            const JDIMENSION got =
                jpeg_read_scanlines(&cinfo_, rowPointers_.data() + decoded_, JDIMENSION(count - decoded_));
            uint8_t* first = out + size_t(decoded_) * stride();
            const size_t pixels = size_t(got) * size_t(width_);
            if (cmyk_) cmyk_->convert(first, pixels);
            if (iccToSrgb_) iccToSrgb_->convert(first, pixels);
            decoded_ += int(got);
        }
        // libjpeg stops short only when the picture ended early; the caller paints the rest.
        return decoded_ == count;
    }

    std::unique_ptr<FileSource> file_;
    RowReadOptions options_;
    jpeg_decompress_struct cinfo_{};
    JpegErrorManager err_{};
    jpeg_progress_mgr progress_{};
    FileWindowSource window_;
    bool created_ = false;
    bool failed_ = false;
    std::string failureMessage_;
    boolean blockSmoothing_ = TRUE;
    std::unique_ptr<uint8_t[]> whole_;
    size_t wholeLength_ = 0;
    ScanSelection selection_;
    JOCTET* icc_ = nullptr;
    unsigned iccSize_ = 0;
    std::unique_ptr<CmykToSrgb> cmyk_;
    std::unique_ptr<IccToSrgb> iccToSrgb_;
    std::unique_ptr<SplitJpegRows> split_;
    std::vector<JSAMPROW> rowPointers_;
    std::vector<uint8_t> pending_;
    int pendingRows_ = 0;
    int pendingTaken_ = 0;
    int decoded_ = 0;
    int produced_ = 0;
};

}  // namespace

std::unique_ptr<RowReader> openJpegRowReader(std::unique_ptr<FileSource> file, const RowReadOptions& options,
                                             std::string* error) {
    auto reader = std::make_unique<JpegRowReader>(std::move(file), options);
    if (!reader->start(error)) return nullptr;
    return reader;
}

}  // namespace voimg::detail
