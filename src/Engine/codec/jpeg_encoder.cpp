// SPDX-License-Identifier: MIT
// Baseline JPEG writing with libjpeg: 4:2:0, the standard quantisation tables scaled to the quality, the
// standard Huffman tables (no optimisation pass, for speed), a JFIF header and no other markers.
//
// The colour planes are made here rather than by libjpeg: the half-resolution chroma is chosen so that a
// decoder's usual (triangle) upsampling brings back the full-resolution chroma as closely as it can, where
// libjpeg's plain 2x2 average leaves colour edges soft and off (chroma_planes_p.h); and the luma is chosen
// to suit the chroma the decoder will reconstruct (luma_fit_p.h).
#include "atomic_file_p.h"
#include "chroma_planes_p.h"
#include "codec_p.h"
#include "luma_fit_p.h"

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <cstdio>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>

#include <jpeglib.h>

namespace voimg {
namespace {

struct ErrorManager {
    jpeg_error_mgr pub;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

[[noreturn]] void errorExit(j_common_ptr cinfo) {
    auto* mgr = reinterpret_cast<ErrorManager*>(cinfo->err);
    cinfo->err->format_message(cinfo, mgr->message);
    std::longjmp(mgr->jump, 1);
}

void ignoreMessage(j_common_ptr, int) {}

// libjpeg's compressor taking the planes band by band (16 luma rows, 8 chroma rows; the planes are padded
// to whole blocks). Every libjpeg call happens in the methods below, each between its own setjmp and any
// longjmp, so a longjmp never skips a C++ destructor; after a failure fail() reports why.
class Compressor {
public:
    Compressor() {
        cinfo_.err = jpeg_std_error(&err_.pub);
        err_.pub.error_exit = errorExit;
        err_.pub.emit_message = ignoreMessage;
    }
    ~Compressor() { jpeg_destroy_compress(&cinfo_); }  // also after a failed or no jpeg_create_compress
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    bool start(FILE* out, int width, int height, int quality) {
        if (setjmp(err_.jump)) return false;
        jpeg_create_compress(&cinfo_);
        jpeg_stdio_dest(&cinfo_, out);
        cinfo_.image_width = JDIMENSION(width);
        cinfo_.image_height = JDIMENSION(height);
        cinfo_.input_components = 3;
        cinfo_.in_color_space = JCS_YCbCr;
        jpeg_set_defaults(&cinfo_);
        jpeg_set_quality(&cinfo_, quality, TRUE);
        cinfo_.optimize_coding = FALSE;
        cinfo_.write_JFIF_header = TRUE;
        cinfo_.comp_info[0].h_samp_factor = 2;
        cinfo_.comp_info[0].v_samp_factor = 2;
        for (int c = 1; c < 3; ++c) cinfo_.comp_info[c].h_samp_factor = cinfo_.comp_info[c].v_samp_factor = 1;
        cinfo_.raw_data_in = TRUE;
        jpeg_start_compress(&cinfo_, TRUE);
        return true;
    }

    // The next band, whose planes must be final.
    bool writeBand(const detail::YccPlanes& planes) {
        if (setjmp(err_.jump)) return false;
        const size_t y = cinfo_.next_scanline;
        JSAMPROW luma[16], cb[8], cr[8];
        JSAMPARRAY components[3] = {luma, cb, cr};
        for (size_t i = 0; i < 16; ++i) luma[i] = const_cast<JSAMPROW>(planes.lumaRow(y + i));  // only read
        for (size_t i = 0; i < 8; ++i) {
            cb[i] = const_cast<JSAMPROW>(planes.cbRow(y / 2 + i));
            cr[i] = const_cast<JSAMPROW>(planes.crRow(y / 2 + i));
        }
        jpeg_write_raw_data(&cinfo_, components, 16);
        return true;
    }

    bool finish() {
        if (setjmp(err_.jump)) return false;
        jpeg_finish_compress(&cinfo_);
        return true;
    }

    // After a failure: says why in `error`, and returns false.
    bool fail(std::string* error) const {
        detail::setError(error, std::string("JPEG encoding failed: ") + err_.message);
        return false;
    }

private:
    jpeg_compress_struct cinfo_{};
    ErrorManager err_{};
};

// The planes of a picture made band by band (16 luma rows, 8 chroma rows) while libjpeg writes them: the
// chroma of each row of blocks (averaged, sharpened, and quantised as a decoder will see it), then the luma
// of each band fitted to that chroma, which reaches into the next row of blocks for the upsampling.
//
// When the picture is large enough to be worth it, a helper thread makes the lower bands while the writing
// thread makes the upper ones and encodes them as it goes; it then finds the lower ones made, or waits for
// them. A fixed split rather than a queue of bands: the writing thread never waits for a helper that the
// scheduler has not yet let run, except at the split. The helper's share is the larger because the writing
// thread also encodes, and another picture is usually being encoded beside this one.
//
// Without a helper the planes hold just the rows the next band needs: less memory to fault in, and rows
// that are still in the cache when libjpeg reads them.
class BandedPlanes {
public:
    // `helper`: the picture is complete, so a helper thread may start on the lower bands at once.
    BandedPlanes(const uint8_t* rgb, int width, int height, int quality, bool helper)
        : withHelper_(worthAHelper(helper, width, height)),
          planes_(detail::sizedYccPlanes(width, height, !withHelper_)),
          bands_(planes_.chromaRows / 8),
          decoded_(planes_, quality),
          chroma_(rgb, planes_),
          fitter_(planes_, rgb, decoded_) {
        split_ = bands_;
        if (!withHelper_) return;
        // The helper's makers are made here, where running out of memory is reported like any other.
        const size_t split = bands_ * 2 / 5;
        helperChroma_.emplace(rgb, planes_, split * 8);
        helperFitter_.emplace(planes_, rgb, decoded_);
        try {
            split_ = split;
            helper_ = std::jthread([this](std::stop_token stop) { makeLowerBands(stop); });
        } catch (const std::system_error&) {  // no thread to be had: the writing thread makes everything
            split_ = bands_;
        }
    }
    BandedPlanes(const BandedPlanes&) = delete;
    BandedPlanes& operator=(const BandedPlanes&) = delete;

    [[nodiscard]] const detail::YccPlanes& planes() const { return planes_; }
    [[nodiscard]] size_t bands() const { return bands_; }

    // The rows of the picture (from the top) that band `band` is made from: its own, and those of the next
    // row of chroma blocks with one row beyond for the sharpening, since the decoder's upsampling reaches
    // into it.
    [[nodiscard]] static size_t rowsNeededBy(size_t band, size_t height) { return std::min(height, band * 16 + 34); }

    // Readies band `band` for writing; bands come in order.
    void prepare(size_t band) {
        if (band > split_) return waitFor(lowerBands_, band - split_);
        // The upper bands' chroma, up to the split; the rows of blocks beyond it are the helper's first two.
        const size_t needed = std::min(band + 2, bands_);
        for (; chromaBands_ < std::min(needed, split_); ++chromaBands_) makeChroma(chroma_, chromaBands_);
        if (needed > split_) waitFor(lowerChroma_, needed - split_);
        fitter_.fitRows(band * 16, std::min(band * 16 + 16, size_t(planes_.height)));
    }

private:
    static bool worthAHelper(bool helper, int width, int height) {
        constexpr size_t kHelperPixels = 128 * 1024;
        const size_t bands = size_t(height + 15) / 16;
        return helper && size_t(width) * size_t(height) >= kHelperPixels && bands >= 4 &&
               std::thread::hardware_concurrency() >= 2;
    }

    void makeChroma(detail::ChromaRows& maker, size_t blockRow) {
        maker.makeUpTo(8 * (blockRow + 1));
        decoded_.quantiseBlockRow(blockRow);
    }

    // The helper's share: the chroma of the rows of blocks from the split on, and the luma of the bands
    // after it (the band at the split needs the writing thread's chroma too, so that thread fits it).
    void makeLowerBands(const std::stop_token& stop) {
        detail::ChromaRows& chroma = *helperChroma_;
        detail::LumaFitter& fitter = *helperFitter_;
        size_t blockRow = split_;
        auto makeChromaUpTo = [&](size_t end) {
            for (; blockRow < end; ++blockRow) {
                makeChroma(chroma, blockRow);
                publish(lowerChroma_, blockRow + 1 - split_);
            }
        };
        for (size_t band = split_ + 1; band < bands_ && !stop.stop_requested(); ++band) {
            makeChromaUpTo(std::min(band + 2, bands_));
            fitter.fitRows(band * 16, std::min(band * 16 + 16, size_t(planes_.height)));
            publish(lowerBands_, band - split_);
        }
        if (!stop.stop_requested()) makeChromaUpTo(bands_);
    }

    static void publish(std::atomic<size_t>& counter, size_t value) {
        counter.store(value, std::memory_order_release);
        counter.notify_one();
    }
    static void waitFor(std::atomic<size_t>& counter, size_t value) {
        for (size_t now; (now = counter.load(std::memory_order_acquire)) < value;)
            counter.wait(now, std::memory_order_acquire);
    }

    const bool withHelper_;  // a helper is wanted, so the planes are whole; otherwise they keep a window
    detail::YccPlanes planes_;
    const size_t bands_;
    size_t split_;  // the first band whose chroma the helper makes (all: none)
    detail::DecodedChroma decoded_;
    detail::ChromaRows chroma_;  // the writing thread's makers
    detail::LumaFitter fitter_;
    std::optional<detail::ChromaRows> helperChroma_;  // the helper's
    std::optional<detail::LumaFitter> helperFitter_;
    size_t chromaBands_ = 0;              // rows of blocks whose chroma the writing thread made
    std::atomic<size_t> lowerChroma_{0};  // rows of blocks from the split on made by the helper
    std::atomic<size_t> lowerBands_{0};   // bands after the split fitted by the helper
    std::jthread helper_;                 // declared last: stopped and joined before anything it uses goes
};

// A file being written band by band as the rows of its picture become final.
class BandWriter {
public:
    BandWriter(const uint8_t* rgb, int width, int height, int quality, bool helper)
        : bands_(rgb, width, height, quality, helper), height_(size_t(height)), quality_(quality) {}

    bool open(const std::string& path, std::string* error) {
        if (!file_.open(path, error)) return false;
        if (!compressor_.start(file_.stream(), bands_.planes().width, bands_.planes().height, quality_)) failed_ = true;
        return true;
    }

    void rowsReady(size_t rows) {
        for (; !failed_ && next_ < bands_.bands() && BandedPlanes::rowsNeededBy(next_, height_) <= rows; ++next_) {
            bands_.prepare(next_);
            if (!compressor_.writeBand(bands_.planes())) failed_ = true;
        }
    }

    bool finish(std::string* error) {
        rowsReady(height_);
        if (failed_ || !compressor_.finish()) return compressor_.fail(error);  // the temporary file goes with `file_`
        return file_.commit(error);
    }

private:
    BandedPlanes bands_;
    size_t height_;
    int quality_;
    detail::AtomicFile file_;
    Compressor compressor_;
    size_t next_ = 0;  // the next band to write
    bool failed_ = false;
};

bool validJpegPicture(const uint8_t* rgb, int width, int height, std::string* error) {
    if (rgb == nullptr || width <= 0 || height <= 0 || width > JPEG_MAX_DIMENSION || height > JPEG_MAX_DIMENSION) {
        detail::setError(error, "invalid image for JPEG output");
        return false;
    }
    return true;
}

// A BandWriter (or a type made like one) with its file open; null, with `error` set, when that fails.
template <class Writer>
std::unique_ptr<Writer> openBandWriter(const std::string& path, const uint8_t* rgb, int width, int height, int quality,
                                       bool helper, std::string* error) {
    if (!validJpegPicture(rgb, width, height, error)) return nullptr;
    std::unique_ptr<Writer> writer;
    try {
        writer = std::make_unique<Writer>(rgb, width, height, std::clamp(quality, 1, 100), helper);
    } catch (const std::bad_alloc&) {
        detail::setError(error, "out of memory");
        return nullptr;
    }
    if (!writer->open(path, error)) return nullptr;
    return writer;
}

}  // namespace

namespace detail {

bool writeJpegPlanes(const std::string& path, const YccPlanes& planes, int quality, std::string* error) {
    AtomicFile file;
    if (!file.open(path, error)) return false;
    Compressor compressor;
    bool ok = compressor.start(file.stream(), planes.width, planes.height, std::clamp(quality, 1, 100));
    for (size_t band = 0; ok && band < planes.chromaRows / 8; ++band) ok = compressor.writeBand(planes);
    if (!ok || !compressor.finish()) return compressor.fail(error);
    return file.commit(error);
}

}  // namespace detail

bool writeJpegFile(const std::string& path, const uint8_t* rgb, int width, int height, int quality,
                   std::string* error) {
    std::unique_ptr<BandWriter> writer = openBandWriter<BandWriter>(path, rgb, width, height, quality, true, error);
    return writer && writer->finish(error);
}

struct JpegStreamWriter::State : BandWriter {
    using BandWriter::BandWriter;
};

std::unique_ptr<JpegStreamWriter> JpegStreamWriter::open(const std::string& path, const uint8_t* rgb, int width,
                                                         int height, int quality, std::string* error) {
    std::unique_ptr<State> writer = openBandWriter<State>(path, rgb, width, height, quality, false, error);
    if (!writer) return nullptr;
    auto stream = std::unique_ptr<JpegStreamWriter>(new JpegStreamWriter);
    stream->state_ = std::move(writer);
    return stream;
}

JpegStreamWriter::JpegStreamWriter() = default;
JpegStreamWriter::~JpegStreamWriter() = default;

void JpegStreamWriter::rowsReady(int rows) { state_->rowsReady(size_t(std::max(rows, 0))); }

bool JpegStreamWriter::finish(std::string* error) { return state_->finish(error); }

}  // namespace voimg
