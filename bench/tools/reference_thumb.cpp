// SPDX-License-Identifier: MIT
// reference_thumb [--save DIR] ORIGINAL MAPPING:THUMB [MAPPING:THUMB ...]
//
// Scores thumbnails of ORIGINAL against a slow, straightforward rendition of the same size: the original
// decoded at full resolution, converted to linear light in double precision (alpha premultiplied),
// resampled separably with Lanczos-3 (widened by 1/scale when shrinking; pixel centres at (x + 0.5) / s;
// weights renormalised over the pixels that exist, so edges stay opaque), composited over black and
// encoded back to 8-bit sRGB.
//
// MAPPING says how the thumbnail's pixels sit on the original:
//   stretch  the whole original onto the whole thumbnail: sx = outW / inW, sy = outH / inH
//   fit      one uniform scale s = outH / inH; the thumbnail covers [0, inW * s) x [0, outH), so its
//            last column may be only partly covered, and that coverage is composited over black
//
// For each thumbnail prints one tab-separated line: PSNR (dB, 8-bit sRGB R, G and B, peak 255; "inf"
// when identical), the thumbnail's WIDTHxHEIGHT and its path; or "error", a message and the path.
// --save DIR also writes each reference rendition as DIR/<thumbnail name>.ref.png.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <map>
#include <numbers>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "Engine/codec/codec.h"

namespace {

// ---- colour ----

double srgbToLinear(double encoded) {
    return encoded <= 0.04045 ? encoded / 12.92 : std::pow((encoded + 0.055) / 1.055, 2.4);
}

uint8_t linearToSrgb8(double linear) {
    const double v = std::clamp(linear, 0.0, 1.0);
    const double encoded = v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1.0 / 2.4) - 0.055;
    return uint8_t(std::lround(encoded * 255.0));
}

// Linear value of every sample code of the image's depth.
std::vector<double> linearTable(bool sixteenBit) {
    const int maxCode = sixteenBit ? 65535 : 255;
    std::vector<double> table(size_t(maxCode) + 1);
    for (int code = 0; code <= maxCode; ++code) table[size_t(code)] = srgbToLinear(double(code) / maxCode);
    return table;
}

// ---- the rendition's geometry ----

// One output axis: `scale` output pixels per input pixel; output pixels cover [0, extent).
struct Axis {
    int in = 0;
    int out = 0;
    double scale = 1.0;
    double extent = 0.0;

    [[nodiscard]] double coverage(int o) const { return std::clamp(extent - o, 0.0, 1.0); }
};

struct Mapping {
    Axis x;
    Axis y;
};

Mapping stretchMapping(int inW, int inH, int outW, int outH) {
    return {{inW, outW, double(outW) / inW, double(outW)}, {inH, outH, double(outH) / inH, double(outH)}};
}

Mapping fitMapping(int inW, int inH, int outW, int outH) {
    const double s = double(outH) / inH;
    return {{inW, outW, s, inW * s}, {inH, outH, s, inH * s}};
}

// The number of columns a uniform scale covers: partly covered columns count, an edge within 1/1000 of a
// pixel past a whole number does not.
int coveredPixels(double extent) { return int(std::ceil(extent - 1e-3)); }

// ---- Lanczos-3 ----

double lanczos3(double x) {
    x = std::fabs(x);
    if (x < 1e-12) return 1.0;
    if (x >= 3.0) return 0.0;
    const double px = std::numbers::pi * x;
    return 3.0 * std::sin(px) * std::sin(px / 3.0) / (px * px);
}

struct Taps {
    int first = 0;
    std::vector<double> weights;
};

// Weights of every output pixel of one axis over the input pixels that exist, summing to one.
std::vector<Taps> lanczosTaps(const Axis& axis) {
    const double shrink = std::min(axis.scale, 1.0);
    const double radius = 3.0 / shrink;
    std::vector<Taps> taps(size_t(axis.out));
    for (int o = 0; o < axis.out; ++o) {
        const double centre = (o + 0.5) / axis.scale;
        const int first = std::max(0, int(std::floor(centre - radius)));
        const int last = std::min(axis.in - 1, int(std::ceil(centre + radius)));
        Taps& t = taps[size_t(o)];
        t.first = first;
        double sum = 0.0;
        for (int i = first; i <= last; ++i) {
            const double w = lanczos3((i + 0.5 - centre) * shrink);
            t.weights.push_back(w);
            sum += w;
        }
        if (sum != 0.0) {
            for (double& w : t.weights) w /= sum;
        }
    }
    return taps;
}

// ---- the reference rendition ----

// Runs body(begin, end) over [0, count) split across the machine's cores.
template <typename Body>
void parallelRanges(int count, const Body& body) {
    const int threads = std::max(1, std::min(int(std::thread::hardware_concurrency()), count));
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
        const int begin = int(int64_t(count) * t / threads);
        const int end = int(int64_t(count) * (t + 1) / threads);
        workers.emplace_back([&body, begin, end] { body(begin, end); });
    }
    for (std::thread& worker : workers) worker.join();
}

// Row y of the original as premultiplied linear R, G, B.
void linearRow(const voimg::DecodedImage& image, const std::vector<double>& table, int y, double* out) {
    const double maxCode = image.sixteenBit ? 65535.0 : 255.0;
    for (int x = 0; x < image.width; ++x) {
        uint32_t px[4];
        const size_t index = (size_t(y) * image.width + x) * 4;
        for (int c = 0; c < 4; ++c) {
            px[c] = image.sixteenBit ? reinterpret_cast<const uint16_t*>(image.pixels.data())[index + c]
                                     : image.pixels[index + c];
        }
        const double alpha = px[3] / maxCode;
        for (int c = 0; c < 3; ++c) out[size_t(x) * 3 + c] = table[px[c]] * alpha;
    }
}

// The rendition as 8-bit sRGB RGBA (opaque: composited over black), top row first.
std::vector<uint8_t> renderReference(const voimg::DecodedImage& image, const Mapping& mapping) {
    const std::vector<double> table = linearTable(image.sixteenBit);
    const std::vector<Taps> columns = lanczosTaps(mapping.x);
    const std::vector<Taps> rows = lanczosTaps(mapping.y);
    const int outW = mapping.x.out;
    const int outH = mapping.y.out;

    // Horizontal pass: every input row resampled to the output width.
    std::vector<double> horizontal(size_t(image.height) * outW * 3);
    parallelRanges(image.height, [&](int begin, int end) {
        std::vector<double> line(size_t(image.width) * 3);
        for (int y = begin; y < end; ++y) {
            linearRow(image, table, y, line.data());
            double* out = &horizontal[size_t(y) * outW * 3];
            for (int o = 0; o < outW; ++o) {
                const Taps& t = columns[size_t(o)];
                double sum[3] = {0, 0, 0};
                for (size_t k = 0; k < t.weights.size(); ++k) {
                    const double* px = &line[(size_t(t.first) + k) * 3];
                    for (int c = 0; c < 3; ++c) sum[c] += t.weights[k] * px[c];
                }
                for (int c = 0; c < 3; ++c) out[size_t(o) * 3 + c] = sum[c];
            }
        }
    });

    // Vertical pass, coverage of partly covered border pixels, back to sRGB.
    std::vector<uint8_t> rgba(size_t(outW) * outH * 4);
    parallelRanges(outH, [&](int begin, int end) {
        for (int o = begin; o < end; ++o) {
            const Taps& t = rows[size_t(o)];
            for (int x = 0; x < outW; ++x) {
                double sum[3] = {0, 0, 0};
                for (size_t k = 0; k < t.weights.size(); ++k) {
                    const double* px = &horizontal[((size_t(t.first) + k) * outW + x) * 3];
                    for (int c = 0; c < 3; ++c) sum[c] += t.weights[k] * px[c];
                }
                const double coverage = mapping.x.coverage(x) * mapping.y.coverage(o);
                uint8_t* out = &rgba[(size_t(o) * outW + x) * 4];
                for (int c = 0; c < 3; ++c) out[c] = linearToSrgb8(sum[c] * coverage);
                out[3] = 255;
            }
        }
    });
    return rgba;
}

// ---- scoring ----

// PSNR of the thumbnail's R, G, B against the reference's (both 8-bit sRGB).
double psnr(const voimg::DecodedImage& thumb, const std::vector<uint8_t>& reference) {
    double squared = 0.0;
    const size_t pixels = size_t(thumb.width) * thumb.height;
    for (size_t i = 0; i < pixels; ++i) {
        for (int c = 0; c < 3; ++c) {
            const int value = thumb.sixteenBit ? reinterpret_cast<const uint16_t*>(thumb.pixels.data())[i * 4 + c] >> 8
                                               : thumb.pixels[i * 4 + c];
            const double d = double(value) - reference[i * 4 + c];
            squared += d * d;
        }
    }
    const double mse = squared / (double(pixels) * 3.0);
    return mse == 0.0 ? INFINITY : 10.0 * std::log10(255.0 * 255.0 / mse);
}

struct Job {
    std::string mapping;
    std::string path;
};

void printError(const std::string& message, const std::string& path) {
    std::printf("error\t%s\t%s\n", message.c_str(), path.c_str());
}

}  // namespace

int main(int argc, char** argv) {
    std::string saveDir;
    std::string original;
    std::vector<Job> jobs;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--save" && i + 1 < argc) {
            saveDir = argv[++i];
        } else if (original.empty()) {
            original = arg;
        } else {
            const size_t colon = arg.find(':');
            const std::string mapping = colon == std::string::npos ? "" : arg.substr(0, colon);
            if (mapping != "fit" && mapping != "stretch") {
                std::fprintf(stderr, "expecting fit:THUMB or stretch:THUMB, got %s\n", arg.c_str());
                return 2;
            }
            jobs.push_back({mapping, arg.substr(colon + 1)});
        }
    }
    if (original.empty() || jobs.empty()) {
        std::fprintf(stderr, "usage: reference_thumb [--save DIR] ORIGINAL fit:THUMB|stretch:THUMB ...\n");
        return 2;
    }

    std::string error;
    const auto image = voimg::decodeImageFile(original, {}, &error);
    if (!image) {
        std::fprintf(stderr, "cannot decode %s: %s\n", original.c_str(), error.c_str());
        return 1;
    }

    // Renditions already made, by mapping and size: peers often agree on the size.
    std::map<std::tuple<std::string, int, int>, std::vector<uint8_t>> references;
    for (const Job& job : jobs) {
        const auto thumb = voimg::decodeImageFile(job.path, {}, &error);
        if (!thumb) {
            printError("cannot decode: " + error, job.path);
            continue;
        }
        const Mapping mapping = job.mapping == "fit"
                                    ? fitMapping(image->width, image->height, thumb->width, thumb->height)
                                    : stretchMapping(image->width, image->height, thumb->width, thumb->height);
        if (job.mapping == "fit" && coveredPixels(mapping.x.extent) != thumb->width) {
            printError("width " + std::to_string(thumb->width) + ", a uniform scale covers " +
                           std::to_string(coveredPixels(mapping.x.extent)) + " columns",
                       job.path);
            continue;
        }
        const auto key = std::make_tuple(job.mapping, thumb->width, thumb->height);
        auto found = references.find(key);
        if (found == references.end()) found = references.emplace(key, renderReference(*image, mapping)).first;
        if (!saveDir.empty()) {
            const std::string name = std::filesystem::path(job.path).filename().string() + ".ref.png";
            const std::string target = (std::filesystem::path(saveDir) / name).string();
            if (!voimg::writePngFile(target, found->second.data(), thumb->width, thumb->height, &error)) {
                std::fprintf(stderr, "cannot write %s: %s\n", target.c_str(), error.c_str());
            }
        }
        std::printf("%.3f\t%dx%d\t%s\n", psnr(*thumb, found->second), thumb->width, thumb->height, job.path.c_str());
        std::fflush(stdout);
    }
    return 0;
}
