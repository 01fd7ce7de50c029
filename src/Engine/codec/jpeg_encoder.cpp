// SPDX-License-Identifier: MIT
// Baseline JPEG writing with libjpeg: 4:2:0, the standard quantisation tables scaled to the quality, the
// standard Huffman tables (no optimisation pass, for speed), a JFIF header and no other markers.
#include "atomic_file_p.h"
#include "codec_p.h"

#include <csetjmp>
#include <cstdio>

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

// All libjpeg calls happen here, so a longjmp never skips a C++ destructor.
bool compress(jpeg_compress_struct& cinfo, ErrorManager& err, FILE* out, const uint8_t* rgb, int width, int height,
              int quality) {
    if (setjmp(err.jump)) return false;
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, out);
    cinfo.image_width = JDIMENSION(width);
    cinfo.image_height = JDIMENSION(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    cinfo.optimize_coding = FALSE;
    cinfo.write_JFIF_header = TRUE;
    cinfo.comp_info[0].h_samp_factor = 2;
    cinfo.comp_info[0].v_samp_factor = 2;
    for (int c = 1; c < 3; ++c) cinfo.comp_info[c].h_samp_factor = cinfo.comp_info[c].v_samp_factor = 1;
    jpeg_start_compress(&cinfo, TRUE);
    const size_t stride = size_t(width) * 3;
    JSAMPROW rows[16];
    while (cinfo.next_scanline < cinfo.image_height) {
        JDIMENSION n = 0;
        for (; n < 16 && cinfo.next_scanline + n < cinfo.image_height; ++n)
            rows[n] = const_cast<JSAMPROW>(rgb + size_t(cinfo.next_scanline + n) * stride);  // libjpeg only reads
        jpeg_write_scanlines(&cinfo, rows, n);
    }
    jpeg_finish_compress(&cinfo);
    return true;
}

}  // namespace

bool writeJpegFile(const std::string& path, const uint8_t* rgb, int width, int height, int quality,
                   std::string* error) {
    using detail::setError;
    if (rgb == nullptr || width <= 0 || height <= 0 || width > JPEG_MAX_DIMENSION || height > JPEG_MAX_DIMENSION) {
        setError(error, "invalid image for JPEG output");
        return false;
    }
    detail::AtomicFile file;
    if (!file.open(path, error)) return false;

    jpeg_compress_struct cinfo{};
    ErrorManager err{};
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = errorExit;
    err.pub.emit_message = ignoreMessage;
    const bool ok = compress(cinfo, err, file.stream(), rgb, width, height, std::clamp(quality, 1, 100));
    jpeg_destroy_compress(&cinfo);
    if (!ok) {
        setError(error, std::string("JPEG encoding failed: ") + err.message);
        return false;  // the temporary file goes with `file`
    }
    return file.commit(error);
}

}  // namespace voimg
