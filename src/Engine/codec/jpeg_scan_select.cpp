// SPDX-License-Identifier: MIT
// Progressive JPEG scan selection: which scans a reduced decode needs, found from the markers alone.
//
// The file is walked segment by segment. A scan is its SOS segment plus the entropy-coded bytes after it,
// which end at the first marker that is neither a restart marker (FFD0..FFD7) nor a stuffed data byte
// (FF00); fill bytes (FF FF ...) may precede either. Everything that is not a scan (tables, restart
// intervals, application data) is copied, so a kept scan sees the same tables and restart interval as in
// the original.
//
// Which scans are needed:
// - A coefficient at horizontal and vertical frequency index (u, v) of a component sampled at 1/sx x 1/sy
//   of full resolution varies at u / (16 sx) and v / (16 sy) cycles per full-resolution pixel. After a
//   reduction by R the output keeps frequencies below 0.5 / R. The resampling filter passes part of its
//   transition band, and a cosine cut to one block spreads to lower frequencies, so a coefficient counts as
//   needed when both its frequencies lie below bandMargin x 0.5 / R (measured: a margin of 1.5 loses the
//   u = 1 coefficients of sharp photographs at R = 16). DC is always needed.
// - A first scan (Ah = 0) is kept when its band holds a needed coefficient.
// - A refinement scan (Ah > 0) adds one bit to each coefficient of its band. Leaving out the last bits of a
//   component leaves an error of up to (2^bits - 1) quantizer steps on each coefficient. How much of that
//   reaches the thumbnail is estimated per coefficient from its quantizer and from how much of its basis
//   function the resampling filter lets through (basisGains), for noise-like content where half of the
//   coefficients are hit. A component's refinement scans with Al below the number of bits that keeps the
//   estimate within budget are left out.
// - A refinement scan can only be decoded with the exact history of its whole band: the decoder reads a
//   correction bit for each coefficient that is already nonzero, so a missing earlier scan of any
//   coefficient in the band shifts every bit after it. Every kept refinement scan therefore keeps all
//   earlier scans of its component that touch its band (and, in turn, theirs).
// - DC scans (first and refinement) are always kept: they are small and the whole picture rests on them.
//
// Anything unexpected (not a progressive Huffman frame, inconsistent progression, a truncated or damaged
// segment) gives up and returns an empty stream: the caller then decodes the original bytes, which is
// always correct.
#include "jpeg_scan_select_p.h"

#include "../resample_taps_p.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace voimg::detail {
namespace {

// Files with absurd numbers of scans are left to the ordinary decoder (which rejects them).
constexpr int kMaxScans = 1000;
// libjpeg's limits: components per frame and per scan, successive approximation bit positions.
constexpr int kMaxComponents = 10;
constexpr int kMaxScanComponents = 4;
constexpr int kMaxAl = 10;

// Position in the 8x8 block (row * 8 + column) of each zigzag index.
constexpr uint8_t kNaturalOrder[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                       12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                       35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                       58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

constexpr uint8_t kSOI = 0xD8, kEOI = 0xD9, kSOS = 0xDA, kDNL = 0xDC, kSOF2 = 0xC2;

struct Component {
    int id = 0;
    int h = 1, v = 1;  // sampling factors
    int tq = 0;        // quantization table selector
    bool latched = false;
    uint16_t quant[64] = {};  // zigzag order, latched at the component's first scan
    int bits[64];             // Al of the last scan that touched each coefficient, -1 before any
};

struct Scan {
    size_t begin = 0, end = 0;  // SOS marker up to the marker after the entropy-coded data
    int components[kMaxScanComponents] = {};
    int componentCount = 0;
    int ss = 0, se = 0, ah = 0, al = 0;
    [[nodiscard]] uint64_t band() const {
        // Bits ss..se of a 64-bit mask.
        const uint64_t upper = se >= 63 ? ~uint64_t(0) : (uint64_t(1) << (se + 1)) - 1;
        return upper & ~((uint64_t(1) << ss) - 1);
    }
};

// A byte range to copy to the output; scan >= 0 marks a scan's range.
struct Piece {
    size_t begin = 0, end = 0;
    int scan = -1;
};

struct Parsed {
    std::vector<Component> components;
    std::vector<Scan> scans;
    std::vector<Piece> pieces;
};

unsigned be16(const uint8_t* p) { return unsigned(p[0]) << 8 | p[1]; }

bool isSof(uint8_t code) { return code >= 0xC0 && code <= 0xCF && code != 0xC4 && code != 0xC8 && code != 0xCC; }

// End of the entropy-coded data that starts at `pos`: the first 0xFF of the next marker that is neither
// RSTn nor a stuffed zero. Returns `size` when the data runs to the end of the buffer (a truncated file).
size_t entropyEnd(const uint8_t* data, size_t size, size_t pos) {
    while (pos < size) {
        const void* hit = std::memchr(data + pos, 0xFF, size - pos);
        if (!hit) return size;
        const size_t ff = size_t(static_cast<const uint8_t*>(hit) - data);
        size_t next = ff + 1;
        while (next < size && data[next] == 0xFF) ++next;  // fill bytes
        if (next >= size) return size;
        const uint8_t code = data[next];
        if (code == 0x00 || (code >= 0xD0 && code <= 0xD7)) {
            pos = next + 1;
            continue;
        }
        return ff;
    }
    return size;
}

// Reads a DQT segment's payload into the current tables (zigzag order, as stored in the file).
bool readQuantTables(const uint8_t* p, size_t length, uint16_t tables[4][64], bool defined[4]) {
    size_t i = 0;
    while (i < length) {
        const int precision = p[i] >> 4, index = p[i] & 15;
        ++i;
        if (precision > 1 || index > 3) return false;
        const size_t bytes = precision ? 128 : 64;
        if (length - i < bytes) return false;
        for (int k = 0; k < 64; ++k) tables[index][k] = precision ? uint16_t(be16(p + i + 2 * k)) : p[i + k];
        defined[index] = true;
        i += bytes;
    }
    return true;
}

// Parses the frame and the scans' headers and checks that the progression is one libjpeg decodes exactly.
// Returns false for anything else (including baseline files).
bool parse(const uint8_t* data, size_t size, Parsed& out) {
    if (size < 4 || data[0] != 0xFF || data[1] != kSOI) return false;
    uint16_t tables[4][64] = {};
    bool defined[4] = {};
    bool haveFrame = false;
    size_t pos = 2;
    out.pieces.push_back({0, 2, -1});
    for (;;) {
        if (pos >= size || data[pos] != 0xFF) return false;     // truncated, or bytes between segments
        while (pos + 1 < size && data[pos + 1] == 0xFF) ++pos;  // fill bytes before a marker
        if (pos + 1 >= size) return false;
        const size_t start = pos;
        const uint8_t code = data[pos + 1];
        pos += 2;
        if (code == kEOI) return haveFrame && !out.scans.empty();
        if (code == 0x01 || (code >= 0xD0 && code <= 0xD7)) continue;  // stray standalone markers: dropped
        if (code == 0x00 || code == kSOI || code == kDNL) return false;
        if (size - pos < 2) return false;
        const size_t length = be16(data + pos);
        if (length < 2 || size - pos < length) return false;
        const uint8_t* body = data + pos + 2;
        const size_t bodyLength = length - 2;
        pos += length;

        if (isSof(code)) {
            if (code != kSOF2 || haveFrame) return false;
            if (bodyLength < 6) return false;
            const unsigned height = be16(body + 1), width = be16(body + 3), count = body[5];
            if (body[0] != 8 || height == 0 || width == 0 || count < 1 || count > kMaxComponents ||
                bodyLength != 6 + 3 * size_t(count))
                return false;
            for (unsigned c = 0; c < count; ++c) {
                Component component;
                component.id = body[6 + 3 * c];
                component.h = body[7 + 3 * c] >> 4;
                component.v = body[7 + 3 * c] & 15;
                component.tq = body[8 + 3 * c];
                if (component.h < 1 || component.h > 4 || component.v < 1 || component.v > 4 || component.tq > 3)
                    return false;
                for (const Component& other : out.components)
                    if (other.id == component.id) return false;
                std::fill(std::begin(component.bits), std::end(component.bits), -1);
                out.components.push_back(component);
            }
            haveFrame = true;
        } else if (code == kSOS) {
            if (!haveFrame || out.scans.size() >= size_t(kMaxScans) || bodyLength < 1) return false;
            Scan scan;
            scan.begin = start;
            scan.componentCount = body[0];
            if (scan.componentCount < 1 || scan.componentCount > kMaxScanComponents ||
                bodyLength != 4 + 2 * size_t(scan.componentCount))
                return false;
            for (int i = 0; i < scan.componentCount; ++i) {
                const int id = body[1 + 2 * i];
                int index = -1;
                for (size_t c = 0; c < out.components.size(); ++c)
                    if (out.components[c].id == id) index = int(c);
                if (index < 0) return false;
                for (int j = 0; j < i; ++j)
                    if (scan.components[j] == index) return false;
                scan.components[i] = index;
            }
            const uint8_t* tail = body + 1 + 2 * scan.componentCount;
            scan.ss = tail[0];
            scan.se = tail[1];
            scan.ah = tail[2] >> 4;
            scan.al = tail[2] & 15;
            // The progression rules libjpeg enforces, plus an exact history for every coefficient: each
            // coefficient's first scan has Ah = 0, each refinement continues where the last scan stopped,
            // and AC comes only after the component's DC.
            if (scan.ss == 0 ? scan.se != 0 : (scan.se < scan.ss || scan.se > 63 || scan.componentCount != 1))
                return false;
            if (scan.al > kMaxAl || (scan.ah != 0 && scan.al != scan.ah - 1)) return false;
            for (int i = 0; i < scan.componentCount; ++i) {
                Component& component = out.components[size_t(scan.components[i])];
                if (scan.ss > 0 && component.bits[0] < 0) return false;
                for (int k = scan.ss; k <= scan.se; ++k) {
                    if (scan.ah == 0 ? component.bits[k] >= 0 : component.bits[k] != scan.ah) return false;
                    component.bits[k] = scan.al;
                }
                if (!component.latched) {
                    if (!defined[component.tq]) return false;
                    std::copy(std::begin(tables[component.tq]), std::end(tables[component.tq]), component.quant);
                    component.latched = true;
                }
            }
            scan.end = entropyEnd(data, size, pos);
            if (scan.end >= size) return false;  // the data never reaches a marker: truncated
            out.pieces.push_back({scan.begin, scan.end, int(out.scans.size())});
            out.scans.push_back(scan);
            pos = scan.end;
            continue;
        } else if (code == 0xDB) {
            if (!readQuantTables(body, bodyLength, tables, defined)) return false;
        }
        out.pieces.push_back({start, pos, -1});
    }
}

double lanczos3(double x) { return ResampleKernel{3.0, 1.0}(x); }

// How much of each DCT basis function (u = 0..7, along one axis) survives the shrink to the thumbnail: the
// root-mean-square response of the resampling filter (Lanczos-3 widened by the reduction, as the engine
// shrinks) to the basis function repeated block after block with independent amplitudes, relative to the
// basis function's own root-mean-square value, averaged over where output pixels fall on the block grid.
// `subsampling` is the component's block size in full-resolution pixels over 8.
std::array<double, 8> basisGains(double reduction, double subsampling) {
    std::array<double, 8> gains{};
    const double blockPixels = 8 * subsampling;
    const int reach = int(std::ceil(3 * reduction / blockPixels)) + 1;  // blocks on each side within the filter
    constexpr int kPhases = 16;
    std::vector<double> weights(size_t(2 * reach + 1) * 8);
    for (int phase = 0; phase < kPhases; ++phase) {
        const double centre = (phase + 0.5) * blockPixels / kPhases;
        // Filter weight of each block's 8 samples (each covering `subsampling` full-resolution pixels).
        double total = 0;
        for (int b = -reach; b <= reach; ++b)
            for (int t = 0; t < 8; ++t) {
                const double x = b * blockPixels + (t + 0.5) * subsampling;
                const double w = lanczos3((x - centre) / reduction) * subsampling;
                weights[size_t(b + reach) * 8 + size_t(t)] = w;
                total += w;
            }
        for (int u = 0; u < 8; ++u) {
            double power = 0;
            for (int b = 0; b <= 2 * reach; ++b) {
                double response = 0;
                for (int t = 0; t < 8; ++t)
                    response += weights[size_t(b) * 8 + size_t(t)] * std::cos((2 * t + 1) * u * M_PI / 16);
                power += response * response;
            }
            // The basis function's mean square over a block is 1/2 for u > 0, 1 for u = 0.
            gains[size_t(u)] += power / (total * total) / (u == 0 ? 1.0 : 0.5);
        }
    }
    for (double& g : gains) g = std::sqrt(g / kPhases);
    return gains;
}

}  // namespace

ScanSelection selectProgressiveScans(const uint8_t* data, size_t size, double reduction,
                                     const ScanSelectionParams& params) {
    ScanSelection result;
    Parsed parsed;
    if (!data || !parse(data, size, parsed)) return result;
    const auto& scans = parsed.scans;
    const auto& components = parsed.components;
    result.totalScans = int(scans.size());
    result.keptScans = result.totalScans;
    if (!(reduction > 1.0) || !std::isfinite(reduction)) return result;
    // Beyond this only DC matters for any sampling, and the filter estimates stay cheap.
    reduction = std::min(reduction, 256.0);

    // Needed coefficients per component (bit k = zigzag index k), and the precision (Al) its AC coefficients
    // should reach.
    int hMax = 1, vMax = 1;
    for (const Component& c : components) hMax = std::max(hMax, c.h), vMax = std::max(vMax, c.v);
    const double cutoff = params.bandMargin * 0.5 / reduction;
    std::vector<uint64_t> needed(components.size(), 1);
    std::vector<int> targetAl(components.size(), 0);
    const double budget = params.maxErrorLevels * params.maxErrorLevels / double(components.size());
    for (size_t c = 0; c < components.size(); ++c) {
        const double sx = double(hMax) / components[c].h, sy = double(vMax) / components[c].v;
        const std::array<double, 8> gainX = basisGains(reduction, sx), gainY = basisGains(reduction, sy);
        // Mean square error, per unit of squared step, of leaving out the least significant bit everywhere.
        double spread = 0;
        for (int k = 0; k < 64; ++k) {
            const int u = kNaturalOrder[k] % 8, v = kNaturalOrder[k] / 8;
            if (k != 0) {
                const double q = components[c].quant[k];
                spread += q * q * gainX[size_t(u)] * gainX[size_t(u)] * gainY[size_t(v)] * gainY[size_t(v)];
            }
            if (k == 0 || (u / (16.0 * sx) < cutoff && v / (16.0 * sy) < cutoff)) needed[c] |= uint64_t(1) << k;
        }
        // Leaving out `bits` refinement bits errs by up to (2^bits - 1) steps, on about half the coefficients
        // in the worst case (noise); the error of a coefficient spreads evenly over the block's 64 pixels.
        // Colour conversion scales chroma errors: mean squared RGB gain of Cb 1.09, of Cr 0.83.
        const double colour = components.size() == 3 && c == 1 ? 1.09 : components.size() == 3 && c == 2 ? 0.83 : 1;
        int bits = 0;
        while (bits < kMaxAl) {
            const double step = double((2 << bits) - 1);
            if (0.5 * step * step * spread / 64 * colour > budget) break;
            ++bits;
        }
        targetAl[c] = bits;
    }

    // Walk backwards: a scan is kept when it is wanted for itself or when a later kept refinement scan needs
    // the exact history of a coefficient it touches; a kept refinement scan needs that history for its band.
    std::vector<char> keep(scans.size(), 0);
    std::vector<uint64_t> history(components.size(), 0);
    for (size_t i = scans.size(); i-- > 0;) {
        const Scan& scan = scans[i];
        bool wanted = scan.ss == 0;
        for (int j = 0; j < scan.componentCount && !wanted; ++j) {
            const size_t c = size_t(scan.components[j]);
            const uint64_t overlap = scan.band() & needed[c];
            if (scan.band() & history[c]) wanted = true;
            if (!overlap) continue;
            if (scan.ah == 0 || scan.al >= targetAl[c]) wanted = true;
        }
        keep[i] = wanted;
        if (wanted && scan.ah != 0)
            for (int j = 0; j < scan.componentCount; ++j) history[size_t(scan.components[j])] |= scan.band();
    }

    result.keptScans = int(std::count(keep.begin(), keep.end(), 1));
    if (result.keptScans == result.totalScans) return result;

    size_t total = 2;
    for (const Piece& piece : parsed.pieces)
        if (piece.scan < 0 || keep[size_t(piece.scan)]) total += piece.end - piece.begin;
    result.stream.reserve(total);
    for (const Piece& piece : parsed.pieces)
        if (piece.scan < 0 || keep[size_t(piece.scan)])
            result.stream.insert(result.stream.end(), data + piece.begin, data + piece.end);
    result.stream.push_back(0xFF);
    result.stream.push_back(kEOI);
    // libjpeg's block smoothing guesses the low AC coefficients of incomplete files from neighbouring DC
    // values. Here the missing bits are ones the thumbnail cannot show: measured against thumbnails of the
    // whole file, smoothing gains at most about 1 dB where the decode keeps 1/2 of the size, loses several
    // dB at 1/4 and 1/8 (it disturbs what the reduced transforms keep), and costs 5-20% of the decode time.
    result.blockSmoothing = false;
    return result;
}

}  // namespace voimg::detail
