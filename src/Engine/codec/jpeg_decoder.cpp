// SPDX-License-Identifier: MIT
// JPEG decoding with libjpeg(-turbo): every sampling, progressive, restart intervals, grey, CMYK and YCCK.
//
// RGB and grey files decode straight into the RGBA output (JCS_EXT_RGBA does the expansion). CMYK is read
// into the same buffer, four samples per pixel, and converted to RGBA in place a few rows at a time.
// A truncated file decodes to what arrived; libjpeg pads the rest of the picture with mid grey.
#include "icc_convert_p.h"
#include "jpeg_common_p.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace voimg::detail {
namespace {

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
bool runDecoder(jpeg_decompress_struct& cinfo, JpegErrorManager& err, Job& job) {
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
    cinfo.scale_denom = jpegDctDenominator(job.options->scaleDenominator);
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
    JpegErrorManager err{};
    jpeg_progress_mgr progress{};
    installJpegHandlers(cinfo, err, progress);

    Job job;
    job.data = data;
    job.size = size;
    job.options = &options;
    job.error = error;
    const bool ok = runDecoder(cinfo, err, job);
    const bool nothingDecoded = jpegEndedBeforeAnyRow(err);
    jpeg_destroy_decompress(&cinfo);
    // jpeg_read_icc_profile hands over a malloc'ed copy.
    const std::unique_ptr<JOCTET, decltype(&std::free)> icc(job.icc, &std::free);

    if (!ok && job.rowsRead == 0) {
        setError(error, std::string("invalid JPEG: ") + err.message);
        return std::nullopt;
    }
    if (nothingDecoded) {
        setError(error, "truncated JPEG: no image data");
        return std::nullopt;
    }
    if (!ok) fillMissingRows(job.image, int(job.rowsRead), job.image.height);
    if (job.icc && !job.cmyk)
        convertToSrgb(job.image, job.icc, job.iccSize, job.grey ? IccLayout::GreyInRgba : IccLayout::Rgb);
    return std::move(job.image);
}

}  // namespace voimg::detail
