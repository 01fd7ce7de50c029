// SPDX-License-Identifier: MIT
// WebP decoding with libwebp: lossy, lossless, alpha, ICC profiles, and the first frame of animations.
//
// Stills decode straight into the output buffer, scaled by libwebp when a reduction is asked for (output
// ceil(w/N) x ceil(h/N)). Animations are composited by WebPAnimDecoder onto its own canvas at full size
// and copied out once.
#include "codec_module_p.h"
#include "icc_convert_p.h"

#include <webp/decode.h>
#include <webp/demux.h>

namespace voimg::detail {
namespace {

struct Demuxer {
    WebPDemuxer* handle;
    ~Demuxer() { WebPDemuxDelete(handle); }
};

struct AnimDecoder {
    WebPAnimDecoder* handle;
    ~AnimDecoder() { WebPAnimDecoderDelete(handle); }
};

bool decodeStill(const uint8_t* data, size_t size, const WebPBitstreamFeatures& features, int scale,
                 DecodedImage& image, std::string* error) {
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) {
        setError(error, "incompatible libwebp");
        return false;
    }
    int width = features.width, height = features.height;
    if (scale > 1) {
        width = (width + scale - 1) / scale;
        height = (height + scale - 1) / scale;
        config.options.use_scaling = 1;
        config.options.scaled_width = width;
        config.options.scaled_height = height;
    }
    if (!allocatePixels(image, width, height, false, error)) return false;
    // libwebp filters on a second thread while it decodes the next rows.
    config.options.use_threads = 1;
    config.output.colorspace = MODE_RGBA;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = image.pixels.data();
    config.output.u.RGBA.stride = int(image.stride());
    config.output.u.RGBA.size = image.pixels.size();
    const VP8StatusCode status = WebPDecode(data, size, &config);
    WebPFreeDecBuffer(&config.output);
    if (status != VP8_STATUS_OK) {
        setError(error, "invalid WebP image data (status " + std::to_string(int(status)) + ")");
        return false;
    }
    return true;
}

bool decodeFirstFrame(const WebPData& webp, DecodedImage& image, std::string* error) {
    WebPAnimDecoderOptions options;
    if (!WebPAnimDecoderOptionsInit(&options)) {
        setError(error, "incompatible libwebp");
        return false;
    }
    options.color_mode = MODE_RGBA;
    options.use_threads = 0;
    const AnimDecoder decoder{WebPAnimDecoderNew(&webp, &options)};
    WebPAnimInfo info;
    if (decoder.handle == nullptr || !WebPAnimDecoderGetInfo(decoder.handle, &info)) {
        setError(error, "invalid animated WebP");
        return false;
    }
    uint8_t* frame = nullptr;
    int timestamp = 0;
    if (!WebPAnimDecoderGetNext(decoder.handle, &frame, &timestamp) || frame == nullptr) {
        setError(error, "invalid animated WebP: first frame does not decode");
        return false;
    }
    if (!allocatePixels(image, int(info.canvas_width), int(info.canvas_height), false, error)) return false;
    std::memcpy(image.pixels.data(), frame, image.pixels.size());
    // The canvas starts transparent, so a first frame that does not cover it leaves transparent areas.
    for (size_t i = 3; i < image.pixels.size() && !image.hasAlpha; i += 4) image.hasAlpha = image.pixels[i] != 255;
    return true;
}

}  // namespace

DecodeResult decodeWebP(const uint8_t* data, size_t size, const DecodeOptions& options, std::string* error) {
    WebPBitstreamFeatures features;
    if (WebPGetFeatures(data, size, &features) != VP8_STATUS_OK) {
        setError(error, "invalid WebP header");
        return std::nullopt;
    }
    // For animations these are the canvas size, which WebPAnimDecoderNew allocates up front.
    if (!checkDimensions(uint64_t(features.width), uint64_t(features.height), options.maxPixels, error))
        return std::nullopt;

    const WebPData webp{data, size};
    DecodedImage image;
    if (features.has_animation) {
        if (!decodeFirstFrame(webp, image, error)) return std::nullopt;
    } else {
        if (!decodeStill(data, size, features, options.scaleDenominator, image, error)) return std::nullopt;
        image.hasAlpha = features.has_alpha != 0;
    }

    const Demuxer demux{WebPDemux(&webp)};
    if (demux.handle != nullptr && (WebPDemuxGetI(demux.handle, WEBP_FF_FORMAT_FLAGS) & ICCP_FLAG)) {
        WebPChunkIterator chunk;
        if (WebPDemuxGetChunk(demux.handle, "ICCP", 1, &chunk)) {
            convertToSrgb(image, chunk.chunk.bytes, chunk.chunk.size, IccLayout::Rgb);
            WebPDemuxReleaseChunkIterator(&chunk);
        }
    }
    return image;
}

}  // namespace voimg::detail

// This decoder is built as a codec module; the engine reads WebP headers itself.
VO_CODEC_MODULE(voimg::FileFormat::WebP, voimg::detail::decodeWebP, nullptr)
