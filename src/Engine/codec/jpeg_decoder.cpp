// SPDX-License-Identifier: MIT
// JPEG decoding with libjpeg(-turbo): every sampling, progressive, restart intervals, grey, CMYK and YCCK.
//
// RGB and grey files decode straight into the RGBA output (JCS_EXT_RGBA does the expansion). CMYK is read
// into the same buffer, four samples per pixel, and converted to RGBA in place a few rows at a time.
// A truncated file decodes to what arrived; libjpeg pads the rest of the picture with mid grey.
#include "icc_convert_p.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>
#include <jerror.h>

namespace voimg::detail {
namespace {

// Files with absurd numbers of progressive scans take ages to decode for no benefit; real files have < 20.
constexpr int kMaxScans = 1000;

struct ErrorManager {
    jpeg_error_mgr pub;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
    // Where the data ran out, if it did: scan number and iMCU row being read at that moment.
    bool sawEof = false;
    int eofScan = 0;
    JDIMENSION eofImcuRow = 0;
};

[[noreturn]] void errorExit(j_common_ptr cinfo) {
    auto* mgr = reinterpret_cast<ErrorManager*>(cinfo->err);
    cinfo->err->format_message(cinfo, mgr->message);
    std::longjmp(mgr->jump, 1);
}

// Warnings (corrupt data, premature end) are not printed; only the first end-of-data is remembered.
void emitMessage(j_common_ptr cinfo, int level) {
    auto* mgr = reinterpret_cast<ErrorManager*>(cinfo->err);
    if (level >= 0 || cinfo->err->msg_code != JWRN_JPEG_EOF || mgr->sawEof) return;
    auto* dinfo = reinterpret_cast<j_decompress_ptr>(cinfo);
    mgr->sawEof = true;
    mgr->eofScan = dinfo->input_scan_number;
    mgr->eofImcuRow = dinfo->input_iMCU_row;
}

void progressMonitor(j_common_ptr cinfo) {
    if (reinterpret_cast<j_decompress_ptr>(cinfo)->input_scan_number > kMaxScans) {
        cinfo->err->msg_code = JERR_BAD_SCAN_SCRIPT;
        auto* mgr = reinterpret_cast<ErrorManager*>(cinfo->err);
        std::snprintf(mgr->message, sizeof mgr->message, "too many progressive scans");
        std::longjmp(mgr->jump, 1);
    }
}

// libjpeg's largest supported reduction not above the requested one.
unsigned dctDenominator(int requested) {
    if (requested >= 8) return 8;
    if (requested >= 4) return 4;
    if (requested >= 2) return 2;
    return 1;
}

struct Job {
    const uint8_t* data = nullptr;
    size_t size = 0;
    const DecodeOptions* options = nullptr;
    std::string* error = nullptr;
    DecodedImage image;
    std::vector<JSAMPROW> rows;
    std::unique_ptr<CmykToSrgb> cmyk;
    JOCTET* icc = nullptr;
    unsigned iccSize = 0;
    bool grey = false;
    JDIMENSION rowsRead = 0;
};

// All libjpeg calls live here, between setjmp and any longjmp, touching only the job (no automatic C++
// objects with destructors are skipped by the jump). Returns false after a fatal libjpeg error.
bool runDecoder(jpeg_decompress_struct& cinfo, ErrorManager& err, Job& job) {
    if (setjmp(err.jump)) return false;
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, job.data, static_cast<unsigned long>(job.size));
    jpeg_save_markers(&cinfo, JPEG_APP0 + 2, 0xFFFF);  // ICC profile chunks
    jpeg_read_header(&cinfo, TRUE);

    if (!checkDimensions(cinfo.image_width, cinfo.image_height, job.options->maxPixels, job.error)) {
        std::snprintf(err.message, sizeof err.message, "%s", job.error ? job.error->c_str() : "image is too large");
        return false;
    }
    const bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    job.grey = cinfo.jpeg_color_space == JCS_GRAYSCALE;
    cinfo.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
    cinfo.scale_num = 1;
    cinfo.scale_denom = dctDenominator(job.options->scaleDenominator);
    jpeg_read_icc_profile(&cinfo, &job.icc, &job.iccSize);
    if (cmyk) job.cmyk = std::make_unique<CmykToSrgb>(job.icc, job.iccSize, cinfo.saw_Adobe_marker);

    jpeg_calc_output_dimensions(&cinfo);
    if (!allocatePixels(job.image, int(cinfo.output_width), int(cinfo.output_height), false, job.error)) {
        std::snprintf(err.message, sizeof err.message, "%s", job.error ? job.error->c_str() : "out of memory");
        return false;
    }
    job.rows.resize(cinfo.output_height);
    for (JDIMENSION y = 0; y < cinfo.output_height; ++y) job.rows[y] = job.image.pixels.data() + y * job.image.stride();

    jpeg_start_decompress(&cinfo);
    while (cinfo.output_scanline < cinfo.output_height) {
        const JDIMENSION first = cinfo.output_scanline;
        const JDIMENSION got = jpeg_read_scanlines(&cinfo, job.rows.data() + first, cinfo.output_height - first);
        if (job.cmyk) job.cmyk->convert(job.rows[first], size_t(got) * cinfo.output_width);
        job.rowsRead = first + got;
    }
    jpeg_finish_decompress(&cinfo);
    return true;
}

}  // namespace

DecodeResult decodeJpeg(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error) {
    jpeg_decompress_struct cinfo{};
    ErrorManager err{};
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = errorExit;
    err.pub.emit_message = emitMessage;
    jpeg_progress_mgr progress{};
    progress.progress_monitor = progressMonitor;
    cinfo.progress = &progress;

    Job job;
    job.data = data;
    job.size = size;
    job.options = &options;
    job.error = error;
    const bool ok = runDecoder(cinfo, err, job);
    const int scanNumber = err.eofScan;
    const JDIMENSION imcuRow = err.eofImcuRow;
    const bool sawEof = err.sawEof;
    jpeg_destroy_decompress(&cinfo);
    // jpeg_read_icc_profile hands over a malloc'ed copy.
    const std::unique_ptr<JOCTET, decltype(&std::free)> icc(job.icc, &std::free);

    if (!ok && job.rowsRead == 0) {
        setError(error, std::string("invalid JPEG: ") + err.message);
        return std::nullopt;
    }
    // The data ended inside the first iMCU row of the first scan: nothing real was decoded.
    if (sawEof && scanNumber <= 1 && imcuRow == 0) {
        setError(error, "truncated JPEG: no image data");
        return std::nullopt;
    }
    if (!ok) fillMissingRows(job.image, int(job.rowsRead), job.image.height);
    if (job.icc && !job.cmyk)
        convertToSrgb(job.image, job.icc, job.iccSize, job.grey ? IccLayout::GreyInRgba : IccLayout::Rgb);
    return std::move(job.image);
}

}  // namespace voimg::detail
