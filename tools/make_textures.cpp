// SPDX-License-Identifier: MIT
// Renders the toolkit's texture pictures into a resource folder:
//   TextureShadingBall.png  a lit sphere on transparency (the look-up picture for shaded materials)
//   TextureFiber.png        a fine, opaque fibre pattern
// Usage: vo_make_textures FOLDER. Deterministic: the same files on every build.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "Engine/codec/codec.h"

namespace {

uint8_t toByte(double v) { return uint8_t(std::lround(std::clamp(v, 0.0, 1.0) * 255.0)); }

std::vector<uint8_t> shadingBall(int size) {
    std::vector<uint8_t> rgba(size_t(size) * size * 4, 0);
    const double radius = size / 2.0 - 1.0, centre = size / 2.0;
    // Light from the upper left, in front of the picture.
    const double lx = -0.45, ly = 0.55, lz = 0.70, ln = std::sqrt(lx * lx + ly * ly + lz * lz);
    const int samples = 4;  // per axis, for a smooth rim
    for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x) {
            double colour = 0, coverage = 0;
            for (int sy = 0; sy < samples; ++sy)
                for (int sx = 0; sx < samples; ++sx) {
                    const double px = (x + (sx + 0.5) / samples - centre) / radius;
                    const double py = (centre - (y + (sy + 0.5) / samples)) / radius;  // y up
                    const double r2 = px * px + py * py;
                    if (r2 > 1.0) continue;
                    const double pz = std::sqrt(1.0 - r2);
                    const double diffuse = std::max(0.0, (px * lx + py * ly + pz * lz) / ln);
                    // Phong highlight with the viewer straight in front.
                    const double reflect = 2 * diffuse * pz - lz / ln;
                    const double specular = std::pow(std::max(0.0, reflect), 24.0);
                    colour += 0.12 + 0.78 * diffuse + 0.6 * specular;
                    coverage += 1;
                }
            uint8_t* p = &rgba[(size_t(y) * size + x) * 4];
            if (coverage == 0) continue;
            const double c = colour / coverage;
            p[0] = p[1] = p[2] = toByte(c);
            p[3] = toByte(coverage / (samples * samples));
        }
    return rgba;
}

std::vector<uint8_t> fiber(int size) {
    std::vector<double> grey(size_t(size) * size, 0.78);
    std::mt19937 random(20061121);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    // Many short, thin, slightly curved strands, lighter and darker than the paper, wrapping at the edges
    // so the picture tiles.
    for (int strand = 0; strand < size * 6; ++strand) {
        double x = unit(random) * size, y = unit(random) * size;
        double angle = unit(random) * 2 * M_PI;
        const double shade = (unit(random) - 0.5) * 0.18;
        const int length = 8 + int(unit(random) * size / 6);
        for (int step = 0; step < length; ++step) {
            angle += (unit(random) - 0.5) * 0.25;
            x += std::cos(angle) * 0.7, y += std::sin(angle) * 0.7;
            const int ix = ((int(std::floor(x)) % size) + size) % size, iy = ((int(std::floor(y)) % size) + size) % size;
            grey[size_t(iy) * size + ix] += shade * 0.5;
        }
    }
    std::vector<uint8_t> rgba(size_t(size) * size * 4);
    for (size_t i = 0; i < grey.size(); ++i) {
        const double g = grey[i] + (unit(random) - 0.5) * 0.03;
        rgba[i * 4 + 0] = toByte(g * 1.00);
        rgba[i * 4 + 1] = toByte(g * 0.97);
        rgba[i * 4 + 2] = toByte(g * 0.90);
        rgba[i * 4 + 3] = 255;
    }
    return rgba;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: vo_make_textures FOLDER\n");
        return 2;
    }
    const std::string folder = argv[1];
    std::string error;
    const int ballSize = 256, fiberSize = 256;
    if (!voimg::writePngFile(folder + "/TextureShadingBall.png", shadingBall(ballSize).data(), ballSize, ballSize,
                             &error) ||
        !voimg::writePngFile(folder + "/TextureFiber.png", fiber(fiberSize).data(), fiberSize, fiberSize, &error)) {
        std::fprintf(stderr, "vo_make_textures: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
