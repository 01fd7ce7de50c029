// SPDX-License-Identifier: MIT
#include "srgb.h"

#include <array>
#include <cmath>
#include <vector>

namespace voimg {

double srgbDecode(double c) { return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); }

double srgbEncode(double l) { return l <= 0.0031308 ? l * 12.92 : 1.055 * std::pow(l, 1.0 / 2.4) - 0.055; }

const float* srgbToLinear8Table() {
    static const std::array<float, 256> table = [] {
        std::array<float, 256> t{};
        for (int i = 0; i < 256; ++i) t[i] = float(srgbDecode(i / 255.0));
        return t;
    }();
    return table.data();
}

const float* srgbToLinear16Table() {
    static const std::vector<float> table = [] {
        std::vector<float> t(65536);
        for (int i = 0; i < 65536; ++i) t[i] = float(srgbDecode(i / 65535.0));
        return t;
    }();
    return table.data();
}

namespace {
// Linear light quantised to 16 bits is fine enough that every 8-bit code is reachable and each entry
// rounds to the code nearest the exact encoding (the darkest code step is 20 table steps wide).
constexpr int kEncodeSteps = kLinearToSrgb8Steps;

// Filled from the 255 linear values where the nearest code changes (halfway between codes in encoded
// terms), rather than by encoding every entry: the same table for 255 evaluations of the transfer function
// instead of 65536, which every thumbnail would otherwise pay for at start.
const std::vector<uint8_t>& encodeTable() {
    static const std::vector<uint8_t> table = [] {
        std::vector<uint8_t> t(kEncodeSteps + 1);
        int code = 0;
        double nextThreshold = srgbDecode(0.5 / 255.0);
        for (int i = 0; i <= kEncodeSteps; ++i) {
            while (code < 255 && double(i) / kEncodeSteps >= nextThreshold)
                nextThreshold = ++code < 255 ? srgbDecode((code + 0.5) / 255.0) : 2.0;
            t[size_t(i)] = uint8_t(code);
        }
        return t;
    }();
    return table;
}
}  // namespace

const uint8_t* linearToSrgb8Table() { return encodeTable().data(); }

uint8_t linearToSrgb8(float linear) {
    static const uint8_t* table = encodeTable().data();
    if (!(linear > 0.0f)) return 0;  // also NaN
    if (linear >= 1.0f) return 255;
    return table[int(linear * float(kEncodeSteps) + 0.5f)];
}

}  // namespace voimg
