// SPDX-License-Identifier: MIT
// The JPEG writer's luma fit: it predicts the chroma a decoder reconstructs, picks for every pixel the luma
// that brings the decoded colour closest, and so brings decoded pictures closer to the originals. The SIMD
// kernels equal their scalar references.
#include "Engine/codec/jpeg_encoder_p.h"
#include "Engine/codec/luma_fit_p.h"
#include "Engine/simd_target.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>

#include <jpeglib.h>

using namespace votest;
using namespace voimg::detail;

namespace {

// A decoded 4:2:0 JPEG as libjpeg gives it: the chroma planes as stored (whole blocks), and the picture
// in YCbCr after the decoder's own upsampling.
struct DecodedPlanes {
    int width = 0, height = 0;
    size_t chromaStride = 0;
    std::vector<uint8_t> cb, cr;
    std::vector<uint8_t> ycc;  // width * height * 3
    std::array<uint16_t, 64> chromaTable{};
};

DecodedPlanes decodePlanes(const Bytes& jpeg) {
    DecodedPlanes out;
    jpeg_decompress_struct cinfo{};
    jpeg_error_mgr err{};
    cinfo.err = jpeg_std_error(&err);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, jpeg.data(), jpeg.size());
    jpeg_read_header(&cinfo, TRUE);
    for (size_t k = 0; k < 64; ++k) out.chromaTable[k] = cinfo.quant_tbl_ptrs[1]->quantval[k];  // natural order
    cinfo.raw_data_out = TRUE;
    jpeg_start_decompress(&cinfo);
    out.width = int(cinfo.output_width), out.height = int(cinfo.output_height);
    out.chromaStride = size_t(cinfo.comp_info[1].width_in_blocks) * 8;
    const size_t lumaStride = size_t(cinfo.comp_info[0].width_in_blocks) * 8;
    const size_t mcuRows = (size_t(out.height) + 15) / 16;
    std::vector<uint8_t> luma(lumaStride * mcuRows * 16);
    out.cb.resize(out.chromaStride * mcuRows * 8), out.cr.resize(out.cb.size());
    for (size_t m = 0; m < mcuRows; ++m) {
        JSAMPROW y[16], b[8], r[8];
        for (size_t i = 0; i < 16; ++i) y[i] = &luma[(m * 16 + i) * lumaStride];
        for (size_t i = 0; i < 8; ++i) b[i] = &out.cb[(m * 8 + i) * out.chromaStride];
        for (size_t i = 0; i < 8; ++i) r[i] = &out.cr[(m * 8 + i) * out.chromaStride];
        JSAMPARRAY planes[3] = {y, b, r};
        jpeg_read_raw_data(&cinfo, planes, 16);
    }
    jpeg_finish_decompress(&cinfo);

    jpeg_mem_src(&cinfo, jpeg.data(), jpeg.size());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_YCbCr;
    jpeg_start_decompress(&cinfo);
    out.ycc.resize(size_t(out.width) * size_t(out.height) * 3);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = &out.ycc[size_t(cinfo.output_scanline) * size_t(out.width) * 3];
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return out;
}

// Colour texture: stripes and waves of different frequency per channel, plus noise; saturated in places.
std::vector<uint8_t> colourTexture(int width, int height, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0.0, 6.0);
    std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3];
            const double r = 128 + 140 * std::sin(x * 0.31 + y * 0.05);
            const double g = 110 + 90 * std::cos(x * 0.07 - y * 0.23);
            const double b = ((x / 3 + y / 5) % 2 == 0) ? 230 : 35;
            const double v[3] = {r, g, b};
            for (int c = 0; c < 3; ++c) p[c] = uint8_t(std::clamp(v[c] + noise(random), 0.0, 255.0));
        }
    return rgb;
}

double squaredError(const voimg::DecodedImage& decoded, const std::vector<uint8_t>& rgb, int width, int height) {
    double total = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c) {
                const double d = double(sampleAt(decoded, x, y, c)) -
                                 double(rgb[(size_t(y) * size_t(width) + size_t(x)) * 3 + size_t(c)]);
                total += d * d;
            }
    return total;
}

// The decoder's offsets from chroma to R, G and B, and the error of a luma value against a colour.
std::array<float, 3> offsetsOf(float cb, float cr) {
    const float blue = cb - 128.0f, red = cr - 128.0f;
    return {std::nearbyint(kCrToRed * red), std::nearbyint(kCbToGreen * blue + kCrToGreen * red),
            std::nearbyint(kCbToBlue * blue)};
}
float errorOf(int luma, const std::array<float, 3>& offset, const uint8_t* rgb) {
    float e = 0;
    for (int c = 0; c < 3; ++c) {
        const float d = std::clamp(float(luma) + offset[size_t(c)], 0.0f, 255.0f) - float(rgb[c]);
        e += d * d;
    }
    return e;
}

}  // namespace

TEST(LumaFit, ChromaTableIsTheOneTheFileCarries) {
    TempDir dir;
    const std::vector<uint8_t> rgb = colourTexture(24, 16, 1);
    for (const int quality : {1, 10, 25, 50, 85, 95, 100}) {
        std::string error;
        ASSERT_TRUE(voimg::writeJpegFile(dir.file("q.jpg"), rgb.data(), 24, 16, quality, &error)) << error;
        EXPECT_EQ(decodePlanes(readFile(dir.file("q.jpg"))).chromaTable, chromaQuantisationTable(quality))
            << "quality " << quality;
    }
}

TEST(LumaFit, PredictsTheChromaTheDecoderReconstructs) {
    TempDir dir;
    for (const auto& [w, h] : std::vector<std::pair<int, int>>{{61, 45}, {96, 64}, {3, 5}, {4, 9}, {5, 2}}) {
        const std::vector<uint8_t> rgb = colourTexture(w, h, unsigned(w));
        const YccPlanes planes = makeYccPlanes(rgb.data(), w, h);
        std::string error;
        ASSERT_TRUE(writeJpegPlanes(dir.file("p.jpg"), planes, 85, &error)) << error;
        const DecodedPlanes decoded = decodePlanes(readFile(dir.file("p.jpg")));
        ASSERT_EQ(decoded.chromaStride, planes.chromaStride);

        // The quantised chroma: the decoder's integer transform and ours part by a level at most, rarely.
        const auto table = chromaQuantisationTable(85);
        const PlaneBytes cb = quantisedPlane(planes.cb, planes.chromaStride, planes.chromaRows, table);
        const PlaneBytes cr = quantisedPlane(planes.cr, planes.chromaStride, planes.chromaRows, table);
        // Our float transform and the decoder's integer one part where a coefficient lies within a hair of
        // half a step, which moves a block by a few levels; elsewhere they agree. The planes as they went in
        // are several times further from what the decoder shows.
        double predicted = 0, unquantised = 0;
        int exact = 0, samples = 0;
        for (size_t y = 0; y < size_t(h + 1) / 2; ++y)
            for (size_t x = 0; x < size_t(w + 1) / 2; ++x, samples += 2) {
                const size_t i = y * planes.chromaStride + x;
                predicted += std::abs(int(cb[i]) - int(decoded.cb[i])) + std::abs(int(cr[i]) - int(decoded.cr[i]));
                unquantised +=
                    std::abs(int(planes.cb[i]) - int(decoded.cb[i])) + std::abs(int(planes.cr[i]) - int(decoded.cr[i]));
                exact += (cb[i] == decoded.cb[i]) + (cr[i] == decoded.cr[i]);
            }
        EXPECT_LT(predicted / samples, 0.75) << w << "x" << h;
        EXPECT_LT(predicted, unquantised / 4) << w << "x" << h;
        EXPECT_GE(double(exact) / samples, 0.7) << w << "x" << h;
        // The upsampling, from the decoder's own half-resolution planes: exactly what it shows.
        ChromaUpsampler upCb(decoded.cb.data(), decoded.chromaStride, size_t(w), size_t(h));
        ChromaUpsampler upCr(decoded.cr.data(), decoded.chromaStride, size_t(w), size_t(h));
        for (int y = 0; y < h; ++y) {
            const float* b = upCb.row(size_t(y));
            for (int x = 0; x < w; ++x)
                ASSERT_EQ(b[x], decoded.ycc[(size_t(y) * size_t(w) + size_t(x)) * 3 + 1]) << "Cb at " << x << "," << y;
            const float* r = upCr.row(size_t(y));
            for (int x = 0; x < w; ++x)
                ASSERT_EQ(r[x], decoded.ycc[(size_t(y) * size_t(w) + size_t(x)) * 3 + 2]) << "Cr at " << x << "," << y;
        }
    }
}

TEST(LumaFit, EveryPixelGetsTheLumaThatComesClosestToItsColour) {
    // Colours and chroma of every kind, extremes included, where channels clip.
    std::mt19937 random(5);
    std::uniform_int_distribution<int> level(0, 255), pick(0, 3);
    auto sample = [&] { return pick(random) == 0 ? (pick(random) < 2 ? 0 : 255) : level(random); };
    const size_t width = 4000;
    std::vector<uint8_t> rgb(width * 3), luma(width);
    std::vector<float> cb(width), cr(width);
    for (uint8_t& v : rgb) v = uint8_t(sample());
    for (size_t x = 0; x < width; ++x) cb[x] = float(sample()), cr[x] = float(sample());
    std::vector<uint8_t> quick(width);
    fitLumaRowScalar(rgb.data(), cb.data(), cr.data(), luma.data(), 0, width);
    const size_t done = fitLumaRowQuick(rgb.data(), cb.data(), cr.data(), quick.data(), width);
    fitLumaRowScalar(rgb.data(), cb.data(), cr.data(), quick.data(), done, width);
    for (size_t x = 0; x < width; ++x) {
        ASSERT_EQ(quick[x], luma[x]) << "pixel " << x << ": the quick path chose another luma";
        const auto offset = offsetsOf(cb[x], cr[x]);
        float best = errorOf(0, offset, &rgb[x * 3]);
        for (int l = 1; l < 256; ++l) best = std::min(best, errorOf(l, offset, &rgb[x * 3]));
        ASSERT_EQ(errorOf(luma[x], offset, &rgb[x * 3]), best) << "pixel " << x;
        ASSERT_EQ(errorOf(quick[x], offset, &rgb[x * 3]), best) << "pixel " << x << " on the quick path";
    }
}

TEST(LumaFit, DecodedPicturesComeCloserThanWithTheirOwnLuma) {
    TempDir dir;
    for (const auto& [w, h] : std::vector<std::pair<int, int>>{{96, 64}, {157, 101}, {480, 320}}) {
        const std::vector<uint8_t> rgb = colourTexture(w, h, 3);
        YccPlanes planes = makeYccPlanes(rgb.data(), w, h);
        std::string error;
        ASSERT_TRUE(writeJpegPlanes(dir.file("own.jpg"), planes, 85, &error)) << error;
        fitLumaToDecodedChroma(planes, rgb.data(), 85);
        ASSERT_TRUE(writeJpegPlanes(dir.file("fitted.jpg"), planes, 85, &error)) << error;
        ASSERT_TRUE(voimg::writeJpegFile(dir.file("writer.jpg"), rgb.data(), w, h, 85, &error)) << error;
        const auto own = voimg::decodeImageFile(dir.file("own.jpg"), {}, &error);
        const auto fitted = voimg::decodeImageFile(dir.file("fitted.jpg"), {}, &error);
        ASSERT_TRUE(own && fitted) << error;
        EXPECT_LT(squaredError(*fitted, rgb, w, h), 0.95 * squaredError(*own, rgb, w, h)) << w << "x" << h;
        EXPECT_EQ(readFile(dir.file("writer.jpg")), readFile(dir.file("fitted.jpg"))) << "the writer fits its luma";
    }
}

TEST(LumaFitKernels, SimdRoundTripEqualsScalarToALevel) {
    if (!voimg::simdEnabled()) GTEST_SKIP() << "no SIMD build runs here";
    std::mt19937 random(11);
    const size_t stride = 64, rows = 24;
    std::vector<uint8_t> plane(stride * rows), simd(plane.size()), scalar(plane.size());
    for (uint8_t& v : plane) v = uint8_t(random());
    for (const int quality : {20, 85, 100}) {
        const BlockTransform t = blockTransform(chromaQuantisationTable(quality));
        int off = 0;
        for (size_t y = 0; y < rows; y += 8) {
            roundTripBlocks(&plane[y * stride], stride, stride / 8, &simd[y * stride], t);
            roundTripBlocksScalar(&plane[y * stride], stride, stride / 8, &scalar[y * stride], t);
        }
        for (size_t i = 0; i < plane.size(); ++i) {
            ASSERT_LE(std::abs(int(simd[i]) - int(scalar[i])), 1) << "quality " << quality << " at " << i;
            off += simd[i] != scalar[i];
        }
        EXPECT_LE(off, int(plane.size() / 25)) << "quality " << quality;  // fused and separate multiply-adds
    }
}

TEST(LumaFitKernels, SimdUpsamplingEqualsScalar) {
    if (!voimg::simdEnabled()) GTEST_SKIP() << "no SIMD build runs here";
    std::mt19937 random(12);
    for (const size_t half : {1u, 7u, 8u, 9u, 40u}) {
        const size_t padded = (half + 7) / 8 * 8;
        std::vector<int32_t> sums(padded + 2);
        for (size_t i = 0; i <= half + 1; ++i) sums[i] = int32_t(random() % 1021);
        std::vector<float> simd(2 * padded), scalar(2 * padded);
        upsampleChromaRow(sums.data(), half, simd.data());
        upsampleChromaRowScalar(sums.data(), half, scalar.data());
        for (size_t x = 0; x < 2 * half; ++x) ASSERT_EQ(simd[x], scalar[x]) << half << " at " << x;
    }
}

TEST(LumaFitKernels, QuickFitEqualsScalar) {
    if (!voimg::simdEnabled()) GTEST_SKIP() << "no SIMD build runs here";
    std::mt19937 random(13);
    const size_t width = 203;
    std::vector<uint8_t> rgb(width * 3), simd(width), scalar(width);
    std::vector<float> cb(width), cr(width);
    // Mid-range colours with mild chroma, where the plain fit holds; then some that clip, whose groups
    // take the scalar path.
    for (uint8_t& v : rgb) v = uint8_t(60 + random() % 136);
    for (size_t x = 0; x < width; ++x) cb[x] = float(118 + random() % 21), cr[x] = float(118 + random() % 21);
    for (const size_t clipping : {0u, 5u, 50u, 51u, 160u}) {
        uint8_t* p = &rgb[clipping * 3];
        p[0] = 255, p[1] = 0, p[2] = 0, cr[clipping] = 255, cb[clipping] = 80;
        ASSERT_EQ(fitLumaRowQuick(rgb.data(), cb.data(), cr.data(), simd.data(), width), width / 8 * 8);
        fitLumaRowScalar(rgb.data(), cb.data(), cr.data(), scalar.data(), 0, width);
        for (size_t x = 0; x < width / 8 * 8; ++x) ASSERT_EQ(simd[x], scalar[x]) << "pixel " << x;
    }
}
