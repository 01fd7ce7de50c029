// SPDX-License-Identifier: MIT
// Test JPEG files written with libjpeg, and a raw libjpeg decode for reference values.
#include "test_support.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include <jpeglib.h>

namespace votest {
namespace {

[[noreturn]] void throwError(j_common_ptr cinfo) {
    char message[JMSG_LENGTH_MAX];
    cinfo->err->format_message(cinfo, message);
    throw std::runtime_error(message);
}

}  // namespace

Bytes encodeJpeg(const Picture& picture, const JpegParams& params) {
    jpeg_compress_struct cinfo{};
    jpeg_error_mgr err{};
    cinfo.err = jpeg_std_error(&err);
    err.error_exit = throwError;
    jpeg_create_compress(&cinfo);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &buffer, &size);
    cinfo.image_width = JDIMENSION(picture.width);
    cinfo.image_height = JDIMENSION(picture.height);
    cinfo.input_components = picture.channels;
    const bool fourChannel = params.colour == JpegColour::Cmyk || params.colour == JpegColour::Ycck;
    cinfo.in_color_space = params.colour == JpegColour::Grey ? JCS_GRAYSCALE : fourChannel ? JCS_CMYK : JCS_RGB;
    jpeg_set_defaults(&cinfo);
    if (params.colour == JpegColour::Ycck) jpeg_set_colorspace(&cinfo, JCS_YCCK);
    if (fourChannel) cinfo.write_Adobe_marker = params.adobeMarker ? TRUE : FALSE;
    jpeg_set_quality(&cinfo, params.quality, TRUE);
    // CMYK keeps libjpeg's defaults (full resolution; YCCK subsamples the two chroma channels).
    if (params.colour == JpegColour::Rgb) {
        cinfo.comp_info[0].h_samp_factor = params.lumaH;
        cinfo.comp_info[0].v_samp_factor = params.lumaV;
        for (int c = 1; c < 3; ++c) cinfo.comp_info[c].h_samp_factor = cinfo.comp_info[c].v_samp_factor = 1;
    }
    std::vector<jpeg_scan_info> script;
    if (params.progressive && params.scans.empty()) jpeg_simple_progression(&cinfo);
    if (params.progressive && !params.scans.empty()) {
        for (const JpegScan& wanted : params.scans) {
            jpeg_scan_info scan{};
            scan.comps_in_scan = int(wanted.components.size());
            for (size_t i = 0; i < wanted.components.size(); ++i) scan.component_index[i] = wanted.components[i];
            scan.Ss = wanted.ss, scan.Se = wanted.se, scan.Ah = wanted.ah, scan.Al = wanted.al;
            script.push_back(scan);
        }
        cinfo.scan_info = script.data();
        cinfo.num_scans = int(script.size());
    }
    cinfo.restart_in_rows = params.restartRows;
    jpeg_start_compress(&cinfo, TRUE);
    if (!params.icc.empty()) jpeg_write_icc_profile(&cinfo, params.icc.data(), unsigned(params.icc.size()));
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(picture.at(0, int(cinfo.next_scanline)));
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    Bytes out(buffer, buffer + size);
    std::free(buffer);
    return out;
}

Picture decodeJpegRaw(const Bytes& jpeg, bool interpolateChroma) {
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr err{};
    cinfo.err = jpeg_std_error(&err);
    err.error_exit = throwError;
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, jpeg.data(), jpeg.size());
    jpeg_read_header(&cinfo, TRUE);
    const bool cmyk = cinfo.jpeg_color_space == JCS_CMYK || cinfo.jpeg_color_space == JCS_YCCK;
    cinfo.out_color_space = cmyk ? JCS_CMYK : JCS_RGB;
    cinfo.do_fancy_upsampling = interpolateChroma;
    jpeg_start_decompress(&cinfo);
    Picture p{int(cinfo.output_width), int(cinfo.output_height), cinfo.output_components, {}};
    p.samples.resize(size_t(p.width) * p.height * p.channels);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = p.samples.data() + size_t(cinfo.output_scanline) * p.width * p.channels;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return p;
}

}  // namespace votest
