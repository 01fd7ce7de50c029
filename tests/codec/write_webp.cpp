// SPDX-License-Identifier: MIT
// Test WebP files: bitstreams from libwebp's encoder, extended containers (ICC, animation) assembled by hand.
#include "test_support.h"

#include <webp/encode.h>

#include <cstring>
#include <stdexcept>

namespace votest {
namespace {

void putLe(Bytes& out, uint32_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(uint8_t(v >> (8 * i)));
}

void appendChunk(Bytes& out, const char* fourcc, const uint8_t* payload, size_t size) {
    out.insert(out.end(), fourcc, fourcc + 4);
    putLe(out, uint32_t(size), 4);
    out.insert(out.end(), payload, payload + size);
    if (size & 1) out.push_back(0);
}

// The chunks of a simple or extended file after the RIFF header, minus any VP8X chunk.
Bytes imageChunks(const Bytes& webp) {
    Bytes out;
    size_t pos = 12;
    while (pos + 8 <= webp.size()) {
        const uint32_t size = uint32_t(webp[pos + 4]) | uint32_t(webp[pos + 5]) << 8 | uint32_t(webp[pos + 6]) << 16 |
                              uint32_t(webp[pos + 7]) << 24;
        const size_t total = 8 + size + (size & 1);
        if (std::memcmp(webp.data() + pos, "VP8X", 4) != 0)
            out.insert(out.end(), webp.begin() + long(pos), webp.begin() + long(std::min(webp.size(), pos + total)));
        pos += total;
    }
    return out;
}

Bytes vp8x(uint8_t flags, int width, int height) {
    Bytes payload{flags, 0, 0, 0};
    putLe(payload, uint32_t(width - 1), 3);
    putLe(payload, uint32_t(height - 1), 3);
    return payload;
}

Bytes riff(const Bytes& body) {
    Bytes out{'R', 'I', 'F', 'F'};
    putLe(out, uint32_t(body.size() + 4), 4);
    out.insert(out.end(), {'W', 'E', 'B', 'P'});
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

}  // namespace

Bytes encodeWebP(const Picture& rgba, bool lossless, int quality) {
    uint8_t* output = nullptr;
    const int stride = rgba.width * 4;
    const size_t size = lossless ? WebPEncodeLosslessRGBA(rgba.samples.data(), rgba.width, rgba.height, stride, &output)
                                 : WebPEncodeRGBA(rgba.samples.data(), rgba.width, rgba.height, stride, float(quality),
                                                  &output);
    if (size == 0) throw std::runtime_error("WebP encoding failed");
    Bytes out(output, output + size);
    WebPFree(output);
    return out;
}

Bytes webpWithIcc(const Bytes& simpleWebP, int width, int height, bool alpha, const Bytes& icc) {
    Bytes body;
    const Bytes header = vp8x(uint8_t(0x20 | (alpha ? 0x10 : 0)), width, height);
    appendChunk(body, "VP8X", header.data(), header.size());
    appendChunk(body, "ICCP", icc.data(), icc.size());
    const Bytes chunks = imageChunks(simpleWebP);
    body.insert(body.end(), chunks.begin(), chunks.end());
    return riff(body);
}

Bytes animatedWebP(const Picture& first, const Picture& second) {
    Bytes body;
    const Bytes header = vp8x(0x02 | 0x10, first.width, first.height);
    appendChunk(body, "VP8X", header.data(), header.size());
    Bytes anim;
    putLe(anim, 0, 4);  // background colour
    putLe(anim, 0, 2);  // loop forever
    appendChunk(body, "ANIM", anim.data(), anim.size());
    for (const Picture* frame : {&first, &second}) {
        Bytes anmf;
        putLe(anmf, 0, 3);
        putLe(anmf, 0, 3);
        putLe(anmf, uint32_t(frame->width - 1), 3);
        putLe(anmf, uint32_t(frame->height - 1), 3);
        putLe(anmf, 100, 3);  // duration
        anmf.push_back(0x02);  // no blending, no disposal
        const Bytes chunks = imageChunks(encodeWebP(*frame, true));
        anmf.insert(anmf.end(), chunks.begin(), chunks.end());
        appendChunk(body, "ANMF", anmf.data(), anmf.size());
    }
    return riff(body);
}

}  // namespace votest
