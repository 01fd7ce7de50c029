// SPDX-License-Identifier: MIT
// Progressive scan selection: which scans are kept, that the kept stream decodes cleanly with libjpeg, and
// that thumbnails made from it match thumbnails made from the whole file.
#include "Engine/codec/jpeg_scan_select_p.h"
#include "Engine/resample_taps_p.h"
#include "Engine/srgb.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>

#include <jpeglib.h>

using namespace votest;
using voimg::detail::ScanSelectionParams;
using voimg::detail::selectProgressiveScans;

namespace {

// --- Pictures and files ---------------------------------------------------------------------------------

// A picture with a photograph's spectrum: value noise summed over octaves with amplitude growing with the
// scale (about 1/f), a few hard-edged shapes, and some per-pixel grain, differently in each channel.
Picture makePhotoLike(int width, int height, int channels, uint32_t seed = 7) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(-1.f, 1.f);
    std::vector<float> plane(size_t(width) * height);
    Picture p{width, height, channels, std::vector<uint8_t>(size_t(width) * height * channels)};
    for (int c = 0; c < channels; ++c) {
        std::fill(plane.begin(), plane.end(), 0.f);
        for (int cell = 128; cell >= 1; cell /= 2) {
            const int gw = width / cell + 2, gh = height / cell + 2;
            std::vector<float> grid(size_t(gw) * gh);
            for (float& g : grid) g = uniform(rng);
            const float amplitude = 0.9f * std::pow(float(cell), 0.8f);
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x) {
                    const float fx = float(x) / cell, fy = float(y) / cell;
                    const int ix = int(fx), iy = int(fy);
                    const float tx = fx - ix, ty = fy - iy;
                    const float* g0 = &grid[size_t(iy) * gw + ix];
                    const float* g1 = g0 + gw;
                    const float top = g0[0] + (g0[1] - g0[0]) * tx, bottom = g1[0] + (g1[1] - g1[0]) * tx;
                    plane[size_t(y) * width + x] += amplitude * (top + (bottom - top) * ty);
                }
        }
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                float v = 128 + plane[size_t(y) * width + x];
                if ((x / 97 + y / 61 + c) % 5 == 0) v += 40;  // hard edges
                v += 3 * uniform(rng);                        // grain
                p.samples[(size_t(y) * width + x) * channels + c] = uint8_t(std::clamp(v, 0.f, 255.f));
            }
    }
    return p;
}

// Encodes with libjpeg: the standard progression when `script` is empty, else that scan script.
Bytes encodeProgressive(const Picture& picture, int quality, const std::vector<JpegScan>& script = {},
                        int restartRows = 0, int lumaSampling = 2) {
    JpegParams params;
    params.colour = picture.channels == 1 ? JpegColour::Grey : JpegColour::Rgb;
    params.lumaH = params.lumaV = lumaSampling;
    params.progressive = true;
    params.scans = script;
    params.restartRows = restartRows;
    params.quality = quality;
    return encodeJpeg(picture, params);
}

// --- Decoding ---------------------------------------------------------------------------------------------

struct Decoded {
    bool ok = false;
    int warnings = 0;
    std::string message;
    Picture picture;  // RGB
};

struct ErrorJump {
    jpeg_error_mgr pub;
    jmp_buf jump;
    int warnings;
};

void jumpOnError(j_common_ptr cinfo) { std::longjmp(reinterpret_cast<ErrorJump*>(cinfo->err)->jump, 1); }
void countWarnings(j_common_ptr cinfo, int level) {
    if (level < 0) ++reinterpret_cast<ErrorJump*>(cinfo->err)->warnings;
}

// All libjpeg calls of a decode, between setjmp and any longjmp; every object it changes is the caller's.
bool runDecode(jpeg_decompress_struct& cinfo, ErrorJump& err, const Bytes& jpeg, unsigned denominator,
               bool blockSmoothing, Picture& picture) {
    if (setjmp(err.jump)) return false;
    jpeg_mem_src(&cinfo, jpeg.data(), jpeg.size());
    jpeg_read_header(&cinfo, TRUE);
    cinfo.out_color_space = JCS_RGB;
    cinfo.scale_num = 1;
    cinfo.scale_denom = denominator;
    cinfo.do_block_smoothing = blockSmoothing ? TRUE : FALSE;
    jpeg_calc_output_dimensions(&cinfo);
    picture.width = int(cinfo.output_width);
    picture.height = int(cinfo.output_height);
    picture.channels = 3;
    picture.samples.resize(size_t(cinfo.output_width) * cinfo.output_height * 3);
    jpeg_start_decompress(&cinfo);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = picture.samples.data() + size_t(cinfo.output_scanline) * cinfo.output_width * 3;
        jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    return true;
}

// Plain libjpeg decode at 1/denominator to RGB; never throws (fatal errors come back as ok = false).
Decoded decodeScaled(const Bytes& jpeg, unsigned denominator, bool blockSmoothing = true) {
    Decoded result;
    jpeg_decompress_struct cinfo{};
    ErrorJump err{};
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = jumpOnError;
    err.pub.emit_message = countWarnings;
    jpeg_create_decompress(&cinfo);
    result.ok = runDecode(cinfo, err, jpeg, denominator, blockSmoothing, result.picture);
    if (!result.ok) {
        char message[JMSG_LENGTH_MAX];
        cinfo.err->format_message(reinterpret_cast<j_common_ptr>(&cinfo), message);
        result.message = message;
    }
    result.warnings = err.warnings;
    jpeg_destroy_decompress(&cinfo);
    return result;
}

int imageHeight(const Bytes& jpeg) { return decodeJpegRaw(jpeg).height; }

// The DCT scale the thumbnail decoder uses: the largest of 1, 2, 4, 8 that leaves at least twice the
// output height.
unsigned dctScaleFor(int height, int outputHeight) {
    unsigned n = 1;
    for (unsigned candidate : {2u, 4u, 8u})
        if (height / int(candidate) >= 2 * outputHeight) n = candidate;
    return n;
}

// --- Thumbnails: separable Lanczos-3 in linear light, back to 8-bit sRGB ----------------------------------

float srgbToLinear(int v) { return float(voimg::srgbDecode(v / 255.0)); }

uint8_t linearToSrgb(float l) { return uint8_t(std::lround(voimg::srgbEncode(std::clamp(double(l), 0.0, 1.0)) * 255)); }

double lanczos3(double x) { return voimg::ResampleKernel{3.0, 1.0}(x); }

// Resamples `length` samples of `in` (with the given strides between samples and between lines) to
// `outLength`, for `lines` lines of 3 channels.
std::vector<float> resampleAxis(const std::vector<float>& in, int length, int lines, int outLength, bool alongRows) {
    const double scale = double(outLength) / length, stretch = std::min(scale, 1.0), support = 3 / stretch;
    std::vector<float> out(size_t(outLength) * lines * 3);
    std::vector<double> weights;
    for (int o = 0; o < outLength; ++o) {
        const double centre = (o + 0.5) / scale - 0.5;
        const int first = std::max(0, int(std::floor(centre - support)));
        const int last = std::min(length - 1, int(std::ceil(centre + support)));
        weights.clear();
        double sum = 0;
        for (int i = first; i <= last; ++i) sum += weights.emplace_back(lanczos3((i - centre) * stretch));
        for (int line = 0; line < lines; ++line)
            for (int c = 0; c < 3; ++c) {
                double acc = 0;
                for (int i = first; i <= last; ++i) {
                    const size_t at = alongRows ? (size_t(line) * length + i) : (size_t(i) * lines + line);
                    acc += weights[size_t(i - first)] * in[at * 3 + c];
                }
                const size_t to = alongRows ? (size_t(line) * outLength + o) : (size_t(o) * lines + line);
                out[to * 3 + c] = float(acc / sum);
            }
    }
    return out;
}

Picture thumbnail(const Picture& source, int outputHeight) {
    const int outputWidth = std::max(1, int(std::lround(double(source.width) * outputHeight / source.height)));
    std::vector<float> linear(source.samples.size());
    for (size_t i = 0; i < linear.size(); ++i) linear[i] = srgbToLinear(source.samples[i]);
    const std::vector<float> rows = resampleAxis(linear, source.width, source.height, outputWidth, true);
    const std::vector<float> both = resampleAxis(rows, source.height, outputWidth, outputHeight, false);
    Picture out{outputWidth, outputHeight, 3, std::vector<uint8_t>(both.size())};
    for (size_t i = 0; i < both.size(); ++i) out.samples[i] = linearToSrgb(both[i]);
    return out;
}

double psnr(const Picture& a, const Picture& b) {
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);
    if (a.samples.size() != b.samples.size() || a.samples.empty()) return 0;
    double sum = 0;
    for (size_t i = 0; i < a.samples.size(); ++i) {
        const double d = double(a.samples[i]) - double(b.samples[i]);
        sum += d * d;
    }
    return sum == 0 ? 99 : 10 * std::log10(255.0 * 255.0 * double(a.samples.size()) / sum);
}

// --- Stream structure -------------------------------------------------------------------------------------

struct Segment {
    uint8_t marker = 0;
    Bytes bytes;  // the whole segment; for SOS the header only
    // SOS only:
    std::vector<int> components;
    int ss = 0, se = 0, ah = 0, al = 0;
};

// Lists the segments of a well-formed file up to EOI (entropy-coded data skipped).
std::vector<Segment> segmentsOf(const Bytes& b) {
    std::vector<Segment> out;
    size_t i = 2;
    while (i + 1 < b.size()) {
        if (b[i] != 0xFF) throw std::runtime_error("expected a marker");
        while (b[i + 1] == 0xFF) ++i;
        Segment s;
        s.marker = b[i + 1];
        if (s.marker == 0xD9) break;
        const size_t length = size_t(b[i + 2]) << 8 | b[i + 3];
        s.bytes.assign(b.begin() + long(i), b.begin() + long(i + 2 + length));
        i += 2 + length;
        if (s.marker == 0xDA) {
            const uint8_t* h = s.bytes.data() + 4;
            for (int c = 0; c < h[0]; ++c) s.components.push_back(h[1 + 2 * c]);
            const uint8_t* t = h + 1 + 2 * h[0];
            s.ss = t[0], s.se = t[1], s.ah = t[2] >> 4, s.al = t[2] & 15;
            while (!(b[i] == 0xFF && b[i + 1] != 0x00 && (b[i + 1] < 0xD0 || b[i + 1] > 0xD7))) ++i;
        }
        out.push_back(std::move(s));
    }
    return out;
}

std::vector<Segment> scansOf(const Bytes& b) {
    std::vector<Segment> scans;
    for (Segment& s : segmentsOf(b))
        if (s.marker == 0xDA) scans.push_back(std::move(s));
    return scans;
}

std::vector<Bytes> tablesOf(const Bytes& b) {
    std::vector<Bytes> tables;
    for (Segment& s : segmentsOf(b))
        if (s.marker != 0xDA) tables.push_back(std::move(s.bytes));
    return tables;
}

// Checks that `selected` decodes at the thumbnail's scale without any libjpeg warning to the size of the
// original, and that both thumbnail renditions match the original's within `minimumDb`.
void expectSameThumbnails(const Bytes& original, const voimg::detail::ScanSelection& selection, int outputHeight,
                          double minimumDb = 45) {
    const unsigned n = dctScaleFor(imageHeight(original), outputHeight);
    const Decoded full = decodeScaled(original, n);
    const Decoded part = decodeScaled(selection.stream, n, selection.blockSmoothing);
    ASSERT_TRUE(full.ok) << full.message;
    ASSERT_TRUE(part.ok) << part.message;
    EXPECT_EQ(part.warnings, 0);
    ASSERT_EQ(part.picture.width, full.picture.width);
    ASSERT_EQ(part.picture.height, full.picture.height);
    for (const int h : {outputHeight, outputHeight / 4}) {
        const double db = psnr(thumbnail(full.picture, h), thumbnail(part.picture, h));
        EXPECT_GE(db, minimumDb) << "rendition " << h << " high";
        std::printf("    %d high: %.1f dB, %d of %d scans, %.0f%% of the bytes\n", h, db, selection.keptScans,
                    selection.totalScans, 100.0 * double(selection.stream.size()) / double(original.size()));
    }
}

const Picture& photo() {
    static const Picture picture = makePhotoLike(1200, 800, 3);
    return picture;
}

}  // namespace

TEST(JpegScanSelect, BaselineFileIsLeftAlone) {
    JpegParams params;
    const Bytes baseline = encodeJpeg(photo(), params);
    const auto selection = selectProgressiveScans(baseline.data(), baseline.size(), 8.0);
    EXPECT_TRUE(selection.stream.empty());
}

TEST(JpegScanSelect, NoReductionKeepsEverything) {
    const Bytes jpeg = encodeProgressive(photo(), 92);
    for (const double reduction : {1.0, 0.5, 0.0, -3.0, std::nan("")}) {
        const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), reduction);
        EXPECT_TRUE(selection.stream.empty()) << reduction;
        EXPECT_EQ(selection.totalScans, 10);
        EXPECT_EQ(selection.keptScans, 10);
    }
}

TEST(JpegScanSelect, SmallReductionOfCoarseFileKeepsEverything) {
    // At a 2x reduction every band shows, and a quality-75 file's steps are too coarse to lose a bit.
    const Bytes jpeg = encodeProgressive(photo(), 75);
    const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 2.0);
    EXPECT_TRUE(selection.stream.empty());
    EXPECT_EQ(selection.keptScans, selection.totalScans);
}

TEST(JpegScanSelect, TypicalThumbnailDropsHighBandsAndRefinements) {
    const Bytes jpeg = encodeProgressive(photo(), 92);
    const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 800.0 / 120);
    ASSERT_FALSE(selection.stream.empty());
    EXPECT_LT(selection.keptScans, selection.totalScans);
    EXPECT_LT(selection.stream.size(), jpeg.size() * 3 / 4);
    EXPECT_EQ(selection.stream.front(), 0xFF);
    EXPECT_EQ(selection.stream[1], 0xD8);
    EXPECT_EQ(selection.stream[selection.stream.size() - 2], 0xFF);
    EXPECT_EQ(selection.stream.back(), 0xD9);
    // The last scan of the standard progression (the luma's least significant bit) is the largest; it goes.
    const auto all = scansOf(jpeg), kept = scansOf(selection.stream);
    EXPECT_EQ(int(kept.size()), selection.keptScans);
    const Segment& last = all.back();
    EXPECT_FALSE(std::any_of(kept.begin(), kept.end(), [&](const Segment& s) { return s.bytes == last.bytes; }));
    expectSameThumbnails(jpeg, selection, 120);
}

TEST(JpegScanSelect, LargeReductionsKeepLittleAndStillMatch) {
    const Bytes jpeg = encodeProgressive(photo(), 92);
    int previousKept = 1 << 30;
    for (const int outputHeight : {300, 200, 120, 80, 40}) {
        const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 800.0 / outputHeight);
        if (selection.stream.empty()) continue;  // nothing to drop at this size
        EXPECT_LE(selection.keptScans, previousKept);
        previousKept = selection.keptScans;
        expectSameThumbnails(jpeg, selection, outputHeight);
    }
    EXPECT_LT(previousKept, 10);
}

TEST(JpegScanSelect, DcScansAreAlwaysKept) {
    // DC split per component with its own refinement, spectral selection only for the AC bands.
    const std::vector<JpegScan> script = {{{0}, 0, 0, 0, 1},  {{1}, 0, 0, 0, 1},      {{2}, 0, 0, 0, 1},
                                          {{0}, 1, 5, 0, 0},  {{1}, 1, 63, 0, 0},     {{2}, 1, 63, 0, 0},
                                          {{0}, 6, 63, 0, 0}, {{0, 1, 2}, 0, 0, 1, 0}};
    const Bytes jpeg = encodeProgressive(photo(), 90, script, 0, 1);
    for (const double reduction : {1000.0, 1e12}) {
        const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), reduction);
        ASSERT_FALSE(selection.stream.empty());
        const auto kept = scansOf(selection.stream);
        ASSERT_EQ(kept.size(), 4u);
        for (const Segment& scan : kept) EXPECT_EQ(scan.ss, 0);
        EXPECT_EQ(kept.back().ah, 1);  // the DC refinement
        const Decoded part = decodeScaled(selection.stream, 8, selection.blockSmoothing);
        ASSERT_TRUE(part.ok) << part.message;
        EXPECT_EQ(part.warnings, 0);
        // At 1/8 without chroma subsampling only DC is decoded: the picture is exactly the whole file's.
        EXPECT_EQ(part.picture.samples, decodeScaled(jpeg, 8).picture.samples);
    }
}

TEST(JpegScanSelect, SpectralSelectionDropsOnlyHighBands) {
    const std::vector<JpegScan> script = {{{0, 1, 2}, 0, 0, 0, 0}, {{0}, 1, 2, 0, 0}, {{0}, 3, 8, 0, 0},
                                          {{1}, 1, 5, 0, 0},       {{2}, 1, 5, 0, 0}, {{0}, 9, 63, 0, 0},
                                          {{1}, 6, 63, 0, 0},      {{2}, 6, 63, 0, 0}};
    const Bytes jpeg = encodeProgressive(photo(), 92, script);
    const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 800.0 / 80);
    ASSERT_FALSE(selection.stream.empty());
    for (const Segment& scan : scansOf(selection.stream)) EXPECT_LT(scan.ss, 9) << "band " << scan.ss << "-" << scan.se;
    expectSameThumbnails(jpeg, selection, 80);
}

TEST(JpegScanSelect, RefinementKeepsTheHistoryOfItsBand) {
    // The luma refinement to Al = 1 spans bands first sent in three scans: keeping it keeps all three,
    // however little of 10..63 the thumbnail needs.
    const std::vector<JpegScan> script = {{{0, 1, 2}, 0, 0, 0, 1}, {{0}, 1, 2, 0, 2},       {{1}, 1, 63, 0, 1},
                                          {{2}, 1, 63, 0, 1},      {{0}, 3, 9, 0, 2},       {{0}, 10, 63, 0, 2},
                                          {{0}, 1, 63, 2, 1},      {{0, 1, 2}, 0, 0, 1, 0}, {{1}, 1, 63, 1, 0},
                                          {{2}, 1, 63, 1, 0},      {{0}, 1, 9, 1, 0},       {{0}, 10, 63, 1, 0}};
    const Bytes jpeg = encodeProgressive(photo(), 90, script);
    // A tight error budget, so that the refinement to Al = 1 is needed.
    ScanSelectionParams tight;
    tight.maxErrorLevels = 0.5;
    const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 800.0 / 120, tight);
    ASSERT_FALSE(selection.stream.empty());
    const auto kept = scansOf(selection.stream);
    const auto has = [&](int component, int ss, int se, int ah) {
        return std::any_of(kept.begin(), kept.end(), [&](const Segment& s) {
            return s.components.size() == 1 && s.components[0] == component && s.ss == ss && s.se == se && s.ah == ah;
        });
    };
    EXPECT_TRUE(has(1, 1, 63, 2));
    EXPECT_TRUE(has(1, 10, 63, 0));
    EXPECT_TRUE(has(1, 3, 9, 0));
    EXPECT_FALSE(has(1, 10, 63, 1));
    expectSameThumbnails(jpeg, selection, 120);
}

TEST(JpegScanSelect, GreyAndFullChromaFiles) {
    Picture grey{photo().width, photo().height, 1, {}};
    for (size_t i = 0; i < size_t(grey.width) * grey.height; ++i) grey.samples.push_back(photo().samples[i * 3 + 1]);
    for (const Bytes& jpeg : {encodeProgressive(grey, 90), encodeProgressive(photo(), 95, {}, 0, 1)}) {
        const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 800.0 / 120);
        ASSERT_FALSE(selection.stream.empty());
        EXPECT_LT(selection.keptScans, selection.totalScans);
        expectSameThumbnails(jpeg, selection, 120);
    }
}

TEST(JpegScanSelect, TablesBetweenScansAreKept) {
    // libjpeg writes optimised Huffman tables (DHT) before each progressive scan; add a comment and a
    // restart interval between scans too.
    Bytes jpeg = encodeProgressive(photo(), 92);
    // FF DA cannot occur inside entropy-coded data (an FF there is followed by 00 or a restart marker).
    size_t thirdScan = 0;
    for (size_t i = 0, seen = 0; i + 1 < jpeg.size() && !thirdScan; ++i)
        if (jpeg[i] == 0xFF && jpeg[i + 1] == 0xDA && ++seen == 3) thirdScan = i;
    ASSERT_NE(thirdScan, 0u);
    const Bytes extra = {0xFF, 0xFE, 0x00, 0x06, 'n', 'o', 't', 'e', 0xFF, 0xDD, 0x00, 0x04, 0x00, 0x00};
    jpeg.insert(jpeg.begin() + long(thirdScan), extra.begin(), extra.end());
    ASSERT_TRUE(decodeScaled(jpeg, 2).ok);

    const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 800.0 / 120);
    ASSERT_FALSE(selection.stream.empty());
    EXPECT_EQ(tablesOf(selection.stream), tablesOf(jpeg));
    int dht = 0;
    for (const Bytes& table : tablesOf(selection.stream)) dht += table[1] == 0xC4;
    EXPECT_GT(dht, selection.keptScans);
    expectSameThumbnails(jpeg, selection, 120);
}

TEST(JpegScanSelect, RestartMarkersInsideScans) {
    const Bytes jpeg = encodeProgressive(photo(), 92, {}, 1);
    size_t restarts = 0;
    for (size_t i = 0; i + 1 < jpeg.size(); ++i)
        restarts += jpeg[i] == 0xFF && jpeg[i + 1] >= 0xD0 && jpeg[i + 1] <= 0xD7;
    ASSERT_GT(restarts, 100u);
    const auto selection = selectProgressiveScans(jpeg.data(), jpeg.size(), 800.0 / 120);
    EXPECT_EQ(selection.totalScans, 10);
    ASSERT_FALSE(selection.stream.empty());
    expectSameThumbnails(jpeg, selection, 120);
}

TEST(JpegScanSelect, StuffedBytesRestartsAndFillDoNotEndAScan) {
    // A hand-made file: the parser never entropy-decodes, so the scans' data only has to look right.
    Bytes file = {0xFF, 0xD8,
                  // DQT: table 0, all ones
                  0xFF, 0xDB, 0x00, 0x43, 0x00};
    file.insert(file.end(), 64, 1);
    const Bytes frame = {0xFF, 0xC2, 0x00, 0x0B, 0x08, 0x00, 0x10, 0x00, 0x10, 0x01, 0x01, 0x11, 0x00};
    file.insert(file.end(), frame.begin(), frame.end());
    const auto addScan = [&](int ss, int se, int ah, int al, const Bytes& data) {
        const Bytes header = {0xFF, 0xDA, 0x00,        0x08,        0x01,
                              0x01, 0x00, uint8_t(ss), uint8_t(se), uint8_t(ah << 4 | al)};
        file.insert(file.end(), header.begin(), header.end());
        file.insert(file.end(), data.begin(), data.end());
    };
    const Bytes dcData = {0x12, 0xFF, 0x00, 0x34, 0xFF, 0xD0, 0x56, 0xFF, 0xFF, 0xD1, 0x78, 0xFF, 0x00};
    addScan(0, 0, 0, 0, dcData);
    addScan(1, 63, 0, 0, {0x9A, 0xFF, 0x00, 0xFF, 0xD7, 0xBC});
    file.insert(file.end(), {0xFF, 0xFF, 0xD9});  // fill byte before EOI

    const auto selection = selectProgressiveScans(file.data(), file.size(), 100.0);
    EXPECT_EQ(selection.totalScans, 2);
    EXPECT_EQ(selection.keptScans, 1);
    ASSERT_FALSE(selection.stream.empty());
    // Everything up to the end of the DC scan's data, then EOI.
    const size_t dcEnd = 2 + 2 + 0x43 + frame.size() + 10 + dcData.size();
    Bytes expected(file.begin(), file.begin() + long(dcEnd));
    expected.insert(expected.end(), {0xFF, 0xD9});
    EXPECT_EQ(selection.stream, expected);
}

TEST(JpegScanSelect, DamagedInputGivesEmptyOrWellFormedStreams) {
    const Bytes jpeg = encodeProgressive(makePhotoLike(160, 120, 3, 3), 92, {}, 2);
    int selected = 0;
    const auto check = [&](const Bytes& input) {
        // A copy of exactly the input's size, so that any read past it is caught by the address sanitizer.
        const std::unique_ptr<uint8_t[]> exact(new uint8_t[std::max<size_t>(input.size(), 1)]);
        std::copy(input.begin(), input.end(), exact.get());
        const auto selection = selectProgressiveScans(exact.get(), input.size(), 6.67);
        if (selection.stream.empty()) return;
        ++selected;
        EXPECT_LT(selection.keptScans, selection.totalScans);
        EXPECT_LE(selection.stream.size(), input.size() + 2);
        ASSERT_GE(selection.stream.size(), 4u);
        EXPECT_EQ(selection.stream[0], 0xFF);
        EXPECT_EQ(selection.stream[1], 0xD8);
        EXPECT_EQ(selection.stream[selection.stream.size() - 1], 0xD9);
        (void)decodeScaled(selection.stream, 2);  // may report damage, must not crash
    };
    // Truncations at many lengths: a file cut short has no EOI and is left to the ordinary decoder.
    for (size_t length = 0; length < jpeg.size(); length += 1 + length / 64) {
        const Bytes cut(jpeg.begin(), jpeg.begin() + long(length));
        EXPECT_TRUE(selectProgressiveScans(cut.data(), cut.size(), 6.67).stream.empty()) << length;
        check(cut);
    }
    // Random damage of one to eight bytes anywhere, and pure noise.
    std::mt19937 rng(11);
    for (int round = 0; round < 3000; ++round) {
        Bytes damaged = jpeg;
        const int count = 1 + int(rng() % 8);
        const size_t limit = round % 2 ? std::min<size_t>(damaged.size(), 1200) : damaged.size();  // headers often
        for (int i = 0; i < count; ++i) damaged[rng() % limit] = uint8_t(rng());
        check(damaged);
    }
    EXPECT_GT(selected, 500);  // most damage leaves the structure intact: the kept streams were decoded
    for (int round = 0; round < 200; ++round) {
        Bytes noise(rng() % 4000);
        for (uint8_t& b : noise) b = uint8_t(rng() % 3 == 0 ? 0xFF : rng());
        if (noise.size() >= 2 && round % 2) noise[0] = 0xFF, noise[1] = 0xD8;
        check(noise);
    }
    EXPECT_TRUE(selectProgressiveScans(nullptr, 0, 6.67).stream.empty());
}
