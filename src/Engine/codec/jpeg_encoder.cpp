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
bool compress(jpeg_compress_struct& cinfo, ErrorManager& err, FILE* out, const detail::YccPlanes& planes, int quality) {
    if (setjmp(err.jump)) return false;
    const int width = planes.width, height = planes.height;
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, out);
    cinfo.image_width = JDIMENSION(width);
    cinfo.image_height = JDIMENSION(height);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    cinfo.optimize_coding = FALSE;
    cinfo.write_JFIF_header = TRUE;
    cinfo.comp_info[0].h_samp_factor = 2;
    cinfo.comp_info[0].v_samp_factor = 2;
    for (int c = 1; c < 3; ++c) cinfo.comp_info[c].h_samp_factor = cinfo.comp_info[c].v_samp_factor = 1;
    cinfo.raw_data_in = TRUE;
    jpeg_start_compress(&cinfo, TRUE);
    // Sixteen luma rows and eight chroma rows at a time; the planes are padded to whole blocks.
    JSAMPROW luma[16], cb[8], cr[8];
    JSAMPARRAY components[3] = {luma, cb, cr};
    while (cinfo.next_scanline < cinfo.image_height) {
        const size_t y = cinfo.next_scanline;
        for (size_t i = 0; i < 16; ++i) luma[i] = const_cast<JSAMPROW>(planes.lumaRow(y + i));  // only read
        for (size_t i = 0; i < 8; ++i) {
            cb[i] = const_cast<JSAMPROW>(planes.cbRow(y / 2 + i));
            cr[i] = const_cast<JSAMPROW>(planes.crRow(y / 2 + i));
        }
        jpeg_write_raw_data(&cinfo, components, 16);
    }
    jpeg_finish_compress(&cinfo);
    return true;
}

}  // namespace

namespace detail {

bool writeJpegPlanes(const std::string& path, const YccPlanes& planes, int quality, std::string* error) {
    AtomicFile file;
    if (!file.open(path, error)) return false;
    jpeg_compress_struct cinfo{};
    ErrorManager err{};
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = errorExit;
    err.pub.emit_message = ignoreMessage;
    const bool ok = compress(cinfo, err, file.stream(), planes, std::clamp(quality, 1, 100));
    jpeg_destroy_compress(&cinfo);
    if (!ok) {
        setError(error, std::string("JPEG encoding failed: ") + err.message);
        return false;  // the temporary file goes with `file`
    }
    return file.commit(error);
}

}  // namespace detail

bool writeJpegFile(const std::string& path, const uint8_t* rgb, int width, int height, int quality,
                   std::string* error) {
    if (rgb == nullptr || width <= 0 || height <= 0 || width > JPEG_MAX_DIMENSION || height > JPEG_MAX_DIMENSION) {
        detail::setError(error, "invalid image for JPEG output");
        return false;
    }
    quality = std::clamp(quality, 1, 100);
    detail::YccPlanes planes;
    try {
        planes = detail::makeYccPlanes(rgb, width, height, detail::Luma::Later);
        detail::fitLumaToDecodedChroma(planes, rgb, quality);
    } catch (const std::bad_alloc&) {
        detail::setError(error, "out of memory");
        return false;
    }
    return detail::writeJpegPlanes(path, planes, quality, error);
}

}  // namespace voimg
